#include "Places.h"

#include <algorithm>
#include <stdexcept>

#include "../Explain.h"
#include "Text.h"

namespace chat {
namespace {

using vexim::Array;
using vexim::ErrorPtr;
using vexim::Value;
using Words = std::vector<std::string>;

const char* word(Kind kind) {
    return kind == Kind::Group ? "group" : kind == Kind::Room ? "room" : "friend";
}

[[noreturn]] void misused(const Command& command) {
    std::string usage;
    for (const auto& form : commandForms()) {
        if (command.name != form.name) continue;
        if (!command.words.empty() && command.words.front() != form.action) continue;
        usage += (usage.empty() ? "/" : ", /") + std::string(form.name);
        for (const char* part : {form.action, form.arguments}) {
            if (*part != '\0') usage += " " + std::string(part);
        }
    }
    throw std::invalid_argument("usage: " + (usage.empty() ? "see /help" : usage));
}

std::string joined(const Words& words) {
    std::string text;
    for (const auto& one : words) text += (text.empty() ? "" : ", ") + one;
    return text;
}

Words idsOf(const Value& list) {
    const auto* array = list.asArray();
    return array ? array->strings() : Words();
}

// The differences between groups and rooms.
template <class Place>
struct Trait;
template <>
struct Trait<VXIMGroup> {
    static auto withId(const std::string& id) { return VXIMGroup::groupWithId(id); }
    static Value id(const VXIMGroup& group) { return group.groupId(); }
    static std::string owner(const VXIMGroup& group) {
        return group.owner().asString().value_or("");
    }
    static void create(const std::string& me, const std::string& name, const Array& members,
                       VXIMGroupCompletion block) {
        VXIMGroup::createWithOwner(me, name, members, std::move(block));
    }
};
template <>
struct Trait<VXIMRoom> {
    static auto withId(const std::string& id) { return VXIMRoom::roomWithId(id); }
    static Value id(const VXIMRoom& room) { return room.roomId(); }
    static std::string owner(const VXIMRoom&) { return ""; }
    static void create(const std::string&, const std::string& name, const Array& members,
                       VXIMRoomCompletion block) {
        VXIMRoom::createWithName(name, members, std::move(block));
    }
};

}  // namespace

VXIMBooleanCompletion Places::telling(std::string done, std::function<void()> next) {
    return [this, done = std::move(done), next = std::move(next)](bool succeeded,
                                                                  const ErrorPtr& error) {
        if (!succeeded)
            return roster_.notice("that failed: " + explain(error), Session::now(), true);
        if (next) next();
        roster_.notice(done, Session::now());
    };
}

Address Places::currentOf(Kind kind) const {
    const auto& address = roster_.current().address;
    if (address.kind != kind)
        throw std::invalid_argument("this is not a " + std::string(word(kind)) +
                                    ": switch to one first");
    return address;
}

void Places::show(Kind kind, const std::string& idOrName) {
    Conversation* chosen = roster_.find({kind, idOrName});
    for (const auto& one : roster_.all()) {
        if (!chosen && one->address.kind == kind && one->title == idOrName) chosen = one.get();
    }
    roster_.select(chosen ? *chosen : roster_.open({kind, idOrName}));
}

/// Like `show`, but reports an id or a name that is not in the list, because the service silently
/// drops messages to it.
void Places::talkTo(Kind kind, const std::string& idOrName) {
    const auto known = roster_.all().size();
    show(kind, idOrName);
    if (roster_.all().size() == known || session_.me().empty()) return;
    roster_.current().gone = true;
    std::string text = idOrName + " is not in your list; Tab completes what is";
    if (kind == Kind::Friend) text += ", /friend add makes friends";
    if (kind == Kind::Room) text += ", /room join enters a room";
    roster_.notice(std::move(text), Session::now(), true);
}

bool Places::obey(const Command& command) {
    if (command.name == "friend") {
        obeyFriend(command);
    } else if (command.name == "group") {
        obeyPlace<VXIMGroup>(Kind::Group, command);
    } else if (command.name == "room") {
        obeyPlace<VXIMRoom>(Kind::Room, command);
    } else {
        return false;
    }
    return true;
}

void Places::obeyFriend(const Command& command) {
    const auto& words = command.words;
    if (words.size() == 1) return talkTo(Kind::Friend, words[0]);
    if (words.size() != 2 || session_.me().empty()) misused(command);
    const auto user = VXIMUser::userWithId(session_.me());
    const std::string id = words[1];
    if (words[0] == "add") {
        const auto done = telling("you and " + id + " are friends", [this, id] {
            show(Kind::Friend, id);
            session_.refresh();
        });
        return user->addFriendWithUser(
            id, [done](const Value&, const ErrorPtr& error) { done(!error, error); });
    }
    if (words[0] != "remove") misused(command);
    user->deleteFriend(id, telling("you and " + id + " are no longer friends", [this, id] {
                           roster_.close({Kind::Friend, id});
                       }));
}

template <class Place>
void Places::found(Kind kind, const Command& command) {
    Words members(command.words.begin() + 2, command.words.end());
    members.insert(members.begin(), session_.me());
    const std::string name = command.words[1];
    Trait<Place>::create(
        session_.me(), name, Array::fromStrings(members),
        [this, kind, name](const std::shared_ptr<Place>& place, const ErrorPtr& error) {
            if (!place)
                return roster_.notice("that failed: " + explain(error), Session::now(), true);
            auto& conversation = roster_.open({kind, Trait<Place>::id(*place).description()});
            roster_.rename(conversation, name);
            roster_.select(conversation);
            roster_.notice(
                "this " + std::string(word(kind)) + " is new; its id is " + conversation.address.id,
                Session::now());
            session_.refresh();
        });
}

template <class Place>
void Places::listMembers(const Address& address) {
    const auto place = Trait<Place>::withId(address.id);
    place->fetchWithBlock([this, place](bool succeeded, const ErrorPtr& error) {
        if (!succeeded)
            return roster_.notice("that failed: " + explain(error), Session::now(), true);
        const std::string owner = Trait<Place>::owner(*place);
        roster_.notice("members: " + joined(idsOf(place->members())) +
                           (owner.empty() ? "" : "; it belongs to " + owner),
                       Session::now());
    });
}

template <class Place>
void Places::obeyPlace(Kind kind, const Command& command) {
    const auto& words = command.words;
    if (words.empty() || session_.me().empty()) misused(command);
    const std::string& action = words[0];
    const Words rest(words.begin() + 1, words.end());
    const auto refresh = [this] { session_.refresh(); };

    if (action == "new" && !rest.empty()) return found<Place>(kind, command);
    if (action == "join" && kind == Kind::Room && rest.size() == 1) {
        const auto enter = [this, id = rest[0]] {
            show(Kind::Room, id);
            session_.refresh();
        };
        return Trait<Place>::withId(rest[0])->addMembers(Array{session_.me()},
                                                         telling("you are in", enter));
    }
    const bool isAction = std::any_of(
        commandForms().begin(), commandForms().end(),
        [&](const auto& form) { return command.name == form.name && action == form.action; });
    if (!isAction) return rest.empty() ? talkTo(kind, action) : misused(command);

    const Address address = currentOf(kind);
    const auto place = Trait<Place>::withId(address.id);
    const auto goAway = [this, address] { roster_.close(address); };
    if (action == "add" && !rest.empty()) {
        place->addMembers(Array::fromStrings(rest), telling("added: " + joined(rest), refresh));
    } else if (action == "remove" && !rest.empty()) {
        place->removeMembers(Array::fromStrings(rest),
                             telling("removed: " + joined(rest), refresh));
    } else if (action == "leave" && rest.empty()) {
        place->removeMembers(Array{session_.me()},
                             telling("you have left " + roster_.current().title, goAway));
    } else if (action == "members" && rest.empty()) {
        listMembers<Place>(address);
    } else if (action == "rename" && rest.size() == 1) {
        place->updateName(rest[0], telling("its name is now " + rest[0], refresh));
    } else if (action == "delete" && rest.empty()) {
        place->deleteWithBlock(telling("deleted: " + roster_.current().title, goAway));
    } else {
        misused(command);
    }
}

}  // namespace chat
