#pragma once

#include <string_view>

namespace vexim {

/// The platform's words for an HTTP status code, lower case: "not found" for 404, "no error" for
/// 200; for an unknown code the words for its class ("server error"), and for codes outside 100 to
/// 599 those for a server error.
std::string_view localizedStringForStatusCode(int statusCode) noexcept;

}  // namespace vexim
