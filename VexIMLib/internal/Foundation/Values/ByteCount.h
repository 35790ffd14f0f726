#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace vexim {

/// Converts a positive count of bytes, which a peer or the application chose, to a size. The result
/// is at most half of what the machine can address: where sizes have 32 bits, 4 GiB must not become
/// 0, and the bytes of a header must still fit.
constexpr std::size_t byteCount(std::int64_t named) noexcept {
    constexpr std::uint64_t kMost = std::numeric_limits<std::size_t>::max() / 2;
    return static_cast<std::size_t>(std::min(static_cast<std::uint64_t>(named), kMost));
}

}  // namespace vexim
