#pragma once

#include <cstdint>

namespace vexim::testing {

/// How often the calling thread has taken memory from the heap. A program that asks for it gets
/// counting `operator new`s.
std::int64_t heapAllocations() noexcept;

}  // namespace vexim::testing
