#pragma once

#include <chrono>
#include <functional>

#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim::detail {

/// Runs the main queue until `done` is true; something on the queue must make it so. `done` is
/// checked after every function. Main thread only.
///
/// There is no timeout: the futures and tasks that it waits for have their own. A `quit()`
/// meanwhile is passed on to the surrounding loop, which would otherwise never see it. An exception
/// from a function on the queue passes through.
///
///     turnMainQueueUntil([&] { return task.isDone(); });
inline void turnMainQueueUntil(const std::function<bool()>& done) {
    bool quit = false;
    while (!MainQueue::shared().runUntil(done, std::chrono::nanoseconds::max())) quit = true;
    if (quit) MainQueue::shared().quit();  // it was meant for the surrounding loop
}

}  // namespace vexim::detail
