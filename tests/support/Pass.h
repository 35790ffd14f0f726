#pragma once

#include <chrono>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Testing/ManualClock.h"

namespace vexim::testing {

/// Advances the clock. Returns when the network thread has checked it, and the main queue has run
/// what came of that.
inline void pass(ManualClock& clock, std::chrono::nanoseconds time) {
    clock.advance(time);
    (void)clock.runUntil([] { return false; }, std::chrono::milliseconds(1));
    MainQueue::shared().drain();
}

}  // namespace vexim::testing
