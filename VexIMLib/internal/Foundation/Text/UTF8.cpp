#include "VexIMLib/internal/Foundation/Text/UTF8.h"

#include <openssl/asn1.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace vexim::detail {

namespace {

bool isASCII(const char* eight) noexcept {
    std::uint64_t word = 0;
    std::memcpy(&word, eight, sizeof(word));
    return (word & 0x8080808080808080) == 0;
}

}  // namespace

std::size_t utf8SequenceLength(std::string_view text) noexcept {
    constexpr std::size_t kLongest = 4;
    unsigned long ignored = 0;
    const int length = ::UTF8_getc(reinterpret_cast<const unsigned char*>(text.data()),
                                   static_cast<int>(std::min(text.size(), kLongest)), &ignored);
    return length > 0 ? static_cast<std::size_t>(length) : 0;
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
