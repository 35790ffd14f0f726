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

/// The payload's entry for the sender's key, and the one where a service may put its own id.
inline constexpr const char* kKeyField = "key";
inline constexpr const char* kServiceIdField = "id";

/// Where a message belongs, by its "from" and "to": nullopt when neither says so. `isOwn`: an echo,
/// or written by `userId`.
std::optional<VXIMConversationId> conversationOf(const Dictionary& payload,
                                                 const std::string& userId);
/// Whether `userId` wrote it: "from" (or "speaker") names him.
bool isWrittenBy(const Dictionary& payload, const std::string& userId);

/// A message that the service has: live, an echo, or out of a history.
struct Arrival {
    VXIMConversationId conversation = {};
    Dictionary payload = {};
    VXIMStoredMessageDirection direction = VXIMStoredMessageIncoming;
    bool countsAsUnread = true;  // an incoming one that is new
    bool mayBeEcho = true;       // an own one without a key may be told by its content
    // of a conversation that was removed, only what is newer is taken: else Known, with id 0
    bool isHistory = false;
};

/// What to change in an own message that is not confirmed.
struct Change {
    std::optional<VXIMStoredMessageState> state = {};
    ErrorPtr error = {};                     // replaces the present one, also by none
    std::optional<Dictionary> payload = {};  // the message's time follows its "ts"
    std::optional<std::int32_t> attempts = {};
};

/// What became of an arrival.
enum class Outcome {
    Inserted,   // it was not known
    Confirmed,  // it is an own one that was waiting for its echo
    // it is there already; a later copy may have added what the first one lacked (a service id, a
    // sender)
    Known,
};
struct Merged {
    Outcome outcome = Outcome::Known;
    std::int64_t localId = 0;
};
using MergedCompletion =
    std::function<void(std::optional<std::vector<Merged>> merged, ErrorPtr error)>;

/// How far a conversation's history is known.
struct Ground {
    // everything up to here is stored, or in a marked gap; 0: nothing is
    std::int64_t knownUntilMillis = 0;
    std::vector<VXIMStoredGap> gaps = {};
};
using GroundCompletion = std::function<void(std::optional<Ground> ground, ErrorPtr error)>;

/// What outbox and catch-up do with a store, beside the public operations: the same threads, the
/// same errors.
class Operations {
public:
    explicit Operations(std::shared_ptr<VXIMMessageStore> store) : store_(std::move(store)) {}

    /// Stores what arrived, in one transaction; give a history's messages oldest first. For each,
    /// the first of these that is there, in this conversation and by this writer, is the same
    /// message: one with its service id; one with its key; one of its time and content (unless both
    /// have keys, and different ones); and for an own one without a key, the oldest in state
    /// Sending or Sent of that content, unless it was written more than a minute later. An
    /// unconfirmed one is then confirmed, with the service's payload and time and what only it had;
    /// of two copies the smaller time stays, so that it is the same everywhere. `Unusable` (nothing
    /// stored) when a payload cannot be written as JSON. One result for each arrival, in order.
    void insert(std::vector<Arrival> arrivals, MergedCompletion completion);

    /// Adds an own message in state Queued. Its time is the payload's "ts" or now, made later than
    /// the user's last message in the conversation by a millisecond if need be, so that the order
    /// is the same everywhere; the payload gets it. The files are copied (`Failed` when one cannot
    /// be) and kept until the message is confirmed or removed. Safe against a power cut once told
    /// as done.
    void addOutgoing(VXIMConversationId conversation, Dictionary payload,
                     std::vector<std::string> files, VXIMStoredMessageCompletion completion);
    /// NotFound when it is not there any more. A confirmed message stays as it is (an echo may
    /// overtake the "sent"): the answer tells.
    void change(std::int64_t localId, Change change, VXIMStoredMessageCompletion completion);
    /// Takes it back: the message goes, with its files. NotFound as above.
    void remove(std::int64_t localId, VXIMBooleanCompletion completion);

    /// All own messages that are not confirmed (queued, sending, sent, failed), by conversation and
    /// in each in their order.
    void waiting(VXIMStoredMessagesCompletion completion);
    void ground(VXIMConversationId conversation, GroundCompletion completion);
    /// Replaces it; makes the conversation when there is none.
    void setGround(VXIMConversationId conversation, Ground ground,
                   VXIMBooleanCompletion completion);

private:
    std::shared_ptr<VXIMMessageStore> store_;
};

}  // namespace vexim::store
