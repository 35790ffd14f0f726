#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace vexim {

/// A positive count of bytes that a peer or an application names, cut to half of what the machine
/// can address: so that 4 GiB are no 0 where a size has 32 bits, and a head's bytes can be added.
constexpr std::size_t byteCount(std::int64_t named) noexcept {
    constexpr std::uint64_t kMost = std::numeric_limits<std::size_t>::max() / 2;
    return static_cast<std::size_t>(std::min(static_cast<std::uint64_t>(named), kMost));
}

}  // namespace vexim
