// Users and friends, groups, rooms, attributes, searches. Only the current user needs a login; the
// rest works without a live connection.

#include <VexIMLib/VexIMLib.h>

#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "Waiting.h"

namespace {

void printFriends(const std::shared_ptr<VXIMUser>& user, const VXIMBooleanCompletion& done) {
    // [friends]
    user->fetchFriendsWithDetail(true, [user, done](bool succeeded, vexim::ErrorPtr error) {
        if (user->friends()) {
            for (const auto& info : *user->friends()) {
                std::cout << info->uid().description()
                          << (info->online() ? " is online\n" : " is offline\n");
            }
        }
        done(succeeded, error);
    });
    // [/friends]
}

bool readsAndWritesAttributes(const std::shared_ptr<VXIMUser>& user) {
    std::optional<std::string> mood;
    // [attributes]
    user->updateAttributes({{"mood", "fine"}}, [user, &mood](bool succeeded, vexim::ErrorPtr) {
        if (!succeeded) return;
        user->getAttributeForKey(
            "mood", [&mood](vexim::Value value, vexim::ErrorPtr) { mood = value.asString(); });
    });
    // [/attributes]
    return becomesTrue([&] { return mood == "fine"; });
}

bool foundsAGroup() {
    std::shared_ptr<VXIMGroup> group;
    // [group]
    VXIMGroup::createWithOwner(
        "alice", "Reading circle", vexim::Array{"alice"}, [&group](auto created, vexim::ErrorPtr) {
            if (created)
                created->addMembers({"bob"}, [&group, created](bool added, vexim::ErrorPtr) {
                    group = added ? created : nullptr;
                });
        });
    // [/group]
    if (!becomesTrue([&] { return group != nullptr; })) return false;
    return succeeds([&](const VXIMBooleanCompletion& done) {
               // [rename]
               group->updateName("Book club", done);
               // [/rename]
           }) &&
           succeeds([&](const VXIMBooleanCompletion& done) { group->deleteWithBlock(done); });
}

bool opensARoom() {
    std::shared_ptr<VXIMRoom> room;
    // [room]
    VXIMRoom::createWithName("Lounge", vexim::Array{"alice", "bob"},
                             [&room](auto created, vexim::ErrorPtr) { room = created; });
    // [/room]
    return becomesTrue([&] { return room != nullptr; }) &&
           succeeds([&](auto done) { room->deleteWithBlock(done); });
}

bool welcomesAVisitor() {
    std::shared_ptr<VXIMPassenger> visitor;
    // [passenger]
    VXIMPassenger::createOrUpdatePassengerWithAttributes(
        {{"name", "Visitor"}},
        [&visitor](auto passenger, vexim::ErrorPtr) { visitor = passenger; });
    // [/passenger]
    return becomesTrue([&] { return visitor != nullptr; });
}

bool findsBob() {
    std::string found;
    // [query]
    auto query = VXIMQuery::query();
    query->whereAttribute("city", "Oslo");
    query->orderByAscending("nick");
    query->setLimit(10);
    query->findUserWithBlock([&found](const auto& users, vexim::ErrorPtr) {
        if (!users) return;  // an error, or an answer that is not a list
        for (const auto& user : *users) found += user->uid().description();
    });
    // [/query]
    return becomesTrue([&] { return found == "bob"; });
}

}  // namespace

int main(int, char** arguments) {
    const auto client = demoClient(arguments[1]);
    if (!succeeds([&](auto done) { client->loginWithUserId("alice", done); })) return 1;
    const auto user = client->currentUser();
    const bool done = succeeds([&](auto completion) { printFriends(user, completion); }) &&
                      readsAndWritesAttributes(user) && foundsAGroup() && opensARoom() &&
                      welcomesAVisitor() && findsBob();
    return done ? 0 : 1;
}
