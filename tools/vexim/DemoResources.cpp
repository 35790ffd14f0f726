#include <algorithm>

#include "Demo.h"
#include "Stage.h"

namespace {

using vexim::Array;
using vexim::Dictionary;
using vexim::Value;

void tellUser(Stage& stage) {
    const auto user = stage.alice->currentUser();
    const auto friends = Stage::flag([&](auto done) { user->fetchFriendsWithDetail(true, done); });
    if (stage.succeeds("alice fetches her friends", friends)) {
        const auto list = user->friends().value_or(std::vector<std::shared_ptr<VXIMFriendInfo>>());
        const bool bobIsOnline = std::ranges::any_of(
            list, [](const auto& info) { return info->uid() == Stage::kBob && info->online(); });
        stage.expectNow("bob is among them, online", bobIsOnline,
                        std::to_string(list.size()) + " friends");
    }
    stage.succeeds("alice sets an attribute of hers", Stage::flag([&](auto done) {
                       user->updateAttributes({{"mood", "fine"}}, done);
                   }));
    const auto mood = Stage::result([&](auto done) { user->getAttributeForKey("mood", done); });
    if (stage.succeeds("and reads it back", mood))
        stage.expectNow("it is the same", mood->result == "fine", mood->text());
}

void tellHistory(Stage& stage) {
    const auto now = vexim::Date::now().timeIntervalSince1970() + 1;
    const auto history = Stage::result([&](auto done) {
        stage.bob->currentUser()->getLatestChatsWithFriend(
            Stage::kAlice, now, 20, [done](const auto& messages, auto error) {
                Array texts;
                for (const auto& message :
                     messages.value_or(std::vector<std::shared_ptr<VXIMMessage>>())) {
                    texts.append(message->text().value_or(""));
                }
                done(texts, error);
            });
    });
    if (!stage.succeeds("bob reads his history with alice", history)) return;
    stage.expectNow("her first text is in it", history->result.asArray()->contains("hello, bob"),
                    history->text());
}

void tellGroup(Stage& stage) {
    auto group = VXIMGroup::groupWithName("Reading circle", Array{Stage::kAlice}, Stage::kAlice);
    if (!stage.succeeds("alice creates a group",
                        Stage::flag([&](auto done) { group->createWithBlock(done); })))
        return;
    stage.succeeds("she adds bob",
                   Stage::flag([&](auto done) { group->addMembers({Stage::kBob}, done); }));
    stage.succeeds("she renames it",
                   Stage::flag([&](auto done) { group->updateName("Book club", done); }));
    const auto copy = VXIMGroup::groupWithId(group->groupId());
    if (stage.succeeds("bob fetches it",
                       Stage::flag([&](auto done) { copy->fetchWithBlock(done); }))) {
        stage.expectNow("with its new name and both members",
                        copy->name() == "Book club" &&
                            copy->members() == Value(Array{Stage::kAlice, Stage::kBob}),
                        copy->description());
    }
    stage.succeeds("alice deletes it",
                   Stage::flag([&](auto done) { group->deleteWithBlock(done); }));
}

void tellRoomPassengerAndSearch(Stage& stage) {
    std::shared_ptr<VXIMRoom> room;
    const auto created = Stage::flag([&](auto done) {
        VXIMRoom::createWithName("Lounge", Array{Stage::kBob},
                                 [&room, done](const auto& made, auto error) {
                                     room = made;
                                     done(made != nullptr, error);
                                 });
    });
    if (stage.succeeds("bob creates a room", created)) {
        stage.succeeds("he renames it",
                       Stage::flag([&](auto done) { room->updateName("Lobby", done); }));
        stage.succeeds("he deletes it",
                       Stage::flag([&](auto done) { room->deleteWithBlock(done); }));
    }
    const auto passenger = Stage::flag([&](auto done) {
        VXIMPassenger::createOrUpdatePassengerWithAttributes(
            {{"name", "Visitor"}}, [done](const auto& made, auto error) {
                done(made != nullptr && !made->pid().isNilOrNull(), error);
            });
    });
    stage.succeeds("a passenger comes aboard", passenger);

    const auto query = VXIMQuery::query();
    query->whereAttribute("city", "Oslo");
    const auto found = Stage::result([&](auto done) {
        query->findUserWithBlock([done](const auto& users, auto error) {
            Array ids;
            for (const auto& user : users.value_or(std::vector<std::shared_ptr<VXIMUser>>()))
                ids.append(user->uid());
            done(ids, error);
        });
    });
    if (stage.succeeds("a search for users in Oslo", found)) {
        stage.expectNow("finds bob", found->result.asArray()->contains(Stage::kBob), found->text());
    }
}

}  // namespace

bool tellResources(Stage& stage) {
    stage.transcript.say("Friends, groups, rooms, attributes, history, searches");
    tellUser(stage);
    tellHistory(stage);
    tellGroup(stage);
    tellRoomPassengerAndSearch(stage);
    return true;
}
