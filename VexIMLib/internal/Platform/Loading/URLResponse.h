#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/internal/Platform/Loading/HTTPHeaderFields.h"

namespace vexim {

/// The status and the header of an HTTP answer. Immutable once shared.
struct HTTPURLResponse {
    URL url;
    int statusCode = 0;
    HTTPHeaderFields headers;
    /// The length of the body that the delegate will get; -1 if unknown, as for chunked and
    /// compressed answers.
    std::int64_t expectedContentLength = -1;
};
using HTTPURLResponsePtr = std::shared_ptr<const HTTPURLResponse>;

}  // namespace vexim
