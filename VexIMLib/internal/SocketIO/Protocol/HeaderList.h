#pragma once

#include <string>
#include <utility>
#include <vector>

namespace vexim {

/// HTTP headers, name and value, in the order in which they are sent.
using HeaderList = std::vector<std::pair<std::string, std::string>>;

}  // namespace vexim
