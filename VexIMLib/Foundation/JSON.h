#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim {

/// The deepest nesting for reading and for writing.
inline constexpr std::size_t kJSONMaxDepth = 512;

/// Whether a text may be a bare scalar, such as `5` or `"a"`.
enum class JSONFragments { Refuse, Allow };

/// The result of reading: the value, or nil and an error that names the offset.
///
///     const auto [value, error] = vexim::parseJSON(R"({"names": ["Alice", "Bob"]})");
///     value.get("names").get(0).asString();  // "Alice"
///     vexim::writeJSON(value).text;          // {"names":["Alice","Bob"]}
struct JSONResult {
    Value value;     // nil after an error, never otherwise
    ErrorPtr error;  // nullptr after a success
};

/// Reads one JSON text (RFC 8259, strict, UTF-8). Refuses a scalar at the top level, unless
/// fragments are allowed. An unpaired surrogate escape becomes U+FFFD. Integers of up to 64 bits
/// stay exact; larger ones become reals. If a key is repeated, the last one wins. Errors:
/// "NSCocoaErrorDomain" 3840. Call from any thread.
VEXIM_EXPORT JSONResult parseJSON(std::string_view text,
                                  JSONFragments fragments = JSONFragments::Refuse);

/// The result of writing: the text, or an empty one and the error.
struct JSONText {
    std::string text;  // empty after an error
    ErrorPtr error;    // nullptr after a success
};

/// Writes compact JSON, with entries in insertion order. Refuses nil, NaN, infinity, data, objects,
/// invalid UTF-8, nesting beyond `kJSONMaxDepth`, and a scalar at the top level unless fragments
/// are allowed. Errors: "NSCocoaErrorDomain" 3851. Call from any thread.
VEXIM_EXPORT JSONText writeJSON(const Value& value,
                                JSONFragments fragments = JSONFragments::Refuse);

/// Like `writeJSON`, but appends to `text`. After an error `text` is unchanged. Returns nullptr on
/// success.
VEXIM_EXPORT ErrorPtr appendJSON(std::string& text, const Value& value,
                                 JSONFragments fragments = JSONFragments::Refuse);

}  // namespace vexim
