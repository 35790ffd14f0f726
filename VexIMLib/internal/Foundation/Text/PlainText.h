#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

namespace vexim::detail {

// Whether all eight bytes are plain characters.
inline bool isPlainWord(std::uint64_t word) noexcept {
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    const auto below = [](std::uint64_t bytes, std::uint64_t bound) {
        return (bytes - kOnes * bound) & ~bytes;
    };
    // With this bit flipped, the quote is right above the control characters, and the two
    // characters in between move up.
    const auto controlOrQuote = below(word ^ kOnes * 2, 0x21);
    const auto backslash = below(word ^ kOnes * '\\', 1);
    return ((word | controlOrQuote | backslash) & kHighBits) == 0;
}

template <class Word>
Word load(const char* from) noexcept {
    Word word;
    std::memcpy(&word, from, sizeof(word));
    return word;
}

/// Copies a text that needs no escapes in JSON (ASCII without control characters, quotes and
/// backslashes), eight bytes at a time, and returns the end of the copy. Returns nullptr at the
/// first other byte. The last bytes are copied together with some earlier ones instead of one by
/// one.
inline char* copyPlain(std::string_view text, char* to) noexcept {
    const char* at = text.data();
    const char* const end = at + text.size();
    if (text.size() >= 8) {
        for (; end - at > 8; at += 8, to += 8) {
            const auto word = load<std::uint64_t>(at);
            if (!isPlainWord(word)) return nullptr;
            std::memcpy(to, &word, sizeof word);
        }
        const auto word = load<std::uint64_t>(end - 8);
        if (!isPlainWord(word)) return nullptr;
        to += end - at;
        std::memcpy(to - 8, &word, sizeof word);
        return to;
    }
    if (text.size() >= 4) {
        const auto first = load<std::uint32_t>(at);
        const auto last = load<std::uint32_t>(end - 4);
        if (!isPlainWord(std::uint64_t{first} << 32 | last)) return nullptr;
        std::memcpy(to, &first, sizeof first);
        to += text.size();
        std::memcpy(to - 4, &last, sizeof last);
        return to;
    }
    for (; at != end; ++at, ++to) {
        const auto c = static_cast<unsigned char>(*at);
        if (c < 0x20 || c >= 0x80 || c == '"' || c == '\\') return nullptr;
        *to = *at;
    }
    return to;
}

}  // namespace vexim::detail
