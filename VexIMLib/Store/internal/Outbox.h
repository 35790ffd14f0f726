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

/// Sends the store's unsent messages, in order within each conversation. Main thread only.
///
/// A message is stored as Sending before the client gets it, so a message that may have been sent
/// never counts as unsent. Messages that were out when the connection was lost are looked up before
/// they are sent again.
///
/// It has more than 25 functions because each step of a message's way has one, and all of them
/// change the same queues.
class Outbox : public std::enable_shared_from_this<Outbox> {
public:
    struct Limits {
        std::size_t most = 10'000;              // unsent and unconfirmed ones
        std::chrono::milliseconds longestWait;  // from queueing to sending
        std::chrono::milliseconds echoTimeout;  // until a missing echo is looked up
    };
    struct Callbacks {
        std::function<void(const std::shared_ptr<VXIMMessage>&, VXIMProgress, VXIMBooleanCompletion,
                           std::shared_ptr<VXIMTransfer>)>
            send;
        /// Reads the conversation's history back to a time. `didLookUp` is called with the result.
        std::function<void(const VXIMConversationId&, std::int64_t sinceMillis)> lookUp;
        /// The store could not write a change; it is tried again.
        std::function<void(const ErrorPtr&)> didFail;
    };

    Outbox(std::shared_ptr<VXIMMessageStore> store, Callbacks callbacks, Limits limits);

    /// Loads the unsent messages of earlier runs of the program.
    void load(VXIMBooleanCompletion completion);
    /// The store's file was damaged and may have lost messages. Puts back those that wait here.
    void reload();
    /// `completion` runs when the message is written.
    void add(const VXIMConversationId& conversation, VXIMMessage& message, VXIMProgress progress,
             VXIMStoredMessageCompletion completion);
    void retry(std::int64_t localId, VXIMBooleanCompletion completion);
    void cancel(std::int64_t localId, VXIMBooleanCompletion completion);

    /// The service has accepted the login.
    void linkDidOpen();
    /// The connection was lost or replaced.
    void linkDidClose();
    /// The service has this message.
    void didConfirm(std::int64_t localId, bool withItsKey);
    /// The history was read for `lookUp`, or could not be (`error`).
    void didLookUp(const VXIMConversationId& conversation, const ErrorPtr& error);
    /// Whether an own message without a key can be one of ours. It cannot if the service is known
    /// to keep keys.
    bool mayLoseKeys() const noexcept { return !keepsKeys_; }

private:
    enum class Stage {
        Waiting,       // waits for its turn
        Writing,       // being stored as Sending
        Ready,         // the store has it as Sending
        Sending,       // the client has it, uploading or about to emit
        AwaitingEcho,  // the connection has it; waiting for its echo
        Doubtful,      // it was passed on, and then the connection was lost
    };
    struct Item {
        VXIMStoredMessage row;
        Stage stage = Stage::Waiting;
        Clock::TimePoint awaitingEchoSince{};
        int missedEchoes = 0;
        std::shared_ptr<VXIMTransfer> transfer;  // while it is uploaded
        VXIMProgress progress;
    };
    struct Queue {
        std::map<std::int64_t, Item> items;  // by local id, which is the order of sending
        bool isLookingUp = false;            // before anything else is sent
        bool hasLookedUpTwice = false;
        bool isAskingForEchoes = false;
        bool isPaused = false;  // after a temporary failure
        int failures = 0;       // in a row
        bool isTimerSet = false;
        std::int64_t lastMillis = 0;  // the time that the last message was sent with
    };

    Queue& queueOf(const VXIMConversationId& conversation) { return queues_[conversation]; }
    Item* find(const VXIMConversationId& conversation, std::int64_t localId);
    void enqueue(VXIMStoredMessage row, Stage stage, VXIMProgress progress);
    void drop(const VXIMConversationId& conversation, std::int64_t localId);
    void sendWaiting(const VXIMConversationId& conversation);
    void sendAllWaiting();
    bool resolveDoubts(const VXIMConversationId& conversation, Queue& queue);
    static std::int64_t oldestDoubt(const Queue& queue);
    bool looksUpOnceMore(const VXIMConversationId& conversation, Queue& queue);
    void restore(std::int64_t localId);
    void writeAhead(const VXIMConversationId& conversation, Queue& queue);
    void sendReady(const VXIMConversationId& conversation, Queue& queue);
    void send(const VXIMConversationId& conversation, Queue& queue, Item& item);
    void didSend(const VXIMConversationId& conversation, std::int64_t localId, std::uint64_t link,
                 Dictionary sent, const std::shared_ptr<VXIMMessage>& message,
                 const ErrorPtr& error);
    void requeue(const VXIMConversationId& conversation, Queue& queue, Item& item,
                 const ErrorPtr& error);
    void pause(const VXIMConversationId& conversation, Queue& queue);
    void fail(const VXIMConversationId& conversation, std::int64_t localId, const ErrorPtr& error);
    void write(const Item& item, VXIMStoredMessageState state, const ErrorPtr& error,
               bool withPayload, VXIMStoredMessageCompletion completion);
    void awaitEchoes(const VXIMConversationId& conversation, Queue& queue);
    void checkEchoes(const VXIMConversationId& conversation);
    void didMissEchoes(const VXIMConversationId& conversation, const ErrorPtr& cause);

    const std::shared_ptr<VXIMMessageStore> store_;
    Operations operations_;
    const Callbacks callbacks_;
    const Limits limits_;
    std::map<VXIMConversationId, Queue> queues_;
    std::unordered_map<std::int64_t, VXIMConversationId> places_;  // of all items
    // operations that the store has not answered yet
    std::size_t adding_ = 0;
    // messages that `reload` does not know yet
    std::size_t reloading_ = 0;
    bool isOpen_ = false;
    std::uint64_t link_ = 0;  // counts connections
    bool keepsKeys_ = false;
};

}  // namespace vexim::store
