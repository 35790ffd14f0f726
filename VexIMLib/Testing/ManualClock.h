#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include "VexIMLib/Foundation/Clock.h"

namespace vexim::testing {

/// A clock that stands still until you advance it. As long as it lives, it is the library's shared
/// clock: retries, reconnect waits, heartbeats and deadlines happen only when you advance it that
/// far, and take no real time.
///
///     vexim::testing::ManualClock clock;  // first, so that it outlives what waits by it
///     service.dropConnections();
///     // the waits between reconnect attempts take no time
///     clock.runUntil([&] { return client->status() == VXIMClientStatusOpened; });
///
/// Two things still use real time: the timeout of `MainQueue::runUntil`, and what the operating
/// system and libcurl time on their own, such as connecting.
class ManualClock {
public:
    /// Starts at `wallTime`, in seconds since 1970.
    explicit ManualClock(double wallTime = 1'700'000'000);
    ~ManualClock();  // restores the system's clock
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    /// Advances both readings. Functions that become due on the main queue run when the queue runs.
    /// What becomes due on the network runs on the network thread. All of it sees the new time.
    /// Call from any thread.
    void advance(std::chrono::nanoseconds by);
    /// Advances the clock and runs the main queue: each delayed function at its due time, with
    /// everything that it queues. Returns the number of functions that ran. Throws std::logic_error
    /// if the queue never becomes empty. Main thread only.
    std::size_t advanceAndDrain(std::chrono::nanoseconds by);
    /// Runs the main queue until `predicate` is true, and advances the clock meanwhile, in steps of
    /// a quarter of a second. It waits for the library and every `FakeService` to finish what is
    /// due before the next step. So time passes as fast as the machine allows, and a slow machine
    /// misses no deadline. Returns false if the predicate is still false after `most` of advanced
    /// time. Main thread only.
    [[nodiscard]] bool runUntil(const std::function<bool()>& predicate,
                                std::chrono::nanoseconds most = std::chrono::minutes(10));

    /// The clock, for code that takes one by reference.
    Clock& clock() const noexcept;
    /// The monotonic reading.
    Clock::TimePoint now() const;
    /// Seconds since 1970.
    double wallTime() const;

private:
    class Hand;
    // shared with readers on other threads, which may outlive this object
    std::shared_ptr<Hand> hand_;
};

}  // namespace vexim::testing
