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

// What a message store keeps and gives. All of these are values: copies that do not change when the
// store does.

/// Whom one talks with. The numbers are kept in files.
enum VXIMConversationKind : std::int32_t {
    VXIMConversationKindFriend = 0,
    VXIMConversationKindGroup = 1,
    VXIMConversationKindRoom = 2,
    /// the messages of the service's operators: one conversation, its id is empty
    VXIMConversationKindSystem = 3,
};
/// "friend", "group", "room" or "system", the word for it in exports; "unknown" for any other
/// number.
VEXIM_EXPORT const char* VXIMConversationKindName(VXIMConversationKind kind);

/// Names a conversation.
struct VXIMConversationId {
    /// whose id it is
    VXIMConversationKind kind = VXIMConversationKindFriend;
    /// of the friend, the group or the room
    std::string id = {};
    friend auto operator<=>(const VXIMConversationId&, const VXIMConversationId&) = default;
};

/// Who wrote a message.
enum VXIMStoredMessageDirection : std::int32_t {
    VXIMStoredMessageIncoming = 0,
    VXIMStoredMessageOutgoing = 1,  ///< the store's user, on this device or another one
};

/// How far a message has come. The numbers are kept in files.
enum VXIMStoredMessageState : std::int32_t {
    /// waits to be sent
    VXIMStoredMessageQueued = 0,
    /// being sent; after a cut, its fate is not known
    VXIMStoredMessageSending = 1,
    /// given to the connection, the service has not been heard of it
    VXIMStoredMessageSent = 2,
    /// the service has it; so are all incoming ones
    VXIMStoredMessageConfirmed = 3,
    /// refused; `error` says why
    VXIMStoredMessageFailed = 4,
};
/// "queued", "sending", "sent", "confirmed" or "failed", the word for it in exports; "unknown" for
/// any other number.
VEXIM_EXPORT const char* VXIMStoredMessageStateName(VXIMStoredMessageState state);

/// A place in a conversation, in the order of time.
struct VXIMStorePosition {
    std::int64_t sentAtMillis = 0;  ///< milliseconds since 1970
    std::int64_t localId = 0;       ///< tells messages of one millisecond apart
    friend auto operator<=>(const VXIMStorePosition&, const VXIMStorePosition&) = default;
};

/// A message as it is stored.
struct VXIMStoredMessage {
    /// stays the same as long as the message is stored
    std::int64_t localId = 0;
    /// where it stands
    VXIMConversationId conversation = {};
    /// its sender's key, nullopt when it has none
    std::optional<std::string> key = {};
    /// the service's id, where the service gives one
    std::optional<std::string> serviceId = {};
    /// as it travels
    vexim::Dictionary payload = {};
    /// a user's id; empty: the service itself
    std::string sender = {};
    /// of a user, group or room; empty: everybody
    std::string receiver = {};
    /// what the body is
    VXIMMessageMediaType mediaType = VXIMMessageMediaTypeText;
    /// milliseconds since 1970
    std::int64_t sentAtMillis = 0;
    /// who wrote it
    VXIMStoredMessageDirection direction = VXIMStoredMessageIncoming;
    /// how far it has come
    VXIMStoredMessageState state = VXIMStoredMessageConfirmed;
    /// why it failed or waits; nullptr: no reason
    vexim::ErrorPtr error = {};
    /// how often it was tried to send it
    std::int32_t attempts = 0;
    /// the store's copies, until it is confirmed
    std::vector<std::string> attachmentFiles = {};

    /// The text; empty for any other kind of message.
    VEXIM_EXPORT std::string text() const;
    /// Its place among the others of its conversation.
    VXIMStorePosition position() const { return {sentAtMillis, localId}; }
    /// A message object made of the payload, as the client would deliver it.
    VEXIM_EXPORT std::shared_ptr<VXIMMessage> message() const;
    /// What an export writes of it; `VXIMMessageStore::exportJSONLines` names the fields.
    VEXIM_EXPORT vexim::Dictionary record() const;
};

