#pragma once

#include <optional>

#include "VexIMLib/internal/Platform/Loading/URLRequest.h"
#include "VexIMLib/internal/Platform/Loading/URLResponse.h"

namespace vexim {

/// The request that a redirection asks for (RFC 9110, 15.4): a GET without a body after 303, and
/// after 301 and 302 to a POST; otherwise the same request again. Credentials are not sent to
/// another origin. nullopt if the answer is not a redirection.
std::optional<URLRequest> redirectedRequest(const URLRequest& request,
                                            const HTTPURLResponse& response);

}  // namespace vexim
