// What the store and the service provide: messages and lists.

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <set>
#include <sstream>
#include <utility>

#include "../Attachment.h"
#include "../Explain.h"
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

/// The name in a record; empty if there is none.
std::string nameOf(const vexim::Value& name) { return name.asString().value_or(""); }

constexpr std::int32_t kPage = 100;
constexpr std::int32_t kMostListed = 10'000;
constexpr std::int32_t kMostFound = 20;
constexpr std::size_t kMostNames = 100;  // of friends, with one request each

double seconds(std::int64_t millis) { return static_cast<double>(millis) / 1000; }

Address addressOf(const VXIMConversationId& id) {
    switch (id.kind) {
        case VXIMConversationKindFriend: return {Kind::Friend, id.id};
        case VXIMConversationKindGroup: return {Kind::Group, id.id};
        case VXIMConversationKindRoom: return {Kind::Room, id.id};
        case VXIMConversationKindSystem: break;
    }
    return {};
}

Delivery deliveryOf(const VXIMStoredMessage& message, double now) {
    if (message.direction == VXIMStoredMessageIncoming) return Delivery::Received;
    switch (message.state) {
        case VXIMStoredMessageQueued: return Delivery::Waiting;
        case VXIMStoredMessageSending: return Delivery::Sending;
        case VXIMStoredMessageSent:
            return seconds(message.sentAtMillis) > now - kPatience ? Delivery::Handed
                                                                   : Delivery::Unconfirmed;
        case VXIMStoredMessageConfirmed: return Delivery::Delivered;
        case VXIMStoredMessageFailed: return Delivery::Failed;
    }
    return Delivery::Received;
}

std::string timeText(std::int64_t millis) {
    const auto time = static_cast<std::time_t>(millis / 1000);
    std::tm parts{};
    ::localtime_r(&time, &parts);
    std::ostringstream text;
    text << std::put_time(&parts, "%e %b %H:%M");
    return text.str();
}

}  // namespace

VXIMConversationId conversationOf(const Address& address) {
    switch (address.kind) {
        case Kind::Friend: return {VXIMConversationKindFriend, address.id};
        case Kind::Group: return {VXIMConversationKindGroup, address.id};
        case Kind::Room: return {VXIMConversationKindRoom, address.id};
        case Kind::Console: break;
    }
    return {VXIMConversationKindSystem, ""};
}

Entry Session::entryOf(const VXIMStoredMessage& message) const {
    Entry entry;
    entry.id = static_cast<std::uint64_t>(message.localId);
    entry.time = seconds(message.sentAtMillis);
    entry.isOwn = message.direction == VXIMStoredMessageOutgoing;
    entry.sender = message.sender;
    if (entry.isOwn && entry.sender.empty()) entry.sender = me_.empty() ? "me" : me_;
    if (message.conversation.kind == VXIMConversationKindSystem) entry.sender = "system";
    entry.delivery = deliveryOf(message, now());
    if (message.error) entry.failure = explain(message.error);
    if (!VXIMMessageMediaTypeIsAttachment(message.mediaType)) {
        entry.text = message.text();
    } else {
        entry.text = message.message()->attachmentUrl().value_or("");
        const std::string path =
            message.attachmentFiles.empty() ? "" : message.attachmentFiles.front();
        const auto attachment = attachmentOf(*message.message());
        entry.file = File{.kind = attachment.kind,
                          .name = attachment.name,
                          .path = entry.text.empty() ? path : ""};
    }
    return entry;
}

void Session::didOpenStore() {
    list_ = conversations_->store()->observeConversations(
        kMostListed,
        [this](const VXIMListChange<VXIMConversation>& change) { showList(change.list); });
    if (const auto damage = conversations_->store()->damage()) {
        roster_.notice("the store was damaged: " + std::to_string(damage->messagesSaved) +
                           " messages were saved, the old file is " + damage->setAsideAs,
                       now(), true);
    }
}

void Session::didCatchUp(const VXIMCaughtUp& caughtUp) {
    if (caughtUp.missedCount > 0) {
        roster_.notice("while you were away: " + std::to_string(caughtUp.missedCount) +
                           (caughtUp.missedCount == 1 ? " message" : " messages") +
                           "; Alt-A goes to them",
                       now());
    }
    if (caughtUp.error) complain("not all histories could be read", caughtUp.error);
    for (const auto& [address, shown] : shown_) {
        if (shown.observation) showGaps(address);
    }
}

