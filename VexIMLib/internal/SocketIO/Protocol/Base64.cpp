#include "VexIMLib/internal/SocketIO/Protocol/Base64.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace vexim {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNotInAlphabet = 0xFF;

constexpr std::array<std::uint8_t, 256> makeReverse() {
    std::array<std::uint8_t, 256> reverse{};
    reverse.fill(kNotInAlphabet);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
        reverse[static_cast<std::uint8_t>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return reverse;
}
constexpr auto kReverse = makeReverse();

}  // namespace

std::string encodeBase64(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 3; ++j) {
            group =
                group << 8 | (i + j < bytes.size() ? static_cast<std::uint8_t>(bytes[i + j]) : 0U);
        }
        for (std::size_t j = 0; j < 4; ++j) {
            text += i + j > bytes.size() ? '=' : kAlphabet[group >> (18 - 6 * j) & 0x3F];
        }
    }
    return text;
}

std::optional<std::string> decodeBase64(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::size_t padding = 0;
    while (padding < 2 && !text.empty() && text[text.size() - 1 - padding] == '=') ++padding;
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const std::size_t missing = i + 4 == text.size() ? padding : 0;
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 4; ++j) {
            const std::uint8_t bits =
                j + missing >= 4 ? 0 : kReverse[static_cast<std::uint8_t>(text[i + j])];
            if (bits == kNotInAlphabet) return std::nullopt;
            group = group << 6 | bits;
        }
        for (std::size_t j = 0; j + missing < 3; ++j)
            bytes += static_cast<char>(group >> (16 - 8 * j) & 0xFF);
    }
    return bytes;
}

}  // namespace vexim
