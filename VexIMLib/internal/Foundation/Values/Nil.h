#pragma once

#include "VexIMLib/Foundation/Value.h"

namespace vexim::detail {

/// The nil that a reference to a missing value refers to. Initialised before any code runs, and
/// destroying it does nothing.
extern const Value kNil;

}  // namespace vexim::detail
