#pragma once

#include <cstddef>
#include <string_view>

#include "VexIMLib/internal/Platform/Loading/URLResponse.h"

namespace vexim {

/// Reads the header of an answer line by line. Leaves out interim answers and trailers.
class AnswerHead {
public:
    /// Takes the next line. Returns true for the empty line that ends a header, which may be that
    /// of an interim answer.
    bool add(std::string_view line);
    /// To be called when the header has ended and `status` is not that of an interim answer.
    /// Returns nullptr if the stated lengths contradict each other.
    HTTPURLResponsePtr finish(const URL& url, int status);

    bool isComplete() const noexcept { return isComplete_; }
    bool isTooLong() const noexcept;
    /// The bytes of all lines so far.
    std::size_t bytes() const noexcept { return bytes_; }

private:
    HTTPHeaderFields fields_;
    std::size_t bytes_ = 0;
    bool isComplete_ = false;
};

}  // namespace vexim
