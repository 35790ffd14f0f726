#pragma once

#include <string_view>

namespace vexim {

/// The platform's words for an HTTP status code, lower case: "not found" for 404, "no error" for
/// 200; for a code that it does not know the words for its class ("server error"), outside 100 to
/// 599 those for the server's.
std::string_view localizedStringForStatusCode(int statusCode) noexcept;

}  // namespace vexim
