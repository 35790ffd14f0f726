#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace vexim {

/// Appends to a text that will have `most` bytes at most. A text that has become large makes room
/// for all of it at once, which costs memory only where it is written to: each doubling on the way
/// would leave its old place to the heap, as much again.
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
