#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include "VexIMLib/Foundation/Clock.h"

namespace vexim::testing {

/// A clock that stands still until it is turned. While it lives it is the library's shared clock:
/// retries, reconnect waits, heartbeats and deadlines come when it is turned to them, in no real
/// time, and never by themselves.
///
///     vexim::testing::ManualClock clock;  // first, so that it outlives what waits by it
///     service.dropConnections();
///     clock.runUntil([&] { return client->status() == VXIMClientStatusOpened; });  // the waits
///     before reconnects take no time
///
/// Real are: `MainQueue::runUntil`'s timeout, and what the operating system and libcurl time
/// themselves, as connecting.
class ManualClock {
public:
    /// It stands at `wallTime`, in seconds since 1970.
    explicit ManualClock(double wallTime = 1'700'000'000);
    ~ManualClock();  // the system's clock again
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    /// Turns both readings. What that makes due on the main queue runs when the queue does; what is
    /// due on the network runs on its own thread, all of it at the new time. Call from any thread.
    void advance(std::chrono::nanoseconds by);
    /// Turns time and runs the main queue: each delayed function at its own moment, with everything
    /// that it queues in turn. Returns how many functions ran; throws std::logic_error when the
    /// queue never becomes empty. Main thread only.
    std::size_t advanceAndDrain(std::chrono::nanoseconds by);
    /// Runs the main queue until `predicate` holds, and turns the clock meanwhile: by a quarter of
    /// a second, and not again before the library and every `FakeService` have done what was due
    /// then. So time goes by as fast as the machine can, and no deadline passes only because it is
    /// slow. False when the predicate does not hold within `most` of turned time. Main thread only.
    [[nodiscard]] bool runUntil(const std::function<bool()>& predicate,
                                std::chrono::nanoseconds most = std::chrono::minutes(10));

    /// For what takes a clock by reference.
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
