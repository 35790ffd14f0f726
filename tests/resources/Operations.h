#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "VexIMLib/VexIMLib.h"
#include "support/Completions.h"
#include "support/Describe.h"

// Every operation of the resources by one name, each ending in one line of text: what its
// completion got.

namespace vexim::testing {

/// One object of each class, with some local state.
struct Resources {
    std::shared_ptr<VXIMUser> user =
        VXIMUser::initWithDictionary(dictionaryFrom(R"({"id":"u1","attributes":{"a":0,"b":2}})"));
    std::shared_ptr<VXIMGroup> group = VXIMGroup::groupWithDictionary(
        dictionaryFrom(R"({"id":"g1","members":["u1","u2","u1"],"attributes":{"a":0,"b":2}})"));
    std::shared_ptr<VXIMRoom> room = VXIMRoom::roomWithDictionary(dictionaryFrom(
        R"({"id":"r9","name":"old","members":["u1","u2","u1"],"attributes":{"a":0}})"));
    std::shared_ptr<VXIMPassenger> passenger = VXIMPassenger::passengerWithId("p1");

    std::string describe() const {
        return "user " + json(user->dictionaryRepresentation()) +
               list(" friends ", user->friends()) + list(" groups ", user->groups()) +
               (user->rooms() ? " rooms " + describeAll(*user->rooms()) : "") + "\ngroup " +
               json(group->dictionaryRepresentation()) + "\nroom " +
               json(room->dictionaryRepresentation()) + "\npassenger " +
               json(passenger->dictionaryRepresentation());
    }

    template <class T>
    static std::string list(const char* name,
                            const std::optional<std::vector<std::shared_ptr<T>>>& objects) {
        return objects ? name + describeAll(*objects) : "";
    }
    template <class List>
    static std::string describeAll(const List& elements) {
        std::string text;
        for (const auto& element : elements)
            text += (text.empty() ? "[" : ", ") + describeOne(element);
        return text.empty() ? "[]" : text + "]";
    }
    static std::string describeOne(const std::shared_ptr<VXIMFriendInfo>& info) {
        return info->uid().description() + (info->online() ? " online" : "");
    }
    static std::string describeOne(const std::shared_ptr<VXIMMessage>& message) {
        return testing::describe(*message);
    }
    template <std::derived_from<VXIMRuntimeObject> T>
    static std::string describeOne(const std::shared_ptr<T>& object) {
        return json(object->dictionaryRepresentation());
    }
    static std::string describeOne(const Value& value) {
        const auto room = value.as<VXIMRoom>();
        return room ? "room " + json(room->dictionaryRepresentation()) : json(value);
    }
};

/// Where an operation's completion reports, exactly once.
class Outcome {
public:
    VXIMBooleanCompletion boolean() {
        return once([this](bool succeeded, const ErrorPtr& error) {
            end(succeeded ? "yes" : "no", error);
        });
    }
    VXIMResultCompletion result() {
        return once([this](const Value& result, const ErrorPtr& error) {
            end(result.isData() ? "data " + std::string(result.asData()->view()) : json(result),
                error);
        });
    }
    /// For completions that get an object, or nullptr.
    template <class T>
    std::function<void(std::shared_ptr<T>, ErrorPtr)> object() {
        return once([this](const std::shared_ptr<T>& object, const ErrorPtr& error) {
            end(object ? Resources::describeOne(object) : "nil", error);
        });
    }
    /// For completions that get a list, or nullopt.
    template <class T>
    std::function<void(std::optional<std::vector<std::shared_ptr<T>>>, ErrorPtr)> objects() {
        return once([this](const std::optional<std::vector<std::shared_ptr<T>>>& objects,
                           const ErrorPtr& error) {
            end(objects ? Resources::describeAll(*objects) : "nil", error);
        });
    }

