// Commands for friends, groups, rooms and their members.

#include <stdexcept>

#include "ResourceCommands.h"
#include "ResourceOperation.h"

namespace {

using vexim::Array;
using vexim::ErrorPtr;
using vexim::Value;

const WordSpec kFriend{"FRIEND", "The friend's user id"};
const WordSpec kGroup{"GROUP", "The group's id"};
const WordSpec kRoom{"ROOM", "The room's id"};
const WordSpec kName{"NAME", "The name, in quotes if it contains spaces"};
const WordSpec kMembers{"MEMBER", "User ids of its members", Count::Any};
const WordSpec kUsers{"MEMBER", "Their user ids", Count::Some};

/// Calls `act` with the group or the room that the command names.
template <class Act>
void onPlace(const Given& given, Act act) {
    if (given.peer.groupId) return act(VXIMGroup::groupWithId(*given.peer.groupId));
    if (given.peer.roomId) return act(VXIMRoom::roomWithId(*given.peer.roomId));
    throw std::invalid_argument("say which with --group or --room");
}

std::vector<CommandSpec> friendCommands() {
    return {
        {"friends list",
         "List your friends",
         {},
         {},
         running(Acts::ForAUser,
                 [](const Given&, const std::string& me, Done done) {
                     auto user = VXIMUser::userWithId(me);
                     user->fetchFriendsWithDetail(
                         true, then(done, [user] { return recordsOf(user->friends()); }));
                 })},
        {"friends show",
         "Show one friend",
         {kFriend},
         {},
         running(Acts::ForAUser,
                 [](const Given& given, const std::string& me, Done done) {
                     VXIMUser::userWithId(me)->getFriendInfo(
                         given.one("FRIEND"), [done](const auto& info, ErrorPtr error) {
                             done(info ? recordOf(*info) : Value(), error);
                         });
                 })},
        {"friends add",
         "Make somebody a friend",
         {kFriend},
         {},
         running(Acts::ForAUser,
                 [](const Given& given, const std::string& me, Done done) {
                     VXIMUser::userWithId(me)->addFriendWithUser(
                         given.one("FRIEND"),
                         [done](const Value&, ErrorPtr error) { done({}, error); });
                 })},
        {"friends remove",
         "End a friendship",
         {kFriend},
         {},
         running(Acts::ForAUser,
                 [](const Given& given, const std::string& me, Done done) {
                     VXIMUser::userWithId(me)->deleteFriend(given.one("FRIEND"), onlySuccess(done));
                 })},
    };
}

std::vector<CommandSpec> groupCommands() {
    return {
        {"groups list",
         "List your groups",
         {},
         {},
         running(Acts::ForAUser,
                 [](const Given&, const std::string& me, Done done) {
                     auto user = VXIMUser::userWithId(me);
                     user->fetchGroupsWithDetail(
                         true, then(done, [user] { return recordsOf(user->groups()); }));
                 })},
        {"groups create",
         "Create a group that you own, and print its id",
         {kName, kMembers},
         {},
         running(Acts::ForAUser,
                 [](const Given& given, const std::string& me, Done done) {
                     auto group = VXIMGroup::groupWithName(
                         given.one("NAME"), Array::fromStrings(given.all("MEMBER")), me);
                     group->createWithBlock(then(done, [group] { return group->groupId(); }));
                 })},
        {"groups show",
         "Show one group",
         {kGroup},
         {},
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     auto group = VXIMGroup::groupWithId(given.one("GROUP"));
                     group->fetchWithBlock(then(done, [group] { return recordOf(*group); }));
                 })},
        {"groups rename",
         "Rename a group",
         {kGroup, kName},
         {},
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     VXIMGroup::groupWithId(given.one("GROUP"))
                         ->updateName(given.one("NAME"), onlySuccess(done));
                 })},
        {"groups owner",
         "Change a group's owner",
         {kGroup, {"OWNER", "The new owner's user id"}},
         {},
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     VXIMGroup::groupWithId(given.one("GROUP"))
                         ->changeOwner(given.one("OWNER"), onlySuccess(done));
                 })},
        {"groups delete",
         "Delete a group, for everybody",
         {kGroup},
         {},
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     VXIMGroup::groupWithId(given.one("GROUP"))->deleteWithBlock(onlySuccess(done));
                 })},
    };
}

std::vector<CommandSpec> roomCommands() {
    return {
        {"rooms list",
         "List your rooms",
         {},
         {},
         running(Acts::ForAUser,
                 [](const Given&, const std::string& me, Done done) {
                     auto user = VXIMUser::userWithId(me);
                     user->fetchRoomsWithDetail(
                         true, then(done, [user] {
                             Array records;
                             for (const auto& room : user->rooms().value_or(Array())) {
                                 if (const auto object = room.as<VXIMRoom>())
                                     records.append(recordOf(*object));
                             }
                             return Value(records);
                         }));
                 })},
        {"rooms create",
         "Create a room, and print its id",
         {kName, kMembers},
         {},
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     VXIMRoom::createWithName(
                         given.one("NAME"), Array::fromStrings(given.all("MEMBER")),
                         [done](const auto& room, ErrorPtr error) {
                             then(done, [room] { return room->roomId(); })(room != nullptr, error);
                         });
                 })},
        {"rooms show",
         "Show one room",
         {kRoom},
         {},
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     auto room = VXIMRoom::roomWithId(given.one("ROOM"));
                     room->fetchWithBlock(then(done, [room] { return recordOf(*room); }));
                 })},
        {"rooms rename",
         "Rename a room",
         {kRoom, kName},
         {},
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     VXIMRoom::roomWithId(given.one("ROOM"))
                         ->updateName(given.one("NAME"), onlySuccess(done));
                 })},
        {"rooms delete",
         "Delete a room, for everybody",
         {kRoom},
         {},
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     VXIMRoom::roomWithId(given.one("ROOM"))->deleteWithBlock(onlySuccess(done));
                 })},
    };
}

std::vector<CommandSpec> memberCommands() {
    const std::vector<OptionSpec> places = {{"--group", "ID", "Of this group"},
                                            {"--room", "ID", "Of this room"}};
    return {
        {"members list",
         "List them",
         {},
         places,
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     onPlace(given, [&](auto place) {
                         place->fetchWithBlock(
                             then(done, [place] { return Value(place->members()); }));
                     });
                 })},
        {"members add",
         "Add users",
         {kUsers},
         places,
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     onPlace(given, [&](auto place) {
                         place->addMembers(Array::fromStrings(given.all("MEMBER")),
                                           onlySuccess(done));
                     });
                 })},
        {"members remove",
         "Remove users",
         {kUsers},
         places,
         running(Acts::ForNobody,
                 [](const Given& given, const std::string&, Done done) {
                     onPlace(given, [&](auto place) {
                         place->removeMembers(Array::fromStrings(given.all("MEMBER")),
                                              onlySuccess(done));
                     });
                 })},
    };
}

}  // namespace

std::vector<CommandSpec> peopleCommands() {
    std::vector<CommandSpec> all;
    for (auto& commands : {friendCommands(), groupCommands(), roomCommands(), memberCommands()})
        all.insert(all.end(), commands.begin(), commands.end());
    return all;
}
