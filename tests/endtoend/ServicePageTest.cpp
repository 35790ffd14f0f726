// Compares docs/service.md with reality. The library uses every documented path, and the page's
// examples must equal the exchanges in the service's log, in order. What differs from run to run
// (times, generated ids, file names) is compared by its form.
//
// After an intended change, `VEXIM_RECORD_SERVICE_PAGE=1 endtoend_test
// --gtest_filter=*ServicePage*Node4` writes the exchanges into the page. Each replaces the example
// that was there. For a new one, add an empty example first ("GET" in an `http` block, "-" in a
// `live` block).

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "endtoend/EndToEnd.h"
#include "endtoend/ServicePageExchanges.h"
#include "endtoend/ServiceProcess.h"
#include "support/TemporaryFolder.h"

namespace vexim::testing {
namespace {

/// A PNG of one pixel.
constexpr char kPicture[] =
    "\211PNG\015\012\032\012\000\000\000\015IHDR\000\000\000\001\000\000\000\001\010\006\000\000\000\037\025\304\211\000\000\000"
    "\015IDATx\332cd\370\317P\017\000\003\206\001\200Z4}k\000\000\000\000IEND\256B`\202";

class ServicePage : public EndToEnd {
protected:
    using Start = std::function<void(VXIMBooleanCompletion)>;

    static void succeeds(const Start& start) { EXPECT_EQ(run(start), "yes"); }
    static void isRefused(const Start& start) { EXPECT_TRUE(run(start).starts_with("no VX")); }
    /// For operations with other results.
    template <class T>
    static T resultOf(const std::function<void(std::function<void(T, ErrorPtr)>)>& start) {
        T kept{};
        EXPECT_EQ(run<T>(start,
                         [&](const T& result) {
                             kept = result;
                             return "done";
                         }),
                  "done");
        return kept;
    }
    std::shared_ptr<Person> personAt(const char* installation) {
        return newPerson(
            [installation](VXIMClientConfiguration& c) { c.setInstallationId(installation); });
    }
    Array log(const std::string& query = "") const {
        const auto& process = dynamic_cast<const ServiceProcess&>(service);
        const JSONResult log = parseJSON(process.controlGet("log" + query));
        if (!log.value.isArray()) throw std::runtime_error("the service's log is no list");
        return *log.value.asArray();
    }
    /// Runs the main queue until this many connections have ended, by the service's log: no client
    /// is told about some of them.
    void awaitLeaves(std::size_t count) const {
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (log("?kind=leave").size() < count && std::chrono::steady_clock::now() < giveUp)
            MainQueue::shared().drain();
        EXPECT_EQ(log("?kind=leave").size(), count);
    }
    void say(const char* text,
             const std::function<void(std::shared_ptr<VXIMMessage>, VXIMBooleanCompletion)>& send) {
        succeeds([&](auto done) { send(VXIMMessage::messageWithText(text), done); });
    }

    void tellLive();
    void tellSystemMessages();
    void tellUsersAndFriends();
    void tellGroups();
    void tellRooms();
    void tellPassengers();
    void tellAttributes();
    void tellHistory();
    void tellSearches();
    void tellAttachments();
    void tellErrors();

