#pragma once

#include <string_view>

#include "VexIMLib/Foundation/Value.h"

namespace vexim {

/// The number that a formatter of the decimal style reads from the whole of `text`: an integer
/// where it is one in 64 bits, else a real. A point separates decimals, commas may group whole
/// digits in threes; blanks around it are passed over. nil when the text is no number.
Value numberFromString(std::string_view text);

}  // namespace vexim
