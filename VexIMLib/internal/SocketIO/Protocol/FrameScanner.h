#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vexim {

/// Finds a server's frames in the received bytes. It checks each one by its first bytes, so it does
/// not wait for the rest of a malformed one.
class FrameScanner {
public:
    /// RFC 6455, section 5.2.
    enum class Opcode : std::uint8_t {
        Continuation = 0,
        Text = 1,
        Binary = 2,
        Close = 8,
        Ping = 9,
        Pong = 10
    };
    enum class Verdict : std::uint8_t {
        Incomplete,  // correct so far
        Whole,
        Malformed,
        TooLarge,  // the message is too long, or says that it will be
    };
    struct Result {
        Verdict verdict = Verdict::Incomplete;
        Opcode opcode = Opcode::Text;
        bool isFinal = false;
        bool isCompressed = false;  // set in the first frame of a message
        std::size_t headBytes = 0;
        std::size_t bytes = 0;      // with the header; also when incomplete, once it is known
        const char* why = nullptr;  // when malformed

        bool isControl() const noexcept { return opcode >= Opcode::Close; }
    };

    explicit FrameScanner(std::size_t maxMessageBytes) : maxBytes_(maxMessageBytes) {}

    /// permessage-deflate (RFC 7692) was negotiated.
    void allowCompression() { allowsCompression_ = true; }

    /// `buffered` begins after the last whole frame. After Incomplete, call again with more bytes
    /// after the same ones.
    Result scan(std::string_view buffered);

private:
    const char* faultOfHead(std::uint8_t first) const;

    const std::size_t maxBytes_;
    bool allowsCompression_ = false;
    // The message that has begun.
    bool isInside_ = false;
    std::size_t payloadBytes_ = 0;
    std::size_t headBytes_ = 0;
};

}  // namespace vexim
