#pragma once

#include <cstdint>

#include "VexIMLib/Foundation/Clock.h"

namespace vexim::store {

/// Milliseconds since 1970, as messages carry them.
inline std::int64_t wallMillis() { return static_cast<std::int64_t>(Clock::shared()->wallTime() * 1000.0); }

}  // namespace vexim::store
