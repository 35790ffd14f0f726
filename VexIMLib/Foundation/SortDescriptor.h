#pragma once

#include <optional>
#include <string>

namespace vexim {

/// One sort key and its direction, for `VXIMQuery`. Without a key it has no effect. Of several
/// descriptors, the first decides, the next one among equals, and so on.
///
///     query->orderBySortDescriptor({.key = "name", .ascending = false});
struct SortDescriptor {
    /// An attribute's name, as in `VXIMQuery::orderByAscending`; nullopt sorts nothing.
    std::optional<std::string> key;
    /// Smallest first.
    bool ascending = true;
};

}  // namespace vexim
