#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

#include "VexIMLib/Foundation/Clock.h"

namespace vexim::testing {

/// A clock that stands still until it is turned. While it lives it is the library's shared clock.
class ManualClock {
public:
    explicit ManualClock(double wallTime = 1'700'000'000);
    ~ManualClock();  // the system's clock again
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    /// Turns both readings, and wakes a main queue that waits for a deadline. Call from any thread.
    void advance(std::chrono::nanoseconds by);
    /// Turns time and runs the main queue: each delayed function at its own moment, with everything that it queues in turn.
    /// Returns how many functions ran.
    std::size_t advanceAndDrain(std::chrono::nanoseconds by);

    /// For what takes a clock by reference.
    Clock& clock() const noexcept;
    Clock::TimePoint now() const;
    double wallTime() const;

private:
    class Hand;
    std::shared_ptr<Hand> hand_;  // shared with readers on other threads, which may outlive this object
};

}  // namespace vexim::testing
