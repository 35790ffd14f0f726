#pragma once

#include <cstdint>

namespace vexim::testing {

/// How often the calling thread has allocated memory. Programs that use this get counting `operator
/// new`s.
std::int64_t heapAllocations() noexcept;

}  // namespace vexim::testing
