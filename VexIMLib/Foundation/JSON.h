#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim {

/// Nesting beyond this is refused, both ways.
inline constexpr std::size_t kJSONMaxDepth = 512;

enum class JSONFragments { Refuse, Allow };

/// What reading gave: the value, or nil and the error that names the offset.
struct JSONResult {
    Value value;
    ErrorPtr error;
};

/// Reads one JSON text (RFC 8259, strict; UTF-8). A bare scalar at the top level is refused unless fragments are allowed.
/// An unpaired surrogate escape becomes U+FFFD. Integers up to 64 bits stay exact; larger ones become reals.
/// A repeated key: the last one wins. Errors: "NSCocoaErrorDomain" 3840.
VEXIM_EXPORT JSONResult parseJSON(std::string_view text, JSONFragments fragments = JSONFragments::Refuse);

struct JSONText {
    std::string text;
    ErrorPtr error;
};

/// Writes compact JSON, entries in insertion order. Refuses nil, NaN, infinity, data, objects, broken UTF-8, depth beyond
/// the bound, and a scalar at the top level unless fragments are allowed. Errors: "NSCocoaErrorDomain" 3851.
VEXIM_EXPORT JSONText writeJSON(const Value& value, JSONFragments fragments = JSONFragments::Refuse);

}  // namespace vexim
