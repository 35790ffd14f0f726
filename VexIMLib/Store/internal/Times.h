#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "VexIMLib/Foundation/Clock.h"

namespace vexim::store {

/// Milliseconds since 1970, as in messages.
inline std::int64_t wallMillis() {
    return static_cast<std::int64_t>(Clock::shared()->wallTime() * 1000.0);
}

/// The wait before the next attempt, after so many earlier failures: 1, 2, 4 … 60 seconds.
inline std::chrono::seconds pauseAfter(int failures) {
    return std::min(std::chrono::seconds(60), std::chrono::seconds(1 << std::min(failures, 6)));
}

}  // namespace vexim::store
