#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/URL.h"

namespace vexim {

/// The published description of a URL loading code, for instance "The request timed out." for
/// -1001.
std::string_view urlErrorDescription(std::int64_t code) noexcept;

enum class FailingQuery { Redacted, Kept };

/// A URL as errors name it: without what may hold credentials (user and password, a path with a URL
/// in it, and the query unless it is to be kept).
std::string failingURLText(const URL& url, FailingQuery query = FailingQuery::Redacted);

/// An error in NSURLErrorDomain with its published description and, when given, the failing URL and
/// a technical `detail` under "NSDebugDescription".
ErrorPtr makeURLError(std::int64_t code, const std::optional<URL>& url = std::nullopt,
                      std::string_view detail = {});

/// The same for what TLS found, with `words` as its description: the live connection says the same.
ErrorPtr makeTrustError(std::int64_t code, const std::optional<URL>& url, std::string_view words);

/// The URL loading code for a result of the transfer library (a CURLcode). What a trust decides has
/// its code from there.
std::int64_t urlErrorCodeForTransferResult(int result) noexcept;

}  // namespace vexim
