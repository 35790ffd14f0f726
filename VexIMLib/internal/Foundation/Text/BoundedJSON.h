#pragma once

#include <cstddef>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/JSON.h"

namespace vexim::detail {

/// `parseJSON` for untrusted text: refuses more than `maxValues` values and keys in all. Each value
/// takes at least 16 bytes of memory but may need only two bytes of text. Exported for the test
/// kit, like `isValidUTF8`.
VEXIM_EXPORT JSONResult parseBoundedJSON(std::string_view text, JSONFragments fragments,
                                         std::size_t maxValues);

}  // namespace vexim::detail
