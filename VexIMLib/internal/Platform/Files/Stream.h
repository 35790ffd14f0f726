#pragma once

namespace vexim {

/// The state of a stream. The numbers are the platform's, so "at the end or later" is `>= AtEnd`.
enum class StreamStatus : int {
    NotOpen = 0,
    Opening = 1,
    Open = 2,
    Reading = 3,
    Writing = 4,
    AtEnd = 5,
    Closed = 6,
    Error = 7
};

}  // namespace vexim
