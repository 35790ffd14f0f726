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

/// A URL for use in errors, without anything that may contain credentials: user and password, a
/// path that contains a URL, and (unless kept) the query.
std::string failingURLText(const URL& url, FailingQuery query = FailingQuery::Redacted);

/// Makes an error in NSURLErrorDomain with its published description, the failing URL (if given),
/// and a technical `detail` (if given) under "NSDebugDescription".
ErrorPtr makeURLError(std::int64_t code, const std::optional<URL>& url = std::nullopt,
                      std::string_view detail = {});

/// The same for a TLS failure, with `words` as the description. The live connection uses the same
/// words.
ErrorPtr makeTrustError(std::int64_t code, const std::optional<URL>& url, std::string_view words);

/// The URL loading code for a result of libcurl (a CURLcode). The codes for refused certificates
/// come from the trust check.
std::int64_t urlErrorCodeForTransferResult(int result) noexcept;

}  // namespace vexim
