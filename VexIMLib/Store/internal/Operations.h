#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/Store/VXIMMessageStore.h"

namespace vexim::store {

/// The payload's keys for the sender's key, and for the id that a service may add.
inline constexpr const char* kKeyField = "key";
inline constexpr const char* kServiceIdField = "id";

/// The conversation of a message, by its "from" and "to"; nullopt if they do not say. `userId` is
/// the user whose store it is.
std::optional<VXIMConversationId> conversationOf(const Dictionary& payload,
                                                 const std::string& userId);
/// Whether `userId` wrote it: "from" (or "speaker") names this user.
bool isWrittenBy(const Dictionary& payload, const std::string& userId);

/// A message that the service has: live, an echo, or from a history.
struct Arrival {
    VXIMConversationId conversation = {};
    Dictionary payload = {};
    VXIMStoredMessageDirection direction = VXIMStoredMessageIncoming;
    bool countsAsUnread = true;  // an incoming one that is new
    bool mayBeEcho = true;       // an own one without a key may be recognised by its content
    // of a removed conversation, take only newer messages; otherwise Known, with id 0
    bool isHistory = false;
};

/// What to change in an unconfirmed own message.
struct Change {
    std::optional<VXIMStoredMessageState> state = {};
    ErrorPtr error = {};                     // replaces the current one, or removes it
    std::optional<Dictionary> payload = {};  // the message's time becomes its "ts"
    std::optional<std::int32_t> attempts = {};
};

/// The result of storing an arrival.
enum class Outcome {
    Inserted,   // it was not known
    Confirmed,  // it is an own message that was waiting for its echo
    // it is already stored; a later copy may add a missing service id or sender
    Known,
};
struct Merged {
    Outcome outcome = Outcome::Known;
    std::int64_t localId = 0;
};
using MergedCompletion =
    std::function<void(std::optional<std::vector<Merged>> merged, ErrorPtr error)>;

/// How far a conversation's history is known.
struct KnownHistory {
    // everything up to here is stored, or in a recorded gap; 0: nothing is
    std::int64_t knownUntilMillis = 0;
    std::vector<VXIMStoredGap> gaps = {};
};
using KnownHistoryCompletion =
    std::function<void(std::optional<KnownHistory> history, ErrorPtr error)>;

/// The operations of outbox and catch-up on a store, in addition to the public ones, with the same
/// threads and errors.
class Operations {
public:
    explicit Operations(std::shared_ptr<VXIMMessageStore> store) : store_(std::move(store)) {}

    /// Stores arrivals in one transaction. Pass a history's messages with the oldest first. Each
    /// arrival is compared with the stored messages of this conversation and sender. The first
    /// match counts: the same service id; the same key; the same time and content (unless both have
    /// keys that differ); and for an own message without a key, the oldest one in state Sending or
    /// Sent with this content, unless it was written more than a minute later. A match that is
    /// unconfirmed becomes confirmed. It gets the service's payload and time, and keeps what the
    /// service's copy lacks. Of two times the smaller one is kept, so that all devices agree. If a
    /// payload cannot be written as JSON, the result is `Unusable` and nothing is stored. There is
    /// one result for each arrival, in order.
    void insert(std::vector<Arrival> arrivals, MergedCompletion completion);

    /// Adds an own message in state Queued. Its time is the payload's "ts" or now. If that is not
    /// later than the user's last message in the conversation, it becomes one millisecond later
    /// than that, so that the order is the same on all devices. The payload gets this time. Files
    /// are copied (`Failed` if that is impossible) and kept until the message is confirmed or
    /// removed. Once completed, it survives a power failure.
    void addOutgoing(VXIMConversationId conversation, Dictionary payload,
                     std::vector<std::string> files, VXIMStoredMessageCompletion completion);
    /// Updates a message. NotFound if it does not exist any more. A confirmed message does not
    /// change (an echo may come before the "sent"); the result says so.
    void change(std::int64_t localId, Change change, VXIMStoredMessageCompletion completion);
    /// Removes the message and its files. NotFound as above.
    void remove(std::int64_t localId, VXIMBooleanCompletion completion);

    /// All unconfirmed own messages (queued, sending, sent, failed), in order within each
    /// conversation.
    void waiting(VXIMStoredMessagesCompletion completion);
    void knownHistory(VXIMConversationId conversation, KnownHistoryCompletion completion);
    /// Replaces it. Adds the conversation if it is missing.
    void setKnownHistory(VXIMConversationId conversation, KnownHistory history,
                         VXIMBooleanCompletion completion);

private:
    std::shared_ptr<VXIMMessageStore> store_;
};

}  // namespace vexim::store
