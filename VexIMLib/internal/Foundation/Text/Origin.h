#pragma once

#include "VexIMLib/Foundation/URL.h"

namespace vexim::detail {

/// Whether two URLs have the same scheme, host and port (RFC 6454): what one may be told, the other
/// may.
bool haveSameOrigin(const URL& a, const URL& b) noexcept;

}  // namespace vexim::detail
