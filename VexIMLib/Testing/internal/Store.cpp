#include "VexIMLib/Testing/internal/Store.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

#include "VexIMLib/Foundation/Clock.h"

namespace vexim::testing::fake {

std::int64_t nowMillis() { return std::llround(Clock::shared()->wallTime() * 1000); }

const Friendship* Person::friendshipWith(std::string_view other) const {
    const auto found =
        std::ranges::find(friends, other, &std::pair<std::string, Friendship>::first);
    return found == friends.end() ? nullptr : &found->second;
}

bool Place::has(std::string_view member) const {
    return std::ranges::find(members, member) != members.end();
}

void mustBeNewId(std::string_view id, bool isTaken) {
    const bool isFit = !id.empty() && id.size() <= 64 && std::ranges::all_of(id, [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) ||
               std::string_view("._~@-").find(c) != std::string_view::npos;
    });
    must(isFit, errors::invalidValue, sentences::notId);
    must(!isTaken, errors::invalidValue, "This id is already in use.");
}

void Store::seed() {
    const auto user = [&](const char* id, const char* number, Dictionary attributes) {
        const std::string name = id;
        addUser({.id = name,
                 .username = name,
                 .password = name + "-secret",
                 .phone = "+15550" + std::string(number),
                 .smsCode = number,
                 .oauth = {{"provider", "example"},
                           {"uid", name + "@example"},
                           {"token", name + "-token"}},
                 .attributes = std::move(attributes)});
    };
    user("alice", "100001", {{"nick", "Alice"}, {"city", "Lisbon"}, {"age", 31}});
    user("bob", "100002", {{"nick", "Bob"}, {"city", "Oslo"}, {"age", 29}});
    befriend("alice", "bob");
    Place group;
    group.id = "demo-group";
    group.owner = "alice";
    group.members = {"bob"};
    group.attributes = {{"name", "Demo group"}};
    addGroup(std::move(group));
    Place room;
    room.id = "demo-room";
    room.name = "Demo room";
    room.members = {"alice", "bob"};
    addRoom(std::move(room));
}

void Store::addUser(FakeService::User user) {
    Person person;
    person.id = user.id;
    person.attributes = user.attributes;
    person.credentials = std::move(user);
    users.add(std::move(person));
}

void Store::befriend(std::string_view from, std::string_view to) {
    Person& one = users.get(from);
    Person& other = users.get(to);
    must(&one != &other, errors::invalidValue, sentences::ownFriend);
    if (one.friendshipWith(to)) return;
    const Friendship friendship{nowMillis(), one.id, other.id};
    one.friends.emplace_back(other.id, friendship);
    other.friends.emplace_back(one.id, friendship);
}

void Store::unfriend(std::string_view one, std::string_view other) {
    const auto part = [&](std::string_view id, std::string_view from) {
        return std::erase_if(users.get(id).friends,
                             [&](const auto& each) { return each.first == from; }) > 0;
    };
    must(part(one, other), errors::notFriends);
    part(other, one);
}

Place& Store::addGroup(Place group) {
    if (group.id.empty()) group.id = newId("g");
    const auto members = std::exchange(group.members, {users.get(group.owner).id});
    addMembers(group, members);
    return groups.add(std::move(group));
}

Place& Store::addRoom(Place room) {
    if (room.id.empty()) room.id = newId("r");
    addMembers(room, std::exchange(room.members, {}));
    return rooms.add(std::move(room));
}

Record& Store::addPassenger(std::string id, Dictionary fields) {
    must(!users.find(id), errors::invalidValue, sentences::idOfUser);
    Record passenger;
    passenger.id = std::move(id);
    passenger.attributes = std::move(fields);
    return passengers.add(std::move(passenger));
}

void Store::addMembers(Place& place, const std::vector<std::string>& members) {
    for (const auto& member : members) users.get(member);  // all of them, or none
    for (const auto& member : members) {
        if (!place.has(member)) place.members.push_back(member);
    }
}

std::string Store::between(std::string_view one, std::string_view other) {
    return std::string(std::min(one, other)) + " " + std::string(std::max(one, other));
}

std::string Store::inGroup(std::string_view group) { return ":" + std::string(group); }

void Store::remember(const std::string& where, const Dictionary& message) {
    auto& messages = conversations_[where];
    const double ts = message.get("ts").doubleValue();
    const auto place = std::ranges::upper_bound(
        messages, ts, {}, [](const Dictionary& each) { return each.get("ts").doubleValue(); });
    messages.insert(place, message);
}

std::vector<Dictionary> Store::latest(const std::string& where, double before,
                                      std::size_t limit) const {
    std::vector<Dictionary> found;
    const auto messages = conversations_.find(where);
    if (messages == conversations_.end()) return found;
    for (auto each = messages->second.rbegin();
         each != messages->second.rend() && found.size() < limit; ++each) {
        if (each->get("ts").doubleValue() < before) found.push_back(*each);
    }
    return found;
}

std::string Store::newId(std::string_view prefix, int digits) {
    char text[40];
    std::snprintf(text, sizeof text, "%0*llx", digits, static_cast<unsigned long long>(++lastId_));
    return std::string(prefix) + text;
}

}  // namespace vexim::testing::fake
