#include "VexIMLib/internal/Foundation/Text/Base64.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstddef>

#include "VexIMLib/internal/Foundation/Text/ASCII.h"

namespace vexim {
namespace {

// OpenSSL uses int for lengths, so long texts are encoded in pieces of whole groups.
constexpr std::size_t kPieceBytes = 3 << 20;
constexpr std::size_t kPieceCharacters = 4 << 20;

bool isInAlphabet(char c) noexcept {
    return detail::isLetter(c) || detail::isDigit(c) || c == '+' || c == '/';
}

const unsigned char* unsignedBytes(const char* bytes) noexcept {
    return reinterpret_cast<const unsigned char*>(bytes);
}
unsigned char* unsignedBytes(char* bytes) noexcept {
    return reinterpret_cast<unsigned char*>(bytes);
}

}  // namespace

std::string encodeBase64(std::string_view bytes) {
    std::string text((bytes.size() + 2) / 3 * 4, '\0');
    char* to = text.data();
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kPieceBytes))) {
        // OpenSSL writes a NUL after each piece. The next piece overwrites it, or it is the
        // string's own.
        to += EVP_EncodeBlock(unsignedBytes(to), unsignedBytes(bytes.data()),
                              static_cast<int>(std::min(bytes.size(), kPieceBytes)));
    }
    return text;
}

std::optional<std::string> decodeBase64(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::size_t padding = 0;
    while (padding < 2 && !text.empty() && text[text.size() - 1 - padding] == '=') ++padding;
    // OpenSSL skips blanks around the text, takes "-" for its end, and "=" anywhere for zero bits.
    const auto stated = text.substr(0, text.size() - padding);
    if (!std::all_of(stated.begin(), stated.end(), isInAlphabet)) return std::nullopt;
    std::string bytes(text.size() / 4 * 3, '\0');
    char* to = bytes.data();
    for (; !text.empty(); text.remove_prefix(std::min(text.size(), kPieceCharacters))) {
        const int count =
            EVP_DecodeBlock(unsignedBytes(to), unsignedBytes(text.data()),
                            static_cast<int>(std::min(text.size(), kPieceCharacters)));
        if (count < 0) return std::nullopt;
        to += count;
    }
    bytes.resize(bytes.size() - padding);
    return bytes;
}

}  // namespace vexim
