#pragma once

#include "VexIMLib/Foundation/URL.h"

namespace vexim::detail {

/// Whether two URLs have the same scheme, host and port (RFC 6454). Then what may be sent to one
/// may also be sent to the other.
bool haveSameOrigin(const URL& a, const URL& b) noexcept;

}  // namespace vexim::detail