    std::shared_ptr<Person> alice = personAt("phone-1");
    std::shared_ptr<Person> bob = personAt("laptop-1");
    std::shared_ptr<VXIMUser> user = VXIMUser::userWithId("alice");
    std::shared_ptr<VXIMGroup> group = VXIMGroup::groupWithId("demo-group");
    std::shared_ptr<VXIMRoom> room = VXIMRoom::roomWithId("demo-room");
};

void ServicePage::tellLive() {
    succeeds([&](auto done) { alice->client->loginWithUserId("alice", done); });
    isRefused(
        [&](auto done) { bob->client->loginWithPhoneNumber("+15550100002", "123456", done); });
    bob = nullptr;
    awaitLeaves(1);

    bob = personAt("laptop-1");
    succeeds([&](auto done) { bob->client->loginWithUsername("bob", "bob-secret", done); });
    EXPECT_TRUE(alice->hears("online bob"));
    bob->client->pause();
    EXPECT_TRUE(alice->hears("offline bob"));
    bob = personAt("laptop-1");
    const Dictionary identity{
        {"provider", "example"}, {"uid", "bob@example"}, {"token", "bob-token"}};
    succeeds([&](auto done) { bob->client->loginWithThirdPartyOAuth(identity, done); });
    EXPECT_TRUE(alice->hears("online bob"));

    say("Hello Bob",
        [&](auto message, auto done) { alice->client->sendMessageToFriend(message, "bob", done); });
    EXPECT_TRUE(bob->hears("friend alice: Hello Bob") && alice->hears("friend bob: Hello Bob"));
    say("Hello all", [&](auto message, auto done) {
        bob->client->sendMessageToGroup(message, "demo-group", done);
    });
    EXPECT_TRUE(alice->hears("group demo-group: Hello all") &&
                bob->hears("group demo-group: Hello all"));
    say("Who is here?", [&](auto message, auto done) {
        alice->client->sendMessageToRoom(message, "demo-room", done);
    });
    EXPECT_TRUE(bob->hears("room demo-room: Who is here?") &&
                alice->hears("room demo-room: Who is here?"));

    succeeds([&](auto done) { alice->client->logoutWithCompletion(done); });
    EXPECT_TRUE(bob->hears("offline alice"));
    alice = personAt("phone-1");
    succeeds([&](auto done) { alice->client->loginWithUserId("alice", done); });
    EXPECT_TRUE(bob->hears("online alice"));
}

void ServicePage::tellSystemMessages() {
    const auto reaches = [&](const std::shared_ptr<Person>& person, const char* text) {
        EXPECT_TRUE(person->hears(std::string("system: ") + text)) << text;
    };
    VXIMClient& client = *alice->client;
    say("Down for five minutes at noon",
        [&](auto message, auto done) { client.sendSystemMessageToAllUsers(message, done); });
    reaches(alice, "Down for five minutes at noon");
    reaches(bob, "Down for five minutes at noon");
    say("Your trial ends soon",
        [&](auto message, auto done) { client.sendSystemMessageToUser(message, "alice", done); });
    reaches(alice, "Your trial ends soon");
    say("Welcome to the group", [&](auto message, auto done) {
        client.sendSystemMessageToGroup(message, "demo-group", done);
    });
    reaches(alice, "Welcome to the group");
    reaches(bob, "Welcome to the group");
    say("Welcome to the room", [&](auto message, auto done) {
        client.sendSystemMessageToRoom(message, "demo-room", done);
    });
    reaches(alice, "Welcome to the room");
    reaches(bob, "Welcome to the room");
}

void ServicePage::tellUsersAndFriends() {
    succeeds([&](auto done) { user->fetchWithCompletion(done); });
    succeeds([&](auto done) { user->fetchGroupsWithDetail(false, done); });
    succeeds([&](auto done) { user->fetchGroupsWithDetail(true, done); });
    succeeds([&](auto done) { user->fetchRoomsWithDetail(false, done); });
    succeeds([&](auto done) { user->fetchRoomsWithDetail(true, done); });

    const auto befriended = [&] {
        std::string found;
        user->getFriendInfo("bob", once([&](const auto& info, const ErrorPtr& error) {
                                found = info ? "yes" : describe(error);
                            }));
        EXPECT_TRUE(eventually([&] { return !found.empty(); }));
        return found;
    };
    succeeds([&](auto done) { user->fetchFriendsWithDetail(false, done); });
    succeeds([&](auto done) { user->fetchFriendsWithDetail(true, done); });
    EXPECT_EQ(befriended(), "yes");
    succeeds([&](auto done) { user->deleteFriend("bob", done); });
    EXPECT_EQ(befriended(), "VXErrorDomain 1202");
    resultOf<Value>([&](auto done) { user->addFriendWithUser("bob", done); });
}

void ServicePage::tellGroups() {
    const auto made = resultOf<std::shared_ptr<VXIMGroup>>(
        [](auto done) { VXIMGroup::createWithOwner("alice", "Climbing", Array{"bob"}, done); });
    ASSERT_TRUE(made);
    succeeds([&](auto done) { made->fetchWithBlock(done); });
    succeeds([&](auto done) { made->changeOwner("bob", done); });
    succeeds([&](auto done) { made->addMembers({"alice", "bob"}, done); });
    succeeds([&](auto done) { made->removeMembers({"alice"}, done); });
    succeeds([&](auto done) { made->deleteWithBlock(done); });
    isRefused([&](auto done) { made->fetchWithBlock(done); });
}

void ServicePage::tellRooms() {
    const auto made = resultOf<std::shared_ptr<VXIMRoom>>(
        [](auto done) { VXIMRoom::createWithName("Lobby", done); });
    ASSERT_TRUE(made);
    succeeds([&](auto done) { made->fetchWithBlock(done); });
    succeeds([&](auto done) { made->updateName("Hall", done); });
    succeeds([&](auto done) { made->addMembers({"alice", "bob"}, done); });
    succeeds([&](auto done) { made->removeMembers({"bob"}, done); });
    succeeds([&](auto done) { made->deleteWithBlock(done); });
}

void ServicePage::tellPassengers() {
    const auto passenger = resultOf<std::shared_ptr<VXIMPassenger>>([](auto done) {
        VXIMPassenger::createOrUpdatePassengerWithAttributes({{"nick", "Visitor"}}, done);
    });
    ASSERT_TRUE(passenger);
    succeeds([&](auto done) { passenger->updatePassengerAttributes({{"page", "/prices"}}, done); });
    succeeds([&](auto done) { passenger->fetchWithCompletion(done); });

    const auto visitor = personAt("web-1");
    succeeds(
        [&](auto done) { visitor->client->loginWithUserId(passenger->pid().description(), done); });
    say("Is anybody there?", [&](auto message, auto done) {
        visitor->client->sendMessageToFriend(message, "alice", done);
    });
    EXPECT_TRUE(alice->hears("friend " + passenger->pid().description() + ": Is anybody there?"));
    EXPECT_TRUE(visitor->hears("friend alice: Is anybody there?"));
    visitor->client->pause();
    awaitLeaves(4);
    const double now = Clock::shared()->wallTime() + 1;
    succeeds([&](auto done) {
        passenger->getHistoryMessagesWithUser(
            "alice", now, 20,
            [done](const auto& list, auto error) { done(list && list->size() == 1, error); });
    });
}

void ServicePage::tellAttributes() {
    const auto read = [](VXIMAttributedObject& object, const char* key) {
        resultOf<Value>([&](auto done) { object.getAttributeForKey(key, done); });
    };
    const auto fetch = [](VXIMAttributedObject& object) {
        resultOf<Value>([&](auto done) { object.fetchAttributesWithCompletion(done); });
    };
    const auto update = [](VXIMAttributedObject& object, const Dictionary& attributes) {
        succeeds([&](auto done) { object.updateAttributes(attributes, done); });
    };
    const auto replace = [](VXIMAttributedObject& object, const Dictionary& attributes) {
        succeeds([&](auto done) { object.replaceAttributes(attributes, done); });
    };
    const auto clear = [](VXIMAttributedObject& object) {
        succeeds([&](auto done) { object.deleteAttributesWithCompletion(done); });
    };
    const auto other = VXIMUser::userWithId("bob");
    fetch(*other);
    update(*other, {{"city", "Bergen"}, {"pro", true}});
    replace(*other, {{"nick", "Bobby"}, {"age", 30}});
    clear(*other);
    fetch(*group);
    update(*group, {{"name", "Renamed group"}, {"color", Value::null()}});
    replace(*group, {{"name", "Demo group"}, {"color", "teal"}});
    clear(*group);
    fetch(*room);
    update(*room, {{"floor", 2}, {"note", Value::null()}, {"tags", Array{"a", "b"}}});
    clear(*room);
    replace(*room, {{"floor", 3}, {"open", true}, {"note", Value::null()}, {"topic", "news"}});
    read(*room, "topic");
    read(*room, "floor");
    read(*room, "note");
    EXPECT_NE(run<Value>([&](auto done) { room->getAttributeForKey("nothing", done); },
                         [](const Value&) { return "found"; }),
              "found");
    read(*user, "nick");
    replace(*group, {{"name", "Demo group"}, {"limits", Dictionary{{"members", 50}}}});
    read(*group, "limits");
}

void ServicePage::tellHistory() {
    const double now = Clock::shared()->wallTime() + 1;
    const auto isOne = [](const VXIMBooleanCompletion& done) {
        return [done](const std::optional<std::vector<std::shared_ptr<VXIMMessage>>>& list,
                      const ErrorPtr& error) { done(list && list->size() == 1, error); };
    };
    succeeds([&](auto done) { user->getLatestChatsWithFriend("bob", now, 20, isOne(done)); });
    succeeds([&](auto done) { group->getLatestMessagesBefore(now, 20, isOne(done)); });
}

void ServicePage::tellSearches() {
    const auto counted = [](const VXIMBooleanCompletion& done, std::size_t count) {
        return [done, count](const auto& list, const ErrorPtr& error) {
            done(list && list->size() == count, error);
        };
    };
    auto query = VXIMQuery::query();
    query->whereAttribute("nick", "Alice");
    succeeds([&](auto done) { query->findUserWithBlock(counted(done, 1)); });

    query = VXIMQuery::query();
    query->whereAttribute("name", "Demo group");
    query->orderByAscending("name");
    query->addDescendingOrder("ts");
    query->setLimit(1);
    succeeds([&](auto done) { query->findGroupWithBlock(counted(done, 1)); });

    query = VXIMQuery::query();
    query->whereAttribute("topic", "news");
    query->whereAttribute("floor", "3");
    query->setLimit(-1);
    query->setSkip(-1);
    succeeds([&](auto done) { query->findRoomWithBlock(counted(done, 1)); });

    query = VXIMQuery::query();
    query->orderByDescending("age");
    query->addAscendingOrder("id");
    query->setSkip(5);
    succeeds([&](auto done) { query->findUserWithBlock(counted(done, 0)); });
}

void ServicePage::tellAttachments() {
    const TemporaryFolder folder;
    std::ofstream(folder / "dot.png", std::ios::binary).write(kPicture, sizeof kPicture - 1);
    const auto message = VXIMMessage::messageWithImageFileAtPath((folder / "dot.png").string());
    succeeds([&](auto done) { alice->client->sendMessageToFriend(message, "bob", done); });
    EXPECT_TRUE(bob->hears("friend alice: " + message->attachmentUrl().value_or("")));
    EXPECT_TRUE(alice->hears("friend bob: " + message->attachmentUrl().value_or("")));
    resultOf<Value>([&](auto done) {
        bob->lastMessage->downloadAttachment((folder / "copy.png").string(), {}, done);
    });
}

void ServicePage::tellErrors() {
    isRefused([](auto done) { VXIMUser::userWithId("nobody")->fetchWithCompletion(done); });
    isRefused([&](auto done) { room->updateName(5, done); });
}

TEST_P(ServicePage, ShowsWhatHappens) {
    tellLive();
    tellSystemMessages();
    tellUsersAndFriends();
    tellGroups();
    tellRooms();
    tellPassengers();
    tellAttributes();
    tellHistory();
    tellSearches();
    tellAttachments();
    tellErrors();

    const std::string page = readServicePage();
    const auto examples = examplesIn(page);
    const auto happened = recorded(log());
    if (std::getenv("VEXIM_RECORD_SERVICE_PAGE")) {
        std::ofstream(VEXIM_SERVICE_PAGE, std::ios::binary) << pageWith(page, examples, happened);
        return;
    }
    const auto shown = documented(examples);
    for (std::size_t i = 0; i < std::min(shown.size(), happened.size()); ++i) {
        ASSERT_EQ(form(shown[i].second), form(happened[i].second)) << "example " << i;
    }
    EXPECT_EQ(shown.size(), happened.size());
}

INSTANTIATE_TEST_SUITE_P(Servers, ServicePage, ::testing::Values("Node2", "Node3", "Node4"),
                         serviceName);

}  // namespace
}  // namespace vexim::testing
