#include "VexIMLib/internal/SocketIO/Protocol/FrameScanner.h"

// The head of a frame (RFC 6455, section 5.2):
//   byte 0   FIN, RSV1..3, opcode (8 bits: 1, 3, 4); opcodes from 8 on are control frames
//   byte 1   mask bit, length: 0..125, 126 (two more bytes), 127 (eight more bytes)
//   then     the longer length, big endian, in the shortest form
//
// Servers do not mask. Control frames have at most 125 bytes, are not fragmented, and may come
// between the fragments of a message. Example: 81 03 61 62 63 is the text message "abc".

namespace vexim {
namespace {

constexpr std::uint8_t kFinal = 0x80;
constexpr std::uint8_t kCompressed = 0x40;  // RSV1 (RFC 7692, section 6)
constexpr std::uint8_t kReserved = 0x30;
constexpr std::uint8_t kMasked = 0x80;
constexpr std::size_t kMaxControlBytes = 125;
// Limits the fragments of one message by the bytes of their heads. Otherwise a server could send
// empty fragments without end.
constexpr std::size_t kMaxHeadBytes = 64 * 1024;

bool isControl(std::uint8_t first) { return (first & 0x08) != 0; }

}  // namespace

const char* FrameScanner::faultOfHead(std::uint8_t first) const {
    const unsigned opcode = first & 0x0F;
    if ((opcode > 2 && opcode < 8) || opcode > 10) return "an unknown opcode";
    const bool mayBeCompressed = allowsCompression_ && (opcode == 1 || opcode == 2);
    if ((first & kReserved) != 0 || ((first & kCompressed) != 0 && !mayBeCompressed))
        return "a reserved bit is set";
    if (isControl(first)) return (first & kFinal) != 0 ? nullptr : "a control frame in fragments";
    if (isInside_ != (opcode == 0))
        return isInside_ ? "a new message inside another"
                         : "a continuation frame without a message";
    return nullptr;
}

FrameScanner::Result FrameScanner::scan(std::string_view buffered) {
    const auto byteAt = [&](std::size_t i) { return static_cast<std::uint8_t>(buffered[i]); };
    Result result;
    const auto malformed = [&result](const char* why) {
        result.verdict = Verdict::Malformed;
        result.why = why;
        return result;
    };
    if (buffered.empty()) return result;
    const std::uint8_t first = byteAt(0);
    if (const char* why = faultOfHead(first)) return malformed(why);
    if (buffered.size() < 2) return result;
    if ((byteAt(1) & kMasked) != 0) return malformed("a masked frame");
    const unsigned shortLength = byteAt(1) & 0x7F;
    if (isControl(first) && shortLength > kMaxControlBytes)
        return malformed("a control frame that is too long");

    const std::size_t lengthBytes = shortLength == 127 ? 8 : shortLength == 126 ? 2 : 0;
    result.headBytes = 2 + lengthBytes;
    if (buffered.size() < result.headBytes) return result;
    std::uint64_t length = lengthBytes == 0 ? shortLength : 0;
    for (std::size_t i = 0; i < lengthBytes; ++i) length = length << 8 | byteAt(2 + i);
    if ((lengthBytes == 2 && length < 126) || (lengthBytes == 8 && length <= 0xFFFF)) {
        return malformed("a length that is not in the shortest form");
    }
    result.opcode = static_cast<Opcode>(first & 0x0F);
    result.isFinal = (first & kFinal) != 0;
    result.isCompressed = (first & kCompressed) != 0;
    const bool isData = !result.isControl();
    if (isData && (length > maxBytes_ - payloadBytes_ || headBytes_ > kMaxHeadBytes)) {
        result.verdict = Verdict::TooLarge;
        return result;
    }
    result.bytes = result.headBytes + static_cast<std::size_t>(length);
    if (result.bytes > buffered.size()) return result;
    result.verdict = Verdict::Whole;
    if (isData) {
        isInside_ = !result.isFinal;
        payloadBytes_ = isInside_ ? payloadBytes_ + static_cast<std::size_t>(length) : 0;
        headBytes_ = isInside_ ? headBytes_ + result.headBytes : 0;
    }
    return result;
}

}  // namespace vexim
