#include "VexIMLib/internal/Foundation/Text/UTF8.h"

#include <cstdint>
#include <cstring>

namespace vexim::detail {

namespace {

bool isBetween(unsigned char byte, unsigned least, unsigned most) noexcept {
    return byte >= least && byte <= most;
}
bool isASCII(const char* eight) noexcept {
    std::uint64_t word = 0;
    std::memcpy(&word, eight, sizeof(word));
    return (word & 0x8080808080808080) == 0;
}
bool isContinuation(unsigned char byte) noexcept { return (byte & 0xC0) == 0x80; }

}  // namespace

std::size_t utf8SequenceLength(std::string_view text) noexcept {
    if (text.empty()) return 0;
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = at(0);
    if (lead < 0x80) return 1;
    if (isBetween(lead, 0xC2, 0xDF)) return text.size() >= 2 && isContinuation(at(1)) ? 2 : 0;
    if (isBetween(lead, 0xE0, 0xEF)) {
        if (text.size() < 3 || !isContinuation(at(1)) || !isContinuation(at(2))) return 0;
        if (lead == 0xE0 && at(1) < 0xA0) return 0;
        if (lead == 0xED && at(1) > 0x9F) return 0;
        return 3;
    }
    if (isBetween(lead, 0xF0, 0xF4)) {
        if (text.size() < 4 || !isContinuation(at(1)) || !isContinuation(at(2)) ||
            !isContinuation(at(3)))
            return 0;
        if (lead == 0xF0 && at(1) < 0x90) return 0;
        if (lead == 0xF4 && at(1) > 0x8F) return 0;
        return 4;
    }
    return 0;
}

bool isValidUTF8(std::string_view text) noexcept {
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end) {
        // Most text is ASCII: check eight characters at a time.
        while (end - at >= 8 && isASCII(at)) at += 8;
        if (at == end) return true;
        const auto length = utf8SequenceLength({at, static_cast<std::size_t>(end - at)});
        if (length == 0) return false;
        at += length;
    }
    return true;
}

}  // namespace vexim::detail
