#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Store/internal/Operations.h"
#include "VexIMLib/VXIMCompletions.h"
#include "VexIMLib/VXIMTransfer.h"

namespace vexim::store {

/// Sends what the store holds to be sent, each conversation for itself and in its order. Main
/// thread only.
///
/// A message is written as Sending before the client gets it, so one that may be out is never taken
/// for one that is not. What was out when the connection went is looked up before it is sent again.
class Outbox : public std::enable_shared_from_this<Outbox> {
public:
    struct Limits {
        std::size_t most = 10'000;              // unsent and unconfirmed ones
        std::chrono::milliseconds longestWait;  // from queueing to sending
        std::chrono::milliseconds echoTimeout;  // until a missing echo is looked up
    };
    struct Surroundings {
        std::function<void(const std::shared_ptr<VXIMMessage>&, VXIMProgress, VXIMBooleanCompletion,
                           std::shared_ptr<VXIMTransfer>)>
            say;
        /// Reads the conversation's history back to a time; `didLookUp` answers.
        std::function<void(const VXIMConversationId&, std::int64_t sinceMillis)> lookUp;
        /// The store did not take a change; it is tried again.
        std::function<void(const ErrorPtr&)> complain;
    };

    Outbox(std::shared_ptr<VXIMMessageStore> store, Surroundings surroundings, Limits limits);

    /// Takes over what earlier runs of the program have left.
    void load(VXIMBooleanCompletion completion);
    /// The store's file was damaged, and what could not be saved is missing in it: what waits here
    /// is put back.
    void reload();
    /// `completion` runs when the message is written.
    void add(const VXIMConversationId& conversation, VXIMMessage& message, VXIMProgress progress,
             VXIMStoredMessageCompletion completion);
    void retry(std::int64_t localId, VXIMBooleanCompletion completion);
    void cancel(std::int64_t localId, VXIMBooleanCompletion completion);

    /// The service has accepted the login.
    void linkDidOpen();
    /// The connection has gone, or another took its place.
    void linkDidClose();
    /// The service has this message.
    void didConfirm(std::int64_t localId, bool withItsKey);
    /// The history was read as `lookUp` asked; `error`: it will not be.
    void didLookUp(const VXIMConversationId& conversation, const ErrorPtr& error);
    /// Whether an own message without a key can be one of ours: not when the service was seen to
    /// keep keys.
    bool mayLoseKeys() const noexcept { return !keepsKeys_; }

private:
    enum class Stage {
        Waiting,   // for its turn
        Writing,   // as Sending, into the store
        Ready,     // the store has it as Sending
        Handing,   // the client has it: uploads, or is about to emit
        Handed,    // the connection has it; its echo is awaited
        Doubtful,  // it was handed over, and the connection has gone since
    };
    struct Item {
        VXIMStoredMessage row;
        Stage stage = Stage::Waiting;
        Clock::TimePoint handedAt{};
        int missedEchoes = 0;
        std::shared_ptr<VXIMTransfer> transfer;  // while it is uploaded
        VXIMProgress progress;
    };
    struct Lane {
        std::map<std::int64_t, Item> items;  // by local id, which is the order of sending
        bool isLookingUp = false;            // before anything else is sent
        bool hasLookedTwice = false;
        bool isAskingForEchoes = false;
        bool isPaused = false;  // after a failure that may pass
        int failures = 0;       // in a row
        bool isTimerSet = false;
        std::int64_t lastMillis = 0;  // the time that the last message was sent with
    };

    Lane& laneOf(const VXIMConversationId& conversation) { return lanes_[conversation]; }
    Item* find(const VXIMConversationId& conversation, std::int64_t localId);
    void take(VXIMStoredMessage row, Stage stage, VXIMProgress progress);
    void drop(const VXIMConversationId& conversation, std::int64_t localId);
    void pump(const VXIMConversationId& conversation);
    void pumpAll();
    bool resolveDoubts(const VXIMConversationId& conversation, Lane& lane);
    static std::int64_t oldestDoubt(const Lane& lane);
    bool looksOnceMore(const VXIMConversationId& conversation, Lane& lane);
    void restore(std::int64_t localId);
    void writeAhead(const VXIMConversationId& conversation, Lane& lane);
    void handOver(const VXIMConversationId& conversation, Lane& lane);
    void hand(const VXIMConversationId& conversation, Lane& lane, Item& item);
    void didHand(const VXIMConversationId& conversation, std::int64_t localId, std::uint64_t link,
                 Dictionary sent, const std::shared_ptr<VXIMMessage>& message,
                 const ErrorPtr& error);
    void hold(const VXIMConversationId& conversation, Lane& lane, Item& item,
              const ErrorPtr& error);
    void pause(const VXIMConversationId& conversation, Lane& lane);
    void fail(const VXIMConversationId& conversation, std::int64_t localId, const ErrorPtr& error);
    void write(const Item& item, VXIMStoredMessageState state, const ErrorPtr& error,
               bool withPayload, VXIMStoredMessageCompletion completion);
    void awaitEchoes(const VXIMConversationId& conversation, Lane& lane);
    void checkEchoes(const VXIMConversationId& conversation);
    void didMissEchoes(const VXIMConversationId& conversation, const ErrorPtr& cause);

    const std::shared_ptr<VXIMMessageStore> store_;
    Operations operations_;
    const Surroundings surroundings_;
    const Limits limits_;
    std::map<VXIMConversationId, Lane> lanes_;
    std::unordered_map<std::int64_t, VXIMConversationId> places_;  // of all items
    // those that the store has not answered yet
    std::size_t adding_ = 0;
    // those of which `reload` does not know yet
    std::size_t reloading_ = 0;
    bool isOpen_ = false;
    std::uint64_t link_ = 0;  // counts connections
    bool keepsKeys_ = false;
};

}  // namespace vexim::store
