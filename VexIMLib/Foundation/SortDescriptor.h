#pragma once

#include <optional>
#include <string>

namespace vexim {

/// One sort key and its direction. Without a key it has no effect.
struct SortDescriptor {
    std::optional<std::string> key;  // an attribute's name
    bool ascending = true;           // smallest first
};

}  // namespace vexim
