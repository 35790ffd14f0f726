#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace vexim {

/// Appends to a text that will have `most` bytes at most. Its memory doubles only up to there: a text of 16 MiB that grows by a
/// byte beyond a power of two would take 48 while it moves.
inline void appendBounded(std::string& text, std::string_view bytes, std::size_t most) {
    const std::size_t needed = text.size() + bytes.size();
    if (needed > text.capacity()) text.reserve(std::max(needed, std::min(2 * text.capacity(), most)));
    text += bytes;
}

}  // namespace vexim
