#include "support/LivePeer.h"

#include <openssl/evp.h>
#include <openssl/sha.h>

#include <array>
#include <cstddef>

namespace vexim::testing {

std::string LivePeer::acceptKeyFor(const WireRequest& request) {
    // RFC 6455, 4.2.2
    const std::string text =
        request.header("Sec-WebSocket-Key") + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    std::array<unsigned char, SHA_DIGEST_LENGTH> digest{};
    SHA1(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
    std::array<unsigned char, 4 * ((SHA_DIGEST_LENGTH + 2) / 3) + 1> encoded{};
    const int length = EVP_EncodeBlock(encoded.data(), digest.data(), SHA_DIGEST_LENGTH);
    return std::string(reinterpret_cast<const char*>(encoded.data()),
                       static_cast<std::size_t>(length));
}

bool LivePeer::acceptWebSocket(std::string_view fields, std::string_view behind) {
    if (!request_) request_ = connection_.readHead();
    if (!request_) return false;
    return connection_.write(
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
        acceptKeyFor(*request_) + "\r\n" + std::string(fields) + "\r\n" + std::string(behind));
}

bool LivePeer::open(std::string_view openPacket) {
    return acceptWebSocket({}, frame(Text, openPacket));
}

bool LivePeer::join() {
    if (!open()) return false;
    const auto text = readText();  // 40/chat,
    if (!text || !text->starts_with("40")) return false;
    nsp_ = text->substr(2, text->find(',') - 2);
    return sendText("40" + nsp_ + R"(,{"sid":"s2"})");
}

std::string LivePeer::eventText(std::string_view event, std::string_view argument) const {
    return "42" + nsp_ + ",[\"" + std::string(event) + "\"," + std::string(argument) + "]";
}

std::optional<std::string> LivePeer::readText() {
    while (auto frame = readFrame()) {
        if (frame->opcode == Close) return std::nullopt;
        if (frame->opcode == Text && frame->payload != "3") return std::move(frame->payload);
    }
    return std::nullopt;
}

bool LivePeer::beat() {
    if (!sendText("2")) return false;
    while (auto frame = readFrame()) {
        if (frame->opcode == Text && frame->payload == "3") return true;
    }
    return false;
}

void LivePeer::waitForClose() {
    while (readText()) continue;
    connection_.waitForClose();
}

std::string LivePeer::frame(Opcode opcode, std::string_view payload,
                            std::optional<unsigned char> first) {
    std::string bytes(1, static_cast<char>(first.value_or(0x80 | opcode)));
    if (payload.size() < 126) {
        bytes += static_cast<char>(payload.size());
    } else {
        const bool isLong = payload.size() > 0xFFFF;
        bytes += static_cast<char>(isLong ? 127 : 126);
        for (int shift = isLong ? 56 : 8; shift >= 0; shift -= 8)
            bytes += static_cast<char>(payload.size() >> shift);
    }
    return bytes.append(payload);
}

bool LivePeer::need(std::size_t count) {
    while (buffer_.size() < count) {
        const std::string more = connection_.readSome();
        if (more.empty()) return false;
        buffer_ += more;
    }
    return true;
}

std::optional<LivePeer::Frame> LivePeer::readFrame() {
    if (!need(2)) return std::nullopt;
    const auto byte = [this](std::size_t at) { return static_cast<unsigned char>(buffer_[at]); };
    std::size_t length = byte(1) & 0x7F;
    std::size_t head = 2;
    if (length >= 126) {
        const std::size_t bytes = length == 126 ? 2 : 8;
        if (!need(2 + bytes)) return std::nullopt;
        length = 0;
        for (std::size_t i = 0; i < bytes; ++i) length = length << 8 | byte(2 + i);
        head += bytes;
    }
    const bool isMasked = (byte(1) & 0x80) != 0;
    if (isMasked) head += 4;
    if (!need(head + length)) return std::nullopt;
    Frame frame{static_cast<unsigned char>(byte(0) & 0x0F), buffer_.substr(head, length)};
    for (std::size_t i = 0; isMasked && i < length; ++i)
        frame.payload[i] = static_cast<char>(frame.payload[i] ^ buffer_[head - 4 + i % 4]);
    buffer_.erase(0, head + length);
    return frame;
}

}  // namespace vexim::testing
