#pragma once

#include <chrono>
#include <functional>

#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim::testing {

/// Runs the main queue until `predicate` holds; false when it does not within real seconds. For what really runs on other
/// threads: the deadline only ends a broken test.
[[nodiscard]] inline bool eventually(const std::function<bool()>& predicate,
                                     std::chrono::nanoseconds deadline = std::chrono::seconds(20)) {
    return MainQueue::shared().runUntil(predicate, deadline);
}

}  // namespace vexim::testing
