// What comes over the connection and over REST: lists, messages, history.

#include <algorithm>
#include <set>

#include "../Explain.h"
#include "../Send.h"
#include "Files.h"
#include "Session.h"
#include "Text.h"

namespace chat {
namespace {

using vexim::ErrorPtr;

std::vector<std::string> idsOf(const vexim::Value& list) {
    const auto* array = list.asArray();
    return array ? array->strings() : std::vector<std::string>();
}

/// A name, when the record has one.
std::string nameOf(const vexim::Value& name) { return name.asString().value_or(""); }

/// The service has answered, and its answer is no.
bool isRefusal(const ErrorPtr& error) { return error && error->domain() == VXErrorDomain && error->code() != 100; }

}  // namespace

Entry Session::entryOf(VXIMMessage& message) {
    Entry entry;
    entry.time = message.sendTimestamp() > 0 ? message.sendTimestamp() : now();
    entry.sender = message.sender()->userId().description();
    entry.isOwn = entry.sender == me_;
    entry.delivery = entry.isOwn ? Delivery::Delivered : Delivery::Received;
    if (message.mediaType() == VXIMMessageMediaTypeText) {
        entry.text = message.text().value_or("");
    } else {
        entry.text = message.attachmentUrl().value_or("");
        entry.file = File{mediaName(message.mediaType(), fileNameFor(entry.text)), "", 0, std::nullopt};
    }
    return entry;
}

void Session::receive(const Address& address, VXIMMessage& message) {
    if (roster_.find(address) == nullptr) refresh();  // somebody has taken us in
    roster_.receive(address, entryOf(message));
}

void Session::clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&, const std::shared_ptr<VXIMMessage>& message,
                                                const std::shared_ptr<VXIMFriendInfo>& from) {
    receive({Kind::Friend, from->uid().description()}, *message);
}

void Session::clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>&, const std::shared_ptr<VXIMMessage>& message,
                                               const std::shared_ptr<VXIMGroup>& from) {
    receive({Kind::Group, from->groupId().description()}, *message);
}

void Session::clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>&, const std::shared_ptr<VXIMMessage>& message,
                                              const std::shared_ptr<VXIMRoom>& from) {
    receive({Kind::Room, from->roomId().description()}, *message);
}

void Session::clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>&, const std::shared_ptr<VXIMMessage>& message) {
    Entry entry = entryOf(*message);
    entry.sender = "system";
    roster_.receive({}, std::move(entry));
}

void Session::clientFriendDidOnline(const std::shared_ptr<VXIMClient>&, const std::shared_ptr<VXIMFriendInfo>& info) {
    roster_.open({Kind::Friend, info->uid().description()}).online = true;
}

void Session::clientFriendDidOffline(const std::shared_ptr<VXIMClient>&, const std::shared_ptr<VXIMFriendInfo>& info) {
    roster_.open({Kind::Friend, info->uid().description()}).online = false;
}

void Session::complain(const std::string& what, const ErrorPtr& error) {
    roster_.notice(what + ": " + harmlessLine(explain(error)), now(), true);
}

template <class Seen>
void Session::markGone(Kind kind, const Seen& seen) {
    for (const auto& conversation : roster_.all()) {
        if (conversation->address.kind == kind) conversation->gone = seen.count(conversation->address.id) == 0;
    }
}

void Session::refresh() {
    const auto user = client_->currentUser();
    if (!user || me_.empty()) return;
    user->fetchFriendsWithDetail(true, [this, user](bool succeeded, const ErrorPtr& error) {
        if (!succeeded) return complain("the friends could not be read", error);
        std::set<std::string> seen;
        for (const auto& info : user->friends().value_or(std::vector<std::shared_ptr<VXIMFriendInfo>>())) {
            auto& conversation = roster_.open({Kind::Friend, info->uid().description()});
            seen.insert(conversation.address.id);
            if (state_.isConnected()) conversation.online = info->online();
            catchUp(conversation, info->recentMessage());
        }
        markGone(Kind::Friend, seen);
    });
    user->fetchGroupsWithDetail(true, [this, user](bool succeeded, const ErrorPtr& error) {
        if (!succeeded) return complain("the groups could not be read", error);
        std::set<std::string> seen;
        for (const auto& group : user->groups().value_or(std::vector<std::shared_ptr<VXIMGroup>>())) {
            auto& conversation = roster_.open({Kind::Group, group->groupId().description()});
            seen.insert(conversation.address.id);
            conversation.members = idsOf(group->members());
            roster_.rename(conversation, nameOf(group->name()));
            catchUp(conversation, group->recentMessage());
        }
        markGone(Kind::Group, seen);
    });
    user->fetchRoomsWithDetail(true, [this, user](bool succeeded, const ErrorPtr& error) {
        if (!succeeded) return complain("the rooms could not be read", error);
        std::set<std::string> seen;
        for (const auto& value : user->rooms().value_or(vexim::Array())) {
            const auto room = value.as<VXIMRoom>();
            if (!room) continue;
            auto& conversation = roster_.open({Kind::Room, room->roomId().description()});
            seen.insert(conversation.address.id);
            conversation.members = idsOf(room->members());
            roster_.rename(conversation, nameOf(room->name()));
        }
        markGone(Kind::Room, seen);
    });
}

