#pragma once

#include <cstddef>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"

namespace vexim::detail {

/// How many bytes the well-formed UTF-8 sequence at the beginning of `text` takes (Unicode 15,
/// table 3-7: no overlong forms, no surrogates, nothing above U+10FFFF); 0 when there is none.
std::size_t utf8SequenceLength(std::string_view text) noexcept;
/// Exported for the test kit, which compiles the packet codec again, next to the shared library.
VEXIM_EXPORT bool isValidUTF8(std::string_view text) noexcept;

}  // namespace vexim::detail
