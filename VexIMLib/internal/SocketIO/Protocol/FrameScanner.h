#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vexim {

/// Finds the frames of a server in what was received, and judges each by its first bytes: a broken
/// one is not waited for.
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
        Incomplete,  // sound so far
        Whole,
        Malformed,
        TooLarge,  // the message is over the limit, or announces it
    };
    struct Result {
        Verdict verdict = Verdict::Incomplete;
        Opcode opcode = Opcode::Text;
        bool isFinal = false;
        bool isCompressed = false;  // a message's first frame says so for all
        std::size_t headBytes = 0;
        std::size_t bytes = 0;      // with the head; also when incomplete, once that is known
        const char* why = nullptr;  // when malformed

        bool isControl() const noexcept { return opcode >= Opcode::Close; }
    };

    explicit FrameScanner(std::size_t maxMessageBytes) : maxBytes_(maxMessageBytes) {}

    /// permessage-deflate (RFC 7692) was agreed on.
    void allowCompression() { allowsCompression_ = true; }

    /// `buffered` begins where the last whole frame ended. After Incomplete, call again with more
    /// behind the same bytes.
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
