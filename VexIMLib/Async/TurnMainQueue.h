#pragma once

#include <chrono>
#include <functional>

#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim::detail {

/// Main thread. Runs the main queue until `done`, which something on the queue makes true.
inline void turnMainQueueUntil(const std::function<bool()>& done) {
    bool quit = false;
    while (!MainQueue::shared().runUntil(done, std::chrono::nanoseconds::max())) quit = true;
    if (quit) MainQueue::shared().quit();  // it was meant for the loop around this one
}

}  // namespace vexim::detail
