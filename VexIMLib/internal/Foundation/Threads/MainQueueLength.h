#pragma once

#include <cstddef>

namespace vexim::detail {

/// How many functions are in line on the main queue: not those for a later time, and not the one
/// that runs. Events of a connection that arrived together count as one. Call from any thread.
std::size_t mainQueueLength();

}  // namespace vexim::detail
