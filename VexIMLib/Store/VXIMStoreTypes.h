#pragma once

#include <chrono>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/VXIMMessage.h"

// The data types of the message store. They are copies: they do not change when the store does.

/// The kind of a conversation. The numbers are stored in files.
enum VXIMConversationKind : std::int32_t {
    VXIMConversationKindFriend = 0,
    VXIMConversationKindGroup = 1,
    VXIMConversationKindRoom = 2,
    /// messages from the operators of the service: one conversation with an empty id
    VXIMConversationKindSystem = 3,
};
/// The word for it in exports: "friend", "group", "room" or "system"; "unknown" for any other
/// number.
VEXIM_EXPORT const char* VXIMConversationKindName(VXIMConversationKind kind);

/// Identifies a conversation.
///
///     const VXIMConversationId withBob{VXIMConversationKindFriend, "bob"};
struct VXIMConversationId {
    /// what the id belongs to
    VXIMConversationKind kind = VXIMConversationKindFriend;
    /// the id of the friend, the group or the room
    std::string id = {};
    friend auto operator<=>(const VXIMConversationId&, const VXIMConversationId&) = default;
};

/// Who wrote a message.
enum VXIMStoredMessageDirection : std::int32_t {
    VXIMStoredMessageIncoming = 0,
    VXIMStoredMessageOutgoing = 1,  ///< the store's user, on this device or another one
};
/// The word for it in exports: "incoming" or "outgoing"; "unknown" for any other number.
VEXIM_EXPORT const char* VXIMStoredMessageDirectionName(VXIMStoredMessageDirection direction);

/// The state of a message. The numbers are stored in files.
enum VXIMStoredMessageState : std::int32_t {
    /// waiting to be sent
    VXIMStoredMessageQueued = 0,
    /// being sent; after a lost connection it is not known whether it arrived
    VXIMStoredMessageSending = 1,
    /// passed to the connection, not yet confirmed by the service
    VXIMStoredMessageSent = 2,
    /// the service has it; all incoming messages are in this state
    VXIMStoredMessageConfirmed = 3,
    /// refused; `error` says why
    VXIMStoredMessageFailed = 4,
};
/// The word for it in exports: "queued", "sending", "sent", "confirmed" or "failed"; "unknown" for
/// any other number.
VEXIM_EXPORT const char* VXIMStoredMessageStateName(VXIMStoredMessageState state);

/// The position of a message in its conversation, in order of time.
struct VXIMStorePosition {
    std::int64_t sentAtMillis = 0;  ///< milliseconds since 1970
    std::int64_t localId = 0;       ///< orders messages of the same millisecond
    friend auto operator<=>(const VXIMStorePosition&, const VXIMStorePosition&) = default;
};

/// A message as it is stored.
struct VXIMStoredMessage {
    /// never changes while the message is stored
    std::int64_t localId = 0;
    /// the conversation that it belongs to
    VXIMConversationId conversation = {};
    /// the key that its sender gave it; nullopt if none
    std::optional<std::string> key = {};
    /// the service's id; nullopt if the service gives none
    std::optional<std::string> serviceId = {};
    /// the wire form
    vexim::Dictionary payload = {};
    /// the sender's user id; empty if the service itself sent it
    std::string sender = {};
    /// the id of the user, group or room; empty if it went to everybody
    std::string receiver = {};
    /// the kind of body
    VXIMMessageMediaType mediaType = VXIMMessageMediaTypeText;
    /// milliseconds since 1970
    std::int64_t sentAtMillis = 0;
    /// who wrote it
    VXIMStoredMessageDirection direction = VXIMStoredMessageIncoming;
    /// its state
    VXIMStoredMessageState state = VXIMStoredMessageConfirmed;
    /// why it failed or has to wait; nullptr if neither
    vexim::ErrorPtr error = {};
    /// the number of attempts to send it
    std::int32_t attempts = 0;
    /// the store's copies of its files, until it is confirmed
    std::vector<std::string> attachmentFiles = {};

    /// The text; empty if the message is not a text.
    VEXIM_EXPORT std::string text() const;
    /// Its position in the conversation.
    VXIMStorePosition position() const { return {sentAtMillis, localId}; }
    /// Makes a message object from the payload, like the one that the client delivered.
    VEXIM_EXPORT std::shared_ptr<VXIMMessage> message() const;
    /// What an export writes for this message; `VXIMMessageStore::exportJSONLines` lists the
    /// fields.
    VEXIM_EXPORT vexim::Dictionary record() const;
};

