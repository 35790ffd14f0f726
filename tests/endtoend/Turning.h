#pragma once

#include <algorithm>
#include <chrono>
#include <functional>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Testing/ManualClock.h"

namespace vexim::testing {

/// Runs the main queue until `predicate` is true. If only delayed functions are left, it advances
/// the clock, so retries take no time. Returns false if the predicate stays false for some real
/// seconds.
[[nodiscard]] inline bool eventuallyTurning(ManualClock& clock,
                                            const std::function<bool()>& predicate) {
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    auto& queue = MainQueue::shared();
    while (std::chrono::steady_clock::now() < giveUp) {
        if (queue.runUntil(predicate, std::chrono::microseconds(100))) return true;
        if (const auto next = queue.nextDeadline()) {
            clock.advanceAndDrain(std::max(*next - clock.now(), Clock::TimePoint::duration(0)));
        }
    }
    return predicate();
}

}  // namespace vexim::testing