/// A conversation as a list shows it.
struct VXIMConversation {
    /// whom one talks with
    VXIMConversationId id = {};
    /// the newest one; nullopt when there is none
    std::optional<VXIMStoredMessage> lastMessage = {};
    /// incoming messages that came since it was read
    std::int64_t unreadCount = 0;
    /// what the user has begun to write; empty: nothing
    std::string draft = {};
};

/// A stretch of a conversation whose messages could not be had from the service any more.
struct VXIMStoredGap {
    std::int64_t afterMillis = 0;   ///< the last known message before it; 0: there is none
    std::int64_t beforeMillis = 0;  ///< the first known message behind it
    friend bool operator==(const VXIMStoredGap&, const VXIMStoredGap&) = default;
};

/// What to search for.
struct VXIMMessageSearch {
    /// Words that must all occur, in any order. A word that ends in "*" is the beginning of one;
    /// words in double quotes must stand together. Letter case and accents make no difference.
    /// Without any letter or digit nothing is found.
    std::string text = {};
    /// nullopt: in all of them
    std::optional<VXIMConversationId> conversation = {};
    /// from this time on
    std::optional<std::int64_t> sinceMillis = {};
    /// before this time
    std::optional<std::int64_t> untilMillis = {};
    /// for the next page: the position of the last one found
    std::optional<VXIMStorePosition> before = {};
    /// how many at most
    std::int32_t limit = 50;
};

/// How much is kept. What has not been sent and confirmed yet is never removed, nor is a
/// conversation itself.
struct VXIMRetention {
    /// older messages are removed; nullopt: none for their age
    std::optional<std::chrono::hours> maximumAge = {};
    /// of each conversation, the newest; nullopt: any number
    std::optional<std::int64_t> maximumCount = {};
};

/// That a damaged file was set aside.
struct VXIMStoreDamage {
    /// the path of the damaged file, for whoever wants to look at it
    std::string setAsideAs = {};
    /// how many could be read from it and are in the fresh one
    std::int64_t messagesSaved = 0;
};

/// What has changed in an observed list: take `removed` out of the old list, from the last position
/// to the first, put `inserted` into it, from the first to the last, and read `changed` anew. What
/// has moved is removed and inserted. At first all is inserted.
template <class T>
struct VXIMListChange {
    std::vector<T> list = {};                ///< the whole list as it is now
    std::vector<std::size_t> removed = {};   ///< positions in the list as it was, rising
    std::vector<std::size_t> inserted = {};  ///< positions in `list`, rising
    std::vector<std::size_t> changed = {};   ///< positions in `list`, rising
};

// The shapes of the completions and observers. All of them run on the main queue; an empty one is
// allowed and skipped. On failure the first argument is empty (nullopt, nullptr), and the error
// says why.

/// The messages in the order that the operation names.
using VXIMStoredMessagesCompletion = std::function<void(
    std::optional<std::vector<VXIMStoredMessage>> messages, vexim::ErrorPtr error)>;
/// One message; nullopt also when there is no such one, then without an error.
using VXIMStoredMessageCompletion =
    std::function<void(std::optional<VXIMStoredMessage> message, vexim::ErrorPtr error)>;
/// Conversations, the one with the newest message first.
using VXIMConversationsCompletion = std::function<void(
    std::optional<std::vector<VXIMConversation>> conversations, vexim::ErrorPtr error)>;
/// One conversation; nullopt also when there is no such one, then without an error.
using VXIMConversationCompletion =
    std::function<void(std::optional<VXIMConversation> conversation, vexim::ErrorPtr error)>;
/// Gaps in the order of time.
using VXIMStoredGapsCompletion =
    std::function<void(std::optional<std::vector<VXIMStoredGap>> gaps, vexim::ErrorPtr error)>;
/// A number of messages.
using VXIMCountCompletion =
    std::function<void(std::optional<std::int64_t> count, vexim::ErrorPtr error)>;
/// Hears how a list of messages changes.
using VXIMMessagesObserver = std::function<void(const VXIMListChange<VXIMStoredMessage>& change)>;
/// Hears how the list of conversations changes.
using VXIMConversationsObserver =
    std::function<void(const VXIMListChange<VXIMConversation>& change)>;
/// Hears that the file was found damaged while it was open.
using VXIMStoreDamageObserver = std::function<void(const VXIMStoreDamage& damage)>;
