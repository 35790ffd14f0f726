#pragma once

#include <optional>
#include <string>

namespace vexim {

/// One sort key and its direction, for `VXIMQuery`. Without a key it has no effect. Of several
/// descriptors, the first decides, the next one among equals, and so on.
struct SortDescriptor {
    std::optional<std::string> key;  // an attribute's name
    bool ascending = true;           // smallest first
};

}  // namespace vexim