/// A conversation, as shown in a list.
struct VXIMConversation {
    /// which conversation it is
    VXIMConversationId id = {};
    /// the newest message; nullopt if there is none
    std::optional<VXIMStoredMessage> lastMessage = {};
    /// incoming messages since it was last marked as read
    std::int64_t unreadCount = 0;
    /// what the user has begun to write; empty if nothing
    std::string draft = {};
};

/// A part of a conversation whose messages are missing here.
struct VXIMStoredGap {
    std::int64_t afterMillis = 0;   ///< time of the last known message before it; 0 if none
    std::int64_t beforeMillis = 0;  ///< time of the first known message after it
    friend bool operator==(const VXIMStoredGap&, const VXIMStoredGap&) = default;
};

/// What to search for.
struct VXIMMessageSearch {
    /// The words to find, all of them, in any order. "*" at the end of a word matches any ending;
    /// words in double quotes must follow each other. Case and accents do not matter. A text
    /// without any letter or digit finds nothing.
    std::string text = {};
    /// nullopt: search all conversations
    std::optional<VXIMConversationId> conversation = {};
    /// not before this time
    std::optional<std::int64_t> sinceMillis = {};
    /// before this time
    std::optional<std::int64_t> untilMillis = {};
    /// for the next page: the position of the last message found
    std::optional<VXIMStorePosition> before = {};
    /// the most results
    std::int32_t limit = 50;
};

/// How much to keep. Messages that are not yet confirmed are never removed, nor are the
/// conversations themselves.
struct VXIMRetention {
    /// older messages are removed; nullopt means no limit
    std::optional<std::chrono::hours> maximumAge = {};
    /// how many messages to keep in each conversation; nullopt means no limit
    std::optional<std::int64_t> maximumCount = {};
};

/// Reports that a damaged file was set aside.
struct VXIMStoreDamage {
    /// the new path of the damaged file
    std::string setAsideAs = {};
    /// the number of messages that could be read and were copied to the new file
    std::int64_t messagesSaved = 0;
};

/// What has changed in an observed list. To update a copy: remove `removed` from the last position
/// to the first, insert `inserted` from the first to the last, then reload `changed`. A moved entry
/// is removed and inserted. The first call inserts everything.
template <class T>
struct VXIMListChange {
    std::vector<T> list = {};                ///< the whole list as it is now
    std::vector<std::size_t> removed = {};   ///< positions in the old list, ascending
    std::vector<std::size_t> inserted = {};  ///< positions in `list`, ascending
    std::vector<std::size_t> changed = {};   ///< positions in `list`, ascending
};

// The types of completions and observers. All of them run on the main queue and may be empty. On
// failure the first argument is nullopt, and the error gives the reason.

/// The messages in the order that the operation names.
using VXIMStoredMessagesCompletion = std::function<void(
    std::optional<std::vector<VXIMStoredMessage>> messages, vexim::ErrorPtr error)>;
/// One message; (nullopt, nullptr) if there is none.
using VXIMStoredMessageCompletion =
    std::function<void(std::optional<VXIMStoredMessage> message, vexim::ErrorPtr error)>;
/// Conversations, the one with the newest message first.
using VXIMConversationsCompletion = std::function<void(
    std::optional<std::vector<VXIMConversation>> conversations, vexim::ErrorPtr error)>;
/// One conversation; (nullopt, nullptr) if there is none.
using VXIMConversationCompletion =
    std::function<void(std::optional<VXIMConversation> conversation, vexim::ErrorPtr error)>;
/// Gaps in the order of time.
using VXIMStoredGapsCompletion =
    std::function<void(std::optional<std::vector<VXIMStoredGap>> gaps, vexim::ErrorPtr error)>;
/// A number of messages.
using VXIMCountCompletion =
    std::function<void(std::optional<std::int64_t> count, vexim::ErrorPtr error)>;
/// Receives the changes of a list of messages.
using VXIMMessagesObserver = std::function<void(const VXIMListChange<VXIMStoredMessage>& change)>;
/// Receives the changes of a list of conversations.
using VXIMConversationsObserver =
    std::function<void(const VXIMListChange<VXIMConversation>& change)>;
/// Called when the file was found damaged while it was open.
using VXIMStoreDamageObserver = std::function<void(const VXIMStoreDamage& damage)>;
