#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Testing/FakeService.h"
#include "VexIMLib/Testing/internal/ServiceError.h"

namespace vexim::testing::fake {

/// The time of the shared clock, in milliseconds since 1970.
std::int64_t nowMillis();

struct Record {
    std::string id;
    Dictionary attributes;  // of a passenger: its fields
    std::int64_t created = nowMillis();
    std::int64_t updated = created;
};

struct Friendship {
    std::int64_t since;
    std::string from;
    std::string to;
};

struct Person : Record {
    FakeService::User credentials;
    std::vector<std::pair<std::string, Friendship>> friends;  // by the other's id, the oldest first

    const Friendship* friendshipWith(std::string_view other) const;
};

/// A group or a room.
struct Place : Record {
    std::string owner;  // of a group
    std::string name;   // of a room
    std::vector<std::string> members;
    Dictionary fields;  // of a group, besides those that the service knows

    bool has(std::string_view member) const;
};

/// Checks a new record's id.
void mustBeNewId(std::string_view id, bool isTaken);

/// Records of one kind, in the order in which they were made. A test has few.
template <class T>
class Table {
public:
    explicit Table(const Refusal& missing) : missing_(&missing) {}

    T* find(std::string_view id) {
        for (T& record : records_) {
            if (record.id == id) return &record;
        }
        return nullptr;
    }
    T& get(std::string_view id) {
        T* const record = find(id);
        must(record != nullptr, *missing_);
        return *record;
    }
    T& add(T record) {
        mustBeNewId(record.id, find(record.id) != nullptr);
        return records_.emplace_back(std::move(record));
    }
    bool remove(std::string_view id) {
        return std::erase_if(records_, [&](const T& record) { return record.id == id; }) > 0;
    }
    auto begin() { return records_.begin(); }
    auto end() { return records_.end(); }

private:
    std::list<T> records_;
    const Refusal* missing_;
};

/// Everything the service knows. Nothing here speaks HTTP or Socket.IO.
class Store {
public:
    Table<Person> users{errors::unknownUser};
    Table<Place> groups{errors::unknownGroup};
    Table<Place> rooms{errors::unknownRoom};
    Table<Record> passengers{errors::unknownPassenger};

    /// Two friends who share a group and a room.
    void seed();

    void addUser(FakeService::User user);
    /// Does nothing if they already are friends.
    void befriend(std::string_view from, std::string_view to);
    void unfriend(std::string_view one, std::string_view other);
    /// Makes an id if the given one is empty. The owner becomes a member.
    Place& addGroup(Place group);
    Place& addRoom(Place room);
    Record& addPassenger(std::string id, Dictionary fields);
    /// Users who already are members are not added again.
    void addMembers(Place& place, const std::vector<std::string>& members);

    /// Where the messages between two people, or those of one group, are kept.
    static std::string between(std::string_view one, std::string_view other);
    static std::string inGroup(std::string_view group);
    /// Keeps a message in the order of its "ts".
    void remember(const std::string& where, const Dictionary& message);
    /// At most `limit` messages with a "ts" below `before`, the newest first.
    std::vector<Dictionary> latest(const std::string& where, double before,
                                   std::size_t limit) const;
    void forget(const std::string& where) { conversations_.erase(where); }

    /// `prefix` and `digits` hexadecimal digits; never the same id twice.
    std::string newId(std::string_view prefix, int digits = 16);

private:
    std::map<std::string, std::vector<Dictionary>> conversations_;
    std::uint64_t lastId_ = 0;
};

}  // namespace vexim::testing::fake
