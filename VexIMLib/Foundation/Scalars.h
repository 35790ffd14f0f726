#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"

// The two ways to read a scalar out of a Value, in one place.
//
// strict   for dynamic properties: only numbers convert; what is not a number is refused (nullopt),
// and the caller raises. lenient  for everything read from the wire: numbers and numeric text
// convert, anything else is 0 or false.
//
// In both: narrow integers wrap (as a C conversion), a real truncates toward zero and saturates at
// the 64-bit range, NaN is 0, and a boolean target is "not 0".

namespace vexim {

// The strict readings: nullopt for what is no number.
VEXIM_EXPORT std::optional<bool> strictBool(const Value& value) noexcept;
VEXIM_EXPORT std::optional<std::int64_t> strictInt64(const Value& value) noexcept;
VEXIM_EXPORT std::optional<std::uint64_t> strictUInt64(const Value& value) noexcept;
VEXIM_EXPORT std::optional<double> strictDouble(const Value& value) noexcept;

// The lenient readings: 0 or false for what is neither a number nor numeric text.
VEXIM_EXPORT bool lenientBool(const Value& value) noexcept;
VEXIM_EXPORT std::int64_t lenientInt64(const Value& value) noexcept;
VEXIM_EXPORT std::uint64_t lenientUInt64(const Value& value) noexcept;
VEXIM_EXPORT double lenientDouble(const Value& value) noexcept;

/// Truncates toward zero and saturates; NaN is 0. The rule by which seconds become milliseconds.
VEXIM_EXPORT std::int64_t truncateToInt64(double value) noexcept;

}  // namespace vexim
