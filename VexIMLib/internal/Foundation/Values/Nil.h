#pragma once

#include "VexIMLib/Foundation/Value.h"

namespace vexim::detail {

/// What a reference to "nothing there" refers to. Made before any code runs; destroying a nil does
/// nothing.
extern const Value kNil;

}  // namespace vexim::detail