void Session::showList(const std::vector<VXIMConversation>& list) {
    bool isNew = false;
    for (const auto& one : list) {
        const Address address = addressOf(one.id);
        const bool isKnown = roster_.find(address) != nullptr;
        if (!isKnown && roster_.wasClosed(address) && one.unreadCount == 0) continue;
        roster_.setUnread(roster_.open(address), static_cast<int>(one.unreadCount));
        shown_[address].unread = one.unreadCount;
        isNew = isNew || !isKnown;
    }
    // somebody has added the user to a group or a room
    if (isNew && state_.isConnected()) refresh();
}

void Session::look(Conversation& conversation) {
    const auto store = conversations_->store();
    if (!store) return;
    const Address address = conversation.address;
    auto& shown = shown_[address];
    if (shown.unread > 0 && roster_.isRead(conversation)) {
        shown.unread = 0;
        store->markRead(conversationOf(address), std::nullopt, nullptr);
    }
    if (shown.observation) return;
    shown.limit = kPage;
    shown.observation =
        store->observeMessages(conversationOf(address), shown.limit,
                               [this, address](const VXIMListChange<VXIMStoredMessage>& change) {
                                   showMessages(address, change.list);
                               });
}

void Session::showMessages(const Address& address, const std::vector<VXIMStoredMessage>& messages) {
    auto* conversation = roster_.find(address);
    if (!conversation) return;
    std::vector<Entry> entries;
    entries.reserve(messages.size());
    for (const auto& message : messages) entries.push_back(entryOf(message));
    conversation->show(std::move(entries));
    roster_.numberFiles(*conversation);
    showGaps(address);
}

/// Shows where messages are missing after the oldest one that is shown.
void Session::showGaps(const Address& address) {
    conversations_->store()->gaps(
        conversationOf(address),
        [this, address](const std::optional<std::vector<VXIMStoredGap>>& gaps, const ErrorPtr&) {
            auto* conversation = roster_.find(address);
            if (!conversation || !gaps) return;
            shown_[address].gaps = *gaps;
            const auto& entries = conversation->entries();
            const auto first = std::ranges::find(entries, false, &Entry::isNotice);
            std::vector<Entry> notices;
            for (const auto& gap : *gaps) {
                if (gap.afterMillis == 0 || first == entries.end() ||
                    seconds(gap.beforeMillis) <= first->time)
                    continue;
                Entry notice;
                notice.isNotice = true;
                notice.time = seconds(gap.beforeMillis) - 0.0005;
                const std::string span =
                    timeText(gap.afterMillis) + " to " + timeText(gap.beforeMillis);
                notice.text = conversation->hasHistory()
                                  ? "messages are missing here, " + span + "; PageUp reads them"
                                  : "not connected, " + span + ": what was said here is not known";
                notices.push_back(std::move(notice));
            }
            conversation->showGaps(std::move(notices));
            setOlder(*conversation);
        });
}

void Session::setOlder(Conversation& conversation) {
    const auto& shown = shown_[conversation.address];
    const auto count = std::count_if(conversation.entries().begin(), conversation.entries().end(),
                                     [](const Entry& entry) { return !entry.isNotice; });
    const bool hasMore = count >= shown.limit || (conversation.hasHistory() && !shown.gaps.empty());
    conversation.older = hasMore ? Older::There : Older::Nothing;
}

void Session::loadOlder(const Address& address) {
    auto* conversation = roster_.find(address);
    const auto shown = shown_.find(address);
    if (!conversation || shown == shown_.end() || !shown->second.observation ||
        conversation->older != Older::There)
        return;
    conversation->older = Older::Loading;
    shown->second.limit += kPage;
    shown->second.observation->setLimit(shown->second.limit);
    // If the store has no older messages, the service may.
    const auto& gaps = shown->second.gaps;
    if (!conversation->hasHistory() || gaps.empty()) return showGaps(address);
    conversations_->readGap(conversationOf(address), gaps.back(),
                            [this, address](const auto&, const ErrorPtr& error) {
                                if (error) complain("older messages could not be read", error);
                                showGaps(address);
                            });
}

void Session::search(const std::string& words) {
    const auto store = conversations_->store();
    if (!store) return roster_.notice("the store is not open yet", now(), true);
    store->search({.text = words, .limit = kMostFound},
                  [this, words](const std::optional<std::vector<VXIMStoredMessage>>& found,
                                const ErrorPtr& error) {
                      if (error) return complain("that failed", error);
                      std::string text =
                          found->empty() ? "nothing found: " + words : "found, the newest first:";
                      for (const auto& message : *found) {
                          const auto* place = roster_.find(addressOf(message.conversation));
                          text += "\n  " + timeText(message.sentAtMillis) + "  " +
                                  harmlessLine(place ? place->title : "") + ", " +
                                  harmlessLine(entryOf(message).sender) + ": " +
                                  harmlessLine(message.text());
                      }
                      roster_.notice(std::move(text), now());
                  });
}

