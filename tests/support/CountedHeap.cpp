#include "support/CountedHeap.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {
thread_local std::int64_t allocations = 0;
}

// Not inlined, because GCC would otherwise warn that the two do not match.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace vexim::testing {

std::int64_t heapAllocations() noexcept { return allocations; }

}  // namespace vexim::testing
