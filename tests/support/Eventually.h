#pragma once

#include <chrono>
#include <functional>
#include <thread>

#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim::testing {

/// Runs the main queue until `predicate` is true. Returns false if that takes longer than some
/// seconds of real time. Use it for work on other threads; the deadline only ends a broken test.
[[nodiscard]] inline bool eventually(const std::function<bool()>& predicate,
                                     std::chrono::nanoseconds deadline = std::chrono::seconds(60)) {
    return MainQueue::shared().runUntil(predicate, deadline);
}

/// Like `eventually`, for what happens on threads that do not wake the main queue.
[[nodiscard]] inline bool eventuallyElsewhere(const std::function<bool()>& predicate) {
    return eventually([&] {
        if (predicate()) return true;
        std::this_thread::yield();
        MainQueue::shared().async([] {});  // ask again
        return false;
    });
}

/// Waits without running the main queue.
[[nodiscard]] inline bool spinUntil(const std::function<bool()>& predicate,
                                    std::chrono::nanoseconds deadline = std::chrono::seconds(60)) {
    const auto giveUp = std::chrono::steady_clock::now() + deadline;
    while (!predicate() && std::chrono::steady_clock::now() < giveUp) std::this_thread::yield();
    return predicate();
}

}  // namespace vexim::testing
