#pragma once

#include <atomic>
#include <cstddef>

namespace vexim::detail {

/// The header of every memory block that values share: the number of its owners, which may be on
/// any thread. The first owner need not `retain`. A block that is shared must not be written: copy
/// it first. Applications do not use it; it is here because `Value` counts inline.
struct Counted {
    /// At least 1 as long as the block lives.
    std::atomic<std::size_t> references{1};

    /// Adds an owner. Only an owner may call it, so the count cannot be 0 meanwhile.
    void retain() noexcept { references.fetch_add(1, std::memory_order_relaxed); }
    /// Returns true if the caller was the last owner and must destroy the block. What the other
    /// owners did with it is then visible to this thread.
    bool release() noexcept {
        // The only owner needs no read-modify-write: nobody else can take a reference.
        return references.load(std::memory_order_acquire) == 1 ||
               references.fetch_sub(1, std::memory_order_acq_rel) == 1;
    }
    /// Whether a write needs a copy first. If this returns false, it stays false: nobody but the
    /// caller could add an owner.
    bool isShared() const noexcept { return references.load(std::memory_order_acquire) != 1; }
};

}  // namespace vexim::detail
