#pragma once

#include <openssl/evp.h>
#include <openssl/sha.h>

#include <array>
#include <string>
#include <string_view>

namespace vexim::bench {

/// The value of Sec-WebSocket-Accept in a server's answer to an opening handshake (RFC 6455,
/// 4.2.2).
inline std::string acceptFor(std::string_view request) {
    const std::string_view name = "Sec-WebSocket-Key: ";
    const auto at = request.find(name) + name.size();
    const std::string salted = std::string(request.substr(at, request.find('\r', at) - at)) +
                               "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    std::array<unsigned char, SHA_DIGEST_LENGTH> digest{};
    SHA1(reinterpret_cast<const unsigned char*>(salted.data()), salted.size(), digest.data());
    std::array<unsigned char, 32> text{};
    EVP_EncodeBlock(text.data(), digest.data(), SHA_DIGEST_LENGTH);
    return reinterpret_cast<const char*>(text.data());
}

/// A server's text frame; up to 64 KiB.
inline std::string frame(std::string_view payload) {
    std::string bytes = "\x81";
    if (payload.size() < 126) {
        bytes += static_cast<char>(payload.size());
    } else {
        bytes +=
            {126, static_cast<char>(payload.size() >> 8), static_cast<char>(payload.size() & 0xFF)};
    }
    return bytes += payload;
}

}  // namespace vexim::bench
