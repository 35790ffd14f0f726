#pragma once

#include <string_view>

#include "VexIMLib/Foundation/Value.h"

namespace vexim {

/// Reads the whole `text` as a number, like a formatter of the decimal style: an integer if it fits
/// in 64 bits, otherwise a real. A point separates decimals, and commas may group the digits before
/// it in threes. Blanks around it are ignored. nil if the text is not a number.
Value numberFromString(std::string_view text);

}  // namespace vexim
