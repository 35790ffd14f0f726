#pragma once

#include <openssl/sha.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/internal/SocketIO/Base64.h"
#include "support/ScriptedServer.h"

namespace vexim::testing {

/// The server's side of a WebSocket, byte by byte, so that a script can get any of it wrong.
class WebSocketPeer {
public:
    explicit WebSocketPeer(ScriptedServer::Connection& connection) : connection_(connection) {}

    static std::string acceptFor(const std::string& key) {
        const std::string salted = key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";  // RFC 6455, section 1.3
        std::array<unsigned char, SHA_DIGEST_LENGTH> digest{};
        SHA1(reinterpret_cast<const unsigned char*>(salted.data()), salted.size(), digest.data());
        return encodeBase64({reinterpret_cast<const char*>(digest.data()), digest.size()});
    }

    static std::string frame(std::string_view payload, std::uint8_t first = 0x81) {
        std::string bytes(1, static_cast<char>(first));
        if (payload.size() < 126) {
            bytes += static_cast<char>(payload.size());
        } else {
            bytes += '\x7f';
            for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(payload.size() >> shift & 0xFF);
        }
        return bytes += payload;
    }

    /// Answers the handshake; `behind` follows in the same write.
    bool accept(std::string_view behind = {}) {
        const auto request = connection_.readHead();
        if (!request) return false;
        target = request->target;
        return connection_.write(
            "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
            acceptFor(request->header("Sec-WebSocket-Key")) + "\r\n\r\n" + std::string(behind));
    }

    bool send(std::string_view text) { return connection_.write(frame(text)); }

    /// The next message's payload, unmasked; close frames read as "close". nullopt when the client is gone.
    std::optional<std::string> next() {
        for (;;) {
            if (auto message = take()) return message;
            const std::string more = connection_.readSome();
            if (more.empty()) return std::nullopt;
            received_ += more;
        }
    }

    /// Open packet, join, answer: as a server of revision 4.
    bool join() {
        if (!accept(frame(R"(0{"sid":"s1","upgrades":[],"pingInterval":25000,"pingTimeout":20000,"maxPayload":1000000})")))
            return false;
        const auto wanted = next();
        return wanted && wanted->starts_with("40") && send(wanted->substr(0, wanted->find('{')) + R"({"sid":"x"})");
    }

    std::string target;

private:
    std::optional<std::string> take() {
        if (received_.size() < 6) return std::nullopt;
        const auto byteAt = [&](std::size_t i) { return static_cast<std::uint8_t>(received_[i]); };
        std::size_t length = byteAt(1) & 0x7F;
        std::size_t at = 2;
        const std::size_t extra = length == 127 ? 8 : length == 126 ? 2 : 0;
        if (received_.size() < 6 + extra) return std::nullopt;
        if (extra > 0) length = 0;
        for (std::size_t i = 0; i < extra; ++i) length = length << 8 | byteAt(at++);
        if (received_.size() < at + 4 + length) return std::nullopt;
        std::string payload = received_.substr(at + 4, length);
        for (std::size_t i = 0; i < length; ++i) payload[i] = static_cast<char>(payload[i] ^ received_[at + i % 4]);
        if ((byteAt(0) & 0x0F) == 8) payload = "close";
        received_.erase(0, at + 4 + length);
        return payload;
    }

    ScriptedServer::Connection& connection_;
    std::string received_;
};

}  // namespace vexim::testing
