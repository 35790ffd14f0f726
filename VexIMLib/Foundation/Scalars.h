#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"

// Two ways to read a number or a boolean from a Value:
//
// - strict, for dynamic properties: only numbers convert. Anything else gives nullopt, and the
//   caller raises.
// - lenient, for everything that the service sends: numbers and numeric text convert. Anything else
//   is 0 or false.
//
// In both, narrow integers wrap (like a C conversion), a real is truncated toward zero and limited
// to the 64-bit range, NaN is 0, and a boolean is true for any number but 0.

namespace vexim {

// Strict: nullopt if the value is not a number.
VEXIM_EXPORT std::optional<bool> strictBool(const Value& value) noexcept;
VEXIM_EXPORT std::optional<std::int64_t> strictInt64(const Value& value) noexcept;
VEXIM_EXPORT std::optional<std::uint64_t> strictUInt64(const Value& value) noexcept;
VEXIM_EXPORT std::optional<double> strictDouble(const Value& value) noexcept;

// Lenient: 0 or false if the value is neither a number nor numeric text.
VEXIM_EXPORT bool lenientBool(const Value& value) noexcept;
VEXIM_EXPORT std::int64_t lenientInt64(const Value& value) noexcept;
VEXIM_EXPORT std::uint64_t lenientUInt64(const Value& value) noexcept;
VEXIM_EXPORT double lenientDouble(const Value& value) noexcept;

/// Truncates toward zero and limits the result to the 64-bit range; NaN is 0. Seconds become
/// milliseconds by this rule.
VEXIM_EXPORT std::int64_t truncateToInt64(double value) noexcept;

}  // namespace vexim
