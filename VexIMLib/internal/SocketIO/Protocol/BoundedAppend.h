#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace vexim {

/// How large a received message may be, with its attachments.
inline constexpr std::size_t kDefaultMaxMessageBytes = std::size_t{16} << 20;

/// Appends to a text that will have at most `most` bytes. A text that has become large reserves all
/// of that at once, which costs memory only where it is written. Doubling it step by step would
/// leave as much again as free blocks in the heap.
inline void appendBounded(std::string& text, std::string_view bytes, std::size_t most) {
    constexpr std::size_t kLarge = std::size_t{1} << 20;
    constexpr std::size_t kRoom = std::size_t{64} << 20;
    const std::size_t needed = text.size() + bytes.size();
    if (needed > text.capacity()) {
        const std::size_t doubled = 2 * text.capacity();
        text.reserve(std::max(
            needed, std::min(doubled > kLarge ? std::max(doubled, kRoom) : doubled, most)));
    }
    text += bytes;
}

}  // namespace vexim