/// A user's name is an attribute, like a group's.
void Session::readName(const std::string& friendId) {
    if (asked_.size() >= kMostNames || !asked_.insert(friendId).second) return;
    VXIMUser::userWithId(friendId)->getAttributeForKey(
        "name", [this, friendId](const vexim::Value& name, const ErrorPtr&) {
            auto* conversation = roster_.find({Kind::Friend, friendId});
            if (conversation) roster_.rename(*conversation, nameOf(name));
        });
}

void Session::clientFriendDidOnline(const std::shared_ptr<VXIMClient>&,
                                    const std::shared_ptr<VXIMFriendInfo>& info) {
    const Address address{Kind::Friend, info->uid().description()};
    const bool isNew = roster_.find(address) == nullptr;
    roster_.open(address).online = true;
    if (isNew) refresh();
}

void Session::clientFriendDidOffline(const std::shared_ptr<VXIMClient>&,
                                     const std::shared_ptr<VXIMFriendInfo>& info) {
    roster_.open({Kind::Friend, info->uid().description()}).online = false;
}

void Session::complain(const std::string& what, const ErrorPtr& error) {
    roster_.notice(what + ": " + harmlessLine(explain(error)), now(), true);
}

template <class Seen>
void Session::markGone(Kind kind, const Seen& seen) {
    for (const auto& conversation : roster_.all()) {
        if (conversation->address.kind == kind)
            conversation->gone = seen.count(conversation->address.id) == 0;
    }
}

/// No event says that somebody has become a friend of the user, or has added them to a group or a
/// room. But the user's record has all ids in one short answer, so reading it every second costs
/// little.
void Session::lookForNews() {
    const auto user = client_->currentUser();
    if (!user || isLooking_) return;
    isLooking_ = true;
    user->fetchWithCompletion([this, user](bool succeeded, const ErrorPtr&) {
        isLooking_ = false;
        if (!succeeded || !state_.isConnected()) return;
        std::set<std::string> ids;
        for (const auto& info :
             user->friends().value_or(std::vector<std::shared_ptr<VXIMFriendInfo>>()))
            ids.insert("friend " + info->uid().description());
        for (const auto& group : user->groups().value_or(std::vector<std::shared_ptr<VXIMGroup>>()))
            ids.insert("group " + group->groupId().description());
        for (const auto& room : user->rooms().value_or(vexim::Array()))
            ids.insert("room " + room.description());
        if (std::exchange(known_, ids) != ids) refresh(Asked::ByClock);
    });
}

void Session::refresh(Asked asked) {
    const auto user = client_->currentUser();
    if (!user || me_.empty()) return;
    refreshed_ = now();
    const auto failed = [this, asked](const char* what, const ErrorPtr& error) {
        if (asked == Asked::ByNeed) complain(what, error);
    };
    user->fetchFriendsWithDetail(true, [this, user, failed](bool succeeded, const ErrorPtr& error) {
        if (!succeeded) return failed("the friends could not be read", error);
        std::set<std::string> seen;
        for (const auto& info :
             user->friends().value_or(std::vector<std::shared_ptr<VXIMFriendInfo>>())) {
            auto& conversation = roster_.open({Kind::Friend, info->uid().description()});
            seen.insert(conversation.address.id);
            if (state_.isConnected()) conversation.online = info->online();
            readName(conversation.address.id);
        }
        markGone(Kind::Friend, seen);
    });
    user->fetchGroupsWithDetail(true, [this, user, failed](bool succeeded, const ErrorPtr& error) {
        if (!succeeded) return failed("the groups could not be read", error);
        std::set<std::string> seen;
        for (const auto& group :
             user->groups().value_or(std::vector<std::shared_ptr<VXIMGroup>>())) {
            auto& conversation = roster_.open({Kind::Group, group->groupId().description()});
            seen.insert(conversation.address.id);
            conversation.members = idsOf(group->members());
            roster_.rename(conversation, nameOf(group->name()));
        }
        markGone(Kind::Group, seen);
    });
    user->fetchRoomsWithDetail(true, [this, user, failed](bool succeeded, const ErrorPtr& error) {
        if (!succeeded) return failed("the rooms could not be read", error);
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

}  // namespace chat
