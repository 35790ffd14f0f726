#pragma once

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <fstream>
#include <string>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VEXIM_TESTS_SANITIZED 1
// GCC's sanitizers have these functions, but it does not install their header.
extern "C" int __sanitizer_install_malloc_and_free_hooks(
    void (*didAllocate)(const volatile void* memory, std::size_t size),
    void (*willFree)(const volatile void* memory));
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void* memory);
#endif

namespace vexim::testing {

/// How far the resident memory of the process has grown at most. Sanitizers keep freed memory, so
/// under them it counts what is allocated on the heap.
class PeakMemory {
public:
#ifdef VEXIM_TESTS_SANITIZED
    static constexpr bool kIsSanitized = true;
#else
    static constexpr bool kIsSanitized = false;
#endif

    PeakMemory() : start_(begin()) {}
    double grownMiB() const { return static_cast<double>(peak() - start_) / (1 << 20); }
    /// What has not been released. Without a sanitizer the same as `grownMiB`, because the heap
    /// keeps some freed memory.
    double leftMiB() const {
        return kIsSanitized ? static_cast<double>(inUse() - start_) / (1 << 20) : grownMiB();
    }

    /// The bytes allocated on the heap; without a sanitizer, only in the main thread's arena.
    static long long inUse();

private:
    static long long begin();
    static long long peak();
    const long long start_;
};

#ifdef VEXIM_TESTS_SANITIZED

namespace detail {

// Relaxed, because a stronger order would also order the threads and hide their races from tsan.
inline std::atomic<long long> heapBytes{0};
inline std::atomic<long long> heapPeak{0};

inline bool countHeap() {
    static const bool counts =
        __sanitizer_install_malloc_and_free_hooks(
            [](const volatile void*, std::size_t size) {
                const auto bytes = static_cast<long long>(size);
                const auto now = heapBytes.fetch_add(bytes, std::memory_order_relaxed) + bytes;
                auto most = heapPeak.load(std::memory_order_relaxed);
                while (now > most &&
                       !heapPeak.compare_exchange_weak(most, now, std::memory_order_relaxed))
                    continue;
            },
            [](const volatile void* memory) {
                if (!memory) return;
                const auto bytes = static_cast<long long>(__sanitizer_get_allocated_size(memory));
                heapBytes.fetch_sub(bytes, std::memory_order_relaxed);
            }) != 0;
    return counts;
}

}  // namespace detail

inline long long PeakMemory::inUse() {
    detail::countHeap();
    return detail::heapBytes;
}
inline long long PeakMemory::begin() {
    const auto now = inUse();
    detail::heapPeak = now;
    return now;
}
inline long long PeakMemory::peak() { return detail::heapPeak; }

#else

namespace detail {

inline long long statusBytes(const std::string& key) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        long long kibibytes = 0;
        if (word == key && status >> kibibytes) return kibibytes * 1024;
    }
    return 0;
}

}  // namespace detail

inline long long PeakMemory::inUse() { return static_cast<long long>(mallinfo2().uordblks); }
inline long long PeakMemory::begin() {
    std::ofstream("/proc/self/clear_refs") << "5";  // forgets the peak so far
    return detail::statusBytes("VmRSS:");
}
inline long long PeakMemory::peak() { return detail::statusBytes("VmHWM:"); }

#endif

}  // namespace vexim::testing
