#include <string>

#include "endtoend/EndToEnd.h"

using namespace vexim::testing;
using vexim::Dictionary;
using vexim::Value;

namespace {

// REST does not depend on the generation of the Socket.IO server, but the message history does,
// because live messages fill it. So these tests run with each.
class ServerResources : public EndToEnd {};
INSTANTIATE_TEST_SUITE_P(Services, ServerResources, kServices, serviceName);

template <class T>
std::string ids(const std::optional<std::vector<std::shared_ptr<T>>>& objects, const char* key) {
    if (!objects) return "nil";
    std::string text;
    for (const auto& object : *objects)
        text += (text.empty() ? "" : ",") + object->valueForKey(key).description();
    return "[" + text + "]";
}

std::string texts(const std::optional<std::vector<std::shared_ptr<VXIMMessage>>>& messages) {
    if (!messages) return "nil";
    std::string text;
    for (const auto& message : *messages)
        text += (text.empty() ? "" : ",") + message->text().value_or("nil");
    return "[" + text + "]";
}

TEST_P(ServerResources, AUserHasFriendsGroupsAndRooms) {
    auto user = loggedIn("alice")->client->currentUser();
    EXPECT_EQ(run([&](auto done) { user->fetchWithCompletion(done); }), "yes");
    EXPECT_EQ(
        json(user->friends()->at(0)->uid()) + ids(user->groups(), "id") + json(*user->rooms()),
        "\"bob\"[demo-group][\"demo-room\"]");
    EXPECT_EQ(run([&](auto done) { user->fetchFriendsWithDetail(true, done); }), "yes");
    EXPECT_EQ(json(user->friends()->at(0)->uid()), "\"bob\"");
    EXPECT_EQ(run([&](auto done) { user->fetchGroupsWithDetail(true, done); }), "yes");
    EXPECT_EQ(json(user->groups()->at(0)->name()), "\"Demo group\"");
    EXPECT_EQ(run([&](auto done) { user->fetchRoomsWithDetail(true, done); }), "yes");
    EXPECT_EQ(json(user->rooms()->get(0).as<VXIMRoom>()->name()), "\"Demo room\"");

    EXPECT_EQ(run([&](auto done) { user->deleteFriend("bob", done); }), "yes");
    EXPECT_EQ(run([&](auto done) { user->fetchFriendsWithDetail(false, done); }), "yes");
    EXPECT_EQ(user->friends()->size(), 0u);
    const std::function<std::string(const Value&)> any = [](const Value&) { return "added"; };
    EXPECT_EQ(run<Value>([&](auto done) { user->addFriendWithUser("bob", done); }, any), "added");
    const std::function<std::string(const std::shared_ptr<VXIMFriendInfo>&)> uid =
        [](const auto& info) { return info ? info->uid().description() : "nil"; };
    EXPECT_EQ(run<std::shared_ptr<VXIMFriendInfo>>(
                  [&](auto done) { user->getFriendInfo("bob", done); }, uid),
              "bob");
    EXPECT_TRUE(run<Value>([&](auto done) { user->addFriendWithUser("nobody", done); }, any)
                    .starts_with("error VXErrorDomain"));
}

TEST_P(ServerResources, AGroupIsMadeChangedAndDeleted) {
    auto alice = loggedIn("alice");
    std::shared_ptr<VXIMGroup> group;
    const std::function<std::string(const std::shared_ptr<VXIMGroup>&)> keep =
        [&](const auto& made) {
            group = made;
            return made ? "made" : "nil";
        };
    ASSERT_EQ(run<std::shared_ptr<VXIMGroup>>(
                  [&](auto done) {
                      VXIMGroup::createWithOwner("alice", "Team", vexim::Array{"alice"}, done);
                  },
                  keep),
              "made");
    EXPECT_EQ(run([&](auto done) { group->addMembers({"bob"}, done); }), "yes");
    EXPECT_EQ(run([&](auto done) { group->updateName("Crew", done); }), "yes");
    EXPECT_EQ(run([&](auto done) {
                  group->updateAttributes({{"color", "red"}, {"size", 12.5}}, done);
              }),
              "yes");
    EXPECT_EQ(run([&](auto done) { group->changeOwner("bob", done); }), "yes");
    const auto local = group->dictionaryRepresentation();
    auto fetched = VXIMGroup::groupWithId(group->groupId());
    EXPECT_EQ(run([&](auto done) { fetched->fetchWithBlock(done); }), "yes");
    EXPECT_EQ(json(fetched->name()) + json(fetched->owner()) + json(fetched->members()),
              R"("Crew""bob"["alice","bob"])");
    EXPECT_EQ(fetched->attributes(), local.get("attributes"));

    const std::function<std::string(const Value&)> text = [](const Value& value) {
        return json(value);
    };
    const auto attribute = [&](const char* key) {
        return run<Value>([&](auto done) { group->getAttributeForKey(key, done); }, text);
    };
    EXPECT_EQ(attribute("color") + attribute("size"), "\"red\"12.5");
    EXPECT_EQ(run([&](auto done) { group->replaceAttributes({{"only", true}}, done); }), "yes");
    EXPECT_EQ(run<Value>([&](auto done) { fetched->fetchAttributesWithCompletion(done); }, text),
              R"({"only":true})");
    EXPECT_EQ(run([&](auto done) { group->deleteAttributesWithCompletion(done); }), "yes");
    EXPECT_EQ(run<Value>([&](auto done) { fetched->fetchAttributesWithCompletion(done); }, text),
              "{}");
    EXPECT_EQ(run([&](auto done) { group->removeMembers({"alice"}, done); }), "yes");
    EXPECT_EQ(run([&](auto done) { group->deleteWithBlock(done); }), "yes");
    EXPECT_TRUE(
        run([&](auto done) { group->fetchWithBlock(done); }).starts_with("no VXErrorDomain"));
}

TEST_P(ServerResources, ARoomIsMadeChangedAndDeleted) {
    loggedIn("alice");
    std::shared_ptr<VXIMRoom> room;
    const std::function<std::string(const std::shared_ptr<VXIMRoom>&)> keep =
        [&](const auto& made) {
            room = made;
            return made ? "made" : "nil";
        };
    ASSERT_EQ(run<std::shared_ptr<VXIMRoom>>(
                  [&](auto done) { VXIMRoom::createWithName("Hall", done); }, keep),
              "made");
    EXPECT_EQ(run([&](auto done) { room->addMembers({"alice", "bob"}, done); }), "yes");
    EXPECT_EQ(run([&](auto done) { room->removeMembers({"bob"}, done); }), "yes");
    EXPECT_EQ(run([&](auto done) { room->updateName("Big hall", done); }), "yes");
    auto fetched = VXIMRoom::roomWithId(room->roomId());
    EXPECT_EQ(run([&](auto done) { fetched->fetchWithBlock(done); }), "yes");
    EXPECT_EQ(json(fetched->name()) + json(fetched->members()), R"("Big hall"["alice"])");
    EXPECT_EQ(json(room->members()), R"(["alice"])");
    EXPECT_GT(fetched->createTs(), 1.4e9);
    EXPECT_EQ(run([&](auto done) { room->deleteWithBlock(done); }), "yes");
    EXPECT_TRUE(
        run([&](auto done) { room->fetchWithBlock(done); }).starts_with("no VXErrorDomain"));
}

TEST_P(ServerResources, LiveMessagesBecomeHistory) {
    auto alice = loggedIn("alice");
    auto bob = loggedIn("bob");
    for (const char* text : {"one", "two", "three"}) {
        alice->client->sendMessageToFriend(VXIMMessage::messageWithText(text), "bob", {});
        ASSERT_TRUE(bob->hears(std::string("friend alice: ") + text));
    }
    bob->client->sendMessageToGroup(VXIMMessage::messageWithText("hello"), "demo-group", {});
    ASSERT_TRUE(alice->hears("group demo-group: hello"));

    using Messages = std::optional<std::vector<std::shared_ptr<VXIMMessage>>>;
    const double later = vexim::Date::now().timeIntervalSince1970() + 60;
    const std::function<std::string(const Messages&)> read = texts;
    auto user = alice->client->currentUser();
    const std::string history = run<Messages>(
        [&](auto done) { user->getLatestChatsWithFriend("bob", later, 20, done); }, read);
    for (const char* text : {"one", "two", "three"})
        EXPECT_NE(history.find(text), std::string::npos) << history;
    EXPECT_EQ(
        run<Messages>([&](auto done) { user->getLatestChatsWithFriend("bob", 1, 20, done); }, read),
        "[]");
    EXPECT_EQ(run<Messages>(
                  [&](auto done) {
                      VXIMGroup::groupWithId("demo-group")->getLatestMessagesBefore(later, 1, done);
                  },
                  read),
              "[hello]");
}

TEST_P(ServerResources, PassengersAndSearches) {
    loggedIn("alice");
    std::shared_ptr<VXIMPassenger> passenger;
    const std::function<std::string(const std::shared_ptr<VXIMPassenger>&)> keep =
        [&](const auto& made) {
            passenger = made;
            return made ? "made" : "nil";
        };
    ASSERT_EQ(
        run<std::shared_ptr<VXIMPassenger>>(
            [](auto done) {
                VXIMPassenger::createOrUpdatePassengerWithAttributes({{"nick", "guest"}}, done);
            },
            keep),
        "made");
    EXPECT_EQ(run([&](auto done) {
                  passenger->updatePassengerAttributes({{"nick", "visitor"}}, done);
              }),
              "yes");
    auto fetched = VXIMPassenger::passengerWithId(passenger->pid());
    EXPECT_EQ(run([&](auto done) { fetched->fetchWithCompletion(done); }), "yes");
    EXPECT_EQ(json(fetched->valueForKey("nick")), "\"visitor\"");

    using Users = std::optional<std::vector<std::shared_ptr<VXIMUser>>>;
    const std::function<std::string(const Users&)> read = [](const Users& users) {
        return ids(users, "id");
    };
    auto query = VXIMQuery::query();
    query->orderByDescending("nick");
    EXPECT_EQ(run<Users>([&](auto done) { query->findUserWithBlock(done); }, read), "[bob,alice]");
    query->whereAttribute("city", "Oslo");
    EXPECT_EQ(run<Users>([&](auto done) { query->findUserWithBlock(done); }, read), "[bob]");
    query->setSkip(1);
    EXPECT_EQ(run<Users>([&](auto done) { query->findUserWithBlock(done); }, read), "[]");
}

}  // namespace
