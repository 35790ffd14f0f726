#include "VexIMLib/internal/SocketIO/FrameScanner.h"

#include <cstdint>
#include <optional>
#include <utility>

// The head of a frame (RFC 6455, section 5.2):
//   byte 0   FIN, RSV1..3, opcode (8 bits: 1, 3, 4); opcodes from 8 on are control frames
//   byte 1   mask bit, length: 0..125, 126 (two more bytes), 127 (eight more bytes)
//   then     the longer length, big endian, and four bytes of mask when the mask bit is set
// Example: 81 03 61 62 63 is the text message "abc" in one frame.

namespace vexim {
namespace {

// Heads and control frames around and between the fragments of one message.
constexpr std::size_t kMaxOverhead = 64 * 1024;

struct Frame {
    bool isFinal = false;
    bool isControl = false;
    bool isHeartbeat = false;  // a ping or a pong
    std::size_t headBytes = 0;
    std::uint64_t payloadBytes = 0;
};

std::optional<Frame> readHead(std::string_view bytes) {
    const auto byteAt = [&](std::size_t i) { return static_cast<std::uint8_t>(bytes[i]); };
    if (bytes.size() < 2) return std::nullopt;
    Frame frame;
    frame.isFinal = (byteAt(0) & 0x80) != 0;
    frame.isControl = (byteAt(0) & 0x08) != 0;
    frame.isHeartbeat = (byteAt(0) & 0x0F) == 9 || (byteAt(0) & 0x0F) == 10;
    const unsigned shortLength = byteAt(1) & 0x7F;
    const std::size_t lengthBytes = shortLength == 127 ? 8 : shortLength == 126 ? 2 : 0;
    const std::size_t maskBytes = (byteAt(1) & 0x80) != 0 ? 4 : 0;
    frame.headBytes = 2 + lengthBytes + maskBytes;
    if (bytes.size() < 2 + lengthBytes) return std::nullopt;
    frame.payloadBytes = lengthBytes == 0 ? shortLength : 0;
    for (std::size_t i = 0; i < lengthBytes; ++i) frame.payloadBytes = frame.payloadBytes << 8 | byteAt(2 + i);
    return frame;
}

}  // namespace

FrameScanner::Result FrameScanner::scan(std::string_view buffered) {
    for (;;) {
        const auto frame = readHead(buffered.substr(scanned_));
        if (!frame) return {};
        if (frame->payloadBytes > maxBytes_ || scanned_ + frame->payloadBytes > maxBytes_ + kMaxOverhead) {
            return {Verdict::TooLarge, 0};
        }
        const std::size_t end = scanned_ + frame->headBytes + static_cast<std::size_t>(frame->payloadBytes);
        if (end > buffered.size()) return {};
        if (frame->isControl && scanned_ == 0) return {Verdict::Control, end};
        scanned_ = end;
        // Behind a close no rest of the message comes any more.
        const bool isLast = frame->isControl ? !frame->isHeartbeat : frame->isFinal;
        if (isLast) return {Verdict::Message, std::exchange(scanned_, 0)};
    }
}

}  // namespace vexim