    bool hasEnded() const { return ended_; }
    const std::string& text() const { return text_; }
    const ErrorPtr& error() const { return error_; }

private:
    void end(const std::string& text, const ErrorPtr& error) {
        ended_ = true;
        error_ = error;
        text_ = (error ? text + ", " + describe(error) : text).substr(0, kLongest);
    }
    static constexpr std::size_t kLongest = 1 << 16;  // a test keeps many
    bool ended_ = false;
    std::string text_;
    ErrorPtr error_;
};

struct Operation {
    const char* name;
    std::function<void(Resources&, Outcome&)> start;
};

/// All of them, once.
inline const std::vector<Operation>& allOperations() {
    using R = Resources;
    using O = Outcome;
    static const Dictionary some{{"a", 1}, {"c", 3}};
    static const std::vector<Operation> operations = {
        {"user fetch", [](R& r, O& o) { r.user->fetchWithCompletion(o.boolean()); }},
        {"user friends", [](R& r, O& o) { r.user->fetchFriendsWithDetail(false, o.boolean()); }},
        {"user friends in detail",
         [](R& r, O& o) { r.user->fetchFriendsWithDetail(true, o.boolean()); }},
        {"user groups", [](R& r, O& o) { r.user->fetchGroupsWithDetail(false, o.boolean()); }},
        {"user groups in detail",
         [](R& r, O& o) { r.user->fetchGroupsWithDetail(true, o.boolean()); }},
        {"user rooms", [](R& r, O& o) { r.user->fetchRoomsWithDetail(false, o.boolean()); }},
        {"user rooms in detail",
         [](R& r, O& o) { r.user->fetchRoomsWithDetail(true, o.boolean()); }},
        {"user add friend", [](R& r, O& o) { r.user->addFriendWithUser("u2", o.result()); }},
        {"user friend info",
         [](R& r, O& o) { r.user->getFriendInfo("u2", o.object<VXIMFriendInfo>()); }},
        {"user delete friend", [](R& r, O& o) { r.user->deleteFriend("u2", o.boolean()); }},
        {"user history",
         [](R& r, O& o) {
             r.user->getLatestChatsWithFriend("u2", 1.5, 20, o.objects<VXIMMessage>());
         }},
        {"user update attributes", [](R& r, O& o) { r.user->updateAttributes(some, o.boolean()); }},
        {"user replace attributes",
         [](R& r, O& o) { r.user->replaceAttributes(some, o.boolean()); }},
        {"user fetch attributes",
         [](R& r, O& o) { r.user->fetchAttributesWithCompletion(o.result()); }},
        {"user get attribute", [](R& r, O& o) { r.user->getAttributeForKey("a", o.result()); }},
        {"user delete attributes",
         [](R& r, O& o) { r.user->deleteAttributesWithCompletion(o.boolean()); }},
        {"group create",
         [](R&, O& o) {
             VXIMGroup::createWithOwner("u1", "Team", vexim::Array{"u2"}, o.object<VXIMGroup>());
         }},
        {"group create without members",
         [](R&, O& o) { VXIMGroup::createWithOwner("u1", "Team", o.object<VXIMGroup>()); }},
        {"group fetch", [](R& r, O& o) { r.group->fetchWithBlock(o.boolean()); }},
        {"group history",
         [](R& r, O& o) {
             r.group->getLatestMessagesBefore(1450000000.5, 5, o.objects<VXIMMessage>());
         }},
        {"group owner", [](R& r, O& o) { r.group->changeOwner("u2", o.boolean()); }},
        {"group update", [](R& r, O& o) { r.group->updateWithAttributes(some, o.boolean()); }},
        {"group add members",
         [](R& r, O& o) {
             r.group->addMembers({"u2", "u3"}, o.boolean());
         }},
        {"group remove members", [](R& r, O& o) { r.group->removeMembers({"u1"}, o.boolean()); }},
        {"group rename", [](R& r, O& o) { r.group->updateName("Team", o.boolean()); }},
        {"group delete", [](R& r, O& o) { r.group->deleteWithBlock(o.boolean()); }},
        {"group update attributes",
         [](R& r, O& o) { r.group->updateAttributes(some, o.boolean()); }},
        {"group replace attributes",
         [](R& r, O& o) { r.group->replaceAttributes(some, o.boolean()); }},
        {"group fetch attributes",
         [](R& r, O& o) { r.group->fetchAttributesWithCompletion(o.result()); }},
        {"group get attribute", [](R& r, O& o) { r.group->getAttributeForKey("a", o.result()); }},
        {"group delete attributes",
         [](R& r, O& o) { r.group->deleteAttributesWithCompletion(o.boolean()); }},
        {"room create",
         [](R&, O& o) {
             VXIMRoom::createWithName("Hall", vexim::Array{"u2"}, o.object<VXIMRoom>());
         }},
        {"room create without members",
         [](R&, O& o) { VXIMRoom::createWithName("Hall", o.object<VXIMRoom>()); }},
        {"room fetch", [](R& r, O& o) { r.room->fetchWithBlock(o.boolean()); }},
        {"room rename", [](R& r, O& o) { r.room->updateName("new", o.boolean()); }},
        {"room add members",
         [](R& r, O& o) {
             r.room->addMembers({"u2", "u3"}, o.boolean());
         }},
        {"room remove members", [](R& r, O& o) { r.room->removeMembers({"u1"}, o.boolean()); }},
        {"room delete", [](R& r, O& o) { r.room->deleteWithBlock(o.boolean()); }},
        {"room update attributes", [](R& r, O& o) { r.room->updateAttributes(some, o.boolean()); }},
        {"room replace attributes",
         [](R& r, O& o) { r.room->replaceAttributes(some, o.boolean()); }},
        {"room fetch attributes",
         [](R& r, O& o) { r.room->fetchAttributesWithCompletion(o.result()); }},
        {"room get attribute", [](R& r, O& o) { r.room->getAttributeForKey("a", o.result()); }},
        {"room delete attributes",
         [](R& r, O& o) { r.room->deleteAttributesWithCompletion(o.boolean()); }},
        {"passenger create",
         [](R&, O& o) {
             VXIMPassenger::createOrUpdatePassengerWithAttributes(some, o.object<VXIMPassenger>());
         }},
        {"passenger update",
         [](R& r, O& o) { r.passenger->updatePassengerAttributes(some, o.boolean()); }},
        {"passenger fetch", [](R& r, O& o) { r.passenger->fetchWithCompletion(o.boolean()); }},
        {"passenger history",
         [](R& r, O& o) {
             r.passenger->getHistoryMessagesWithUser("u1", 1450000000.5, 0,
                                                     o.objects<VXIMMessage>());
         }},
        {"find users",
         [](R&, O& o) { VXIMQuery::query()->findUserWithBlock(o.objects<VXIMUser>()); }},
        {"find groups",
         [](R&, O& o) { VXIMQuery::query()->findGroupWithBlock(o.objects<VXIMGroup>()); }},
        {"find rooms",
         [](R&, O& o) { VXIMQuery::query()->findRoomWithBlock(o.objects<VXIMRoom>()); }},
    };
    return operations;
}

}  // namespace vexim::testing
