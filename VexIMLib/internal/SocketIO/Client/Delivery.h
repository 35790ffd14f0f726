#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/SocketIOClient.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/SocketIO/Client/EventHandlers.h"

namespace vexim {

/// What waits for the main queue, in order: events for handlers, and answers for callbacks. Any
/// thread adds, and the main thread delivers. It also decides when reading must wait for the
/// application.
class Delivery {
public:
    /// An event, or an answer to `callback`.
    struct Item {
        Value event;  // its name
        Array arguments;
        AckEmitter ack;
        SocketIOClient::AckCallback callback;
        ErrorPtr error;
        std::size_t bytes = 0;  // its size on the wire
    };

    /// What is not delivered yet.
    struct Levels {
        std::size_t events = 0;
        std::size_t bytes = 0;
    };

    /// `didDeliver` is called at the end of each `deliverSome`. It must call `subtractDelivered`.
    Delivery(std::size_t maxReadAhead, std::function<void()> didDeliver);

    EventHandlers& handlers() noexcept { return handlers_; }

    // Any thread. After adding, unlock everything and call `claimRun`.

    void push(Item item);
    /// Leaves `items` empty.
    void pushAll(std::vector<Item>& items);
    /// Items that no run has taken yet.
    std::size_t count() const;
    /// Returns true to one caller if something is new. That caller must queue `deliverSome`.
    bool claimRun();

    /// Whether so much waits that the connection must end.
    bool overflows() const;
    /// Pauses if "maxReadAhead" is reached. Returns whether it is.
    bool pauseIfFull();
    bool isPaused() const;
    /// Ends the pause, because the connection has ended.
    void endPause();
    /// Subtracts what was delivered. Returns true if that ends a pause.
    bool subtractDelivered();
    Levels levels() const;

    /// Delivers the items that are queued now, until the main queue's turn is over. Returns true if
    /// some are left. A handler may run the queue and so call this recursively. Main thread.
    bool deliverSome(bool isContinued);

private:
    void addBytes(Item& item) VEXIM_REQUIRES(mutex_);
    void didTakeTurn();
    void deliver(const Item& item) const;

    const std::size_t maxReadAhead_;
    const std::function<void()> didDeliver_;
    EventHandlers handlers_;

    mutable Mutex mutex_;  // never held while a callback runs
    std::vector<Item> inbox_ VEXIM_GUARDED_BY(mutex_);
    std::size_t undeliveredBytes_ VEXIM_GUARDED_BY(mutex_) = 0;
    // of `ready_`, as its last turn left it
    std::size_t undeliveredReady_ VEXIM_GUARDED_BY(mutex_) = 0;
    bool isRunClaimed_ VEXIM_GUARDED_BY(mutex_) = false;
    bool isPaused_ VEXIM_GUARDED_BY(mutex_) = false;

    // Main thread only. A handler may run the queue itself, and so deliver the rest of the batch.
    std::vector<Item> ready_;
    std::size_t nextReady_ = 0;
    std::size_t deliveredBytes_ = 0;  // not subtracted yet
};

}  // namespace vexim
