#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vexim {

/// Tells how much of what was received can be given to the WebSocket stream without it running dry. It looks at lengths only;
/// whether frames are sound is the stream's to judge.
class FrameScanner {
public:
    enum class Verdict : std::uint8_t {
        Incomplete,
        Control,   // a control frame stands at the front
        Message,   // a whole message, with the pings and pongs between its fragments, or one that a close cuts short
        TooLarge,  // what is there, or is announced, is over the limit
    };
    struct Result {
        Verdict verdict = Verdict::Incomplete;
        std::size_t bytes = 0;  // of the control frame or message
    };

    explicit FrameScanner(std::size_t maxMessageBytes) : maxBytes_(maxMessageBytes) {}

    /// `buffered` begins where the last whole frame or message ended. After Incomplete, call again with more behind the same bytes.
    Result scan(std::string_view buffered);

private:
    const std::size_t maxBytes_;
    std::size_t scanned_ = 0;  // whole frames of the message at the front
};

}  // namespace vexim
