#pragma once

#include <string>

#include "VexIMLib/Foundation/Value.h"

namespace vexim::detail {

/// Appends what `%@` prints for `value`. Nesting beyond `kJSONMaxDepth` is shown as "…".
void describe(const Value& value, std::string& text);

}  // namespace vexim::detail
