#pragma once

#include <memory>
#include <unordered_set>
#include <vector>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/internal/Platform/Loading/URLLoad.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThreadAsio.h"
#include "VexIMLib/internal/Platform/Threads/OperationQueue.h"

namespace vexim {

/// Shared by all loads on the network thread: it passes on their events once per turn of the loop,
/// and has one timer for all their timeouts.
class LoadRunner {
public:
    static LoadRunner& shared();

    void add(URLLoad* load) { running_.insert(load); }
    void remove(URLLoad* load) { running_.erase(load); }

    void emit(const std::shared_ptr<OperationQueue>& queue, std::shared_ptr<URLLoad::Client> client,
              LoadEvent::Any event, bool mayCallOnNetworkThread);
    /// Makes `load` pass on its data at the end of this turn.
    void flushSoon(std::shared_ptr<URLLoad> load);
    /// Checks all timeouts at `when` at the latest.
    void checkTimeoutsAt(Clock::TimePoint when);

private:
    struct Event {
        std::shared_ptr<URLLoad::Client> client;
        LoadEvent::Any event;
    };
    struct Batch {
        std::shared_ptr<OperationQueue> queue;
        std::vector<Event> events;
        bool mayCallOnNetworkThread;
    };

    void deliverSoon();
    void deliverBatches();
    void checkTimeouts();

    std::unordered_set<URLLoad*> running_;
    std::vector<Batch> batches_;
    std::vector<std::shared_ptr<URLLoad>> withData_;
    bool deliveryPosted_ = false;
    NetworkTimer timer_;
    Clock::TimePoint nextCheck_;
};

}  // namespace vexim