/// Reads the newest messages of a conversation that was read before, or that got one while the connection was down.
void Session::catchUp(Conversation& conversation, const std::shared_ptr<VXIMMessage>& recent) {
    const bool wasRead = conversation.older == Older::There || conversation.older == Older::Nothing;
    const bool missed = missedSince_ > 0 && recent && recent->sendTimestamp() > missedSince_;
    const bool isLookedAt = &conversation == &roster_.current();
    auto request = Conversation::newestPage(now());
    if (missedSince_ > 0) request.newsAfter = missedSince_;
    if (wasRead || missed || isLookedAt) load(conversation.address, request, &Conversation::takeNewest);
}

void Session::roomsMissed(double lostAt) {
    for (const auto& conversation : roster_.all()) {
        if (conversation->address.kind != Kind::Room || conversation->entries().empty()) continue;
        Entry notice;
        notice.isNotice = true;
        notice.time = now();
        notice.text = "not connected for " + std::to_string(std::max(1, static_cast<int>(notice.time - lostAt))) +
                      " s: what was said here meanwhile is not known";
        conversation->giveUp(lostAt, "the connection was lost");
        conversation->append(std::move(notice));
    }
}

void Session::askRoom(const Address& address, double handedBefore) {
    const auto room = VXIMRoom::roomWithId(address.id);
    room->fetchWithBlock([this, address, handedBefore](bool succeeded, const ErrorPtr& error) {
        auto* conversation = roster_.find(address);
        if (!conversation || (!succeeded && !isRefusal(error))) return;
        conversation->giveUp(handedBefore, "the service did not send it back");
        refresh();  // it may be that we are no longer in
    });
}

void Session::loadNewest(const Address& address) {
    auto* conversation = roster_.find(address);
    if (!conversation || conversation->older != Older::Unknown || me_.empty()) return;
    conversation->older = Older::Loading;
    load(address, Conversation::newestPage(now()), &Conversation::takeNewest);
}

void Session::loadOlder(const Address& address) {
    auto* conversation = roster_.find(address);
    if (!conversation || me_.empty()) return;
    if (conversation->older == Older::Unknown) return loadNewest(address);
    if (conversation->older != Older::There) return;
    conversation->older = Older::Loading;
    load(address, conversation->olderPage(), &Conversation::takeOlder);
}

void Session::load(const Address& address, const Conversation::Request& request, Took take) {
    const auto done = [this, address, request, take](const auto& messages, const ErrorPtr& error) {
        auto* conversation = roster_.find(address);
        if (!conversation) return;
        if (!messages) {
            if (conversation->older == Older::Loading) conversation->older = Older::There;
            if (isRefusal(error)) conversation->giveUp(request.judges, "the service does not know where to");
            return complain("the messages of " + harmlessLine(conversation->title) + " could not be read", error);
        }
        std::vector<Entry> page;
        for (const auto& message : *messages) page.push_back(entryOf(*message));
        const auto failed = conversation->failedCount();
        const int news = (conversation->*take)(request, std::move(page));
        if (conversation->failedCount() > failed) refresh();  // it may be that we are no longer in
        const bool isSeen = conversation == &roster_.current() && !conversation->anchor;
        if (!isSeen) conversation->unread += news;
        roster_.numberFiles(*conversation);
    };
    const double before = request.before > 0 ? request.before : now();
    if (address.kind == Kind::Group)
        return VXIMGroup::groupWithId(address.id)->getLatestMessagesBefore(before, request.limit, done);
    VXIMUser::userWithId(me_)->getLatestChatsWithFriend(address.id, before, request.limit, done);
}

}  // namespace chat
