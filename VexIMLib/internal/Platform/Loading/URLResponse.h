#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/internal/Platform/Loading/HTTPHeaderFields.h"

namespace vexim {

/// The head of an HTTP answer. Immutable once shared.
struct HTTPURLResponse {
    URL url;
    int statusCode = 0;
    HTTPHeaderFields headers;
    /// The bytes of the body as the delegate will get them; -1 when unknown, as for chunked and
    /// compressed answers.
    std::int64_t expectedContentLength = -1;
};
using HTTPURLResponsePtr = std::shared_ptr<const HTTPURLResponse>;

}  // namespace vexim
