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

/// Whether a text may be a bare scalar, such as `5` or `"a"`.
enum class JSONFragments { Refuse, Allow };

/// What reading gave: the value, or nil and the error that names the offset.
struct JSONResult {
    Value value;     // nil after an error, never otherwise
    ErrorPtr error;  // nullptr after a success
};

/// Reads one JSON text (RFC 8259, strict; UTF-8). A bare scalar at the top level is refused unless
/// fragments are allowed. An unpaired surrogate escape becomes U+FFFD. Integers up to 64 bits stay
/// exact; larger ones become reals. A repeated key: the last one wins. Errors: "NSCocoaErrorDomain"
/// 3840.
VEXIM_EXPORT JSONResult parseJSON(std::string_view text,
                                  JSONFragments fragments = JSONFragments::Refuse);

/// What writing gave: the text, or none and the error.
struct JSONText {
    std::string text;  // empty after an error
    ErrorPtr error;    // nullptr after a success
};

/// Writes compact JSON, entries in insertion order. Refuses nil, NaN, infinity, data, objects,
/// broken UTF-8, depth beyond the bound, and a scalar at the top level unless fragments are
/// allowed. Errors: "NSCocoaErrorDomain" 3851.
VEXIM_EXPORT JSONText writeJSON(const Value& value,
                                JSONFragments fragments = JSONFragments::Refuse);

/// The same behind what `text` holds already; an error leaves it as it was.
VEXIM_EXPORT ErrorPtr appendJSON(std::string& text, const Value& value,
                                 JSONFragments fragments = JSONFragments::Refuse);

}  // namespace vexim
