#pragma once

#include <cstddef>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/JSON.h"

namespace vexim::detail {

/// `parseJSON` for texts of strangers: refuses more than `maxValues` values and keys together. A
/// value takes 16 bytes at least, and two bytes of text make one. Exported for the test kit, as
/// `isValidUTF8` is.
VEXIM_EXPORT JSONResult parseBoundedJSON(std::string_view text, JSONFragments fragments,
                                         std::size_t maxValues);

}  // namespace vexim::detail
