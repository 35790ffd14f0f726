#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"

// Type encodings, as property attributes and method signatures carry them:
//
//   c C s S i I l L q Q   integers, signed and unsigned, from char to 64 bits        f d D   float, double, long double
//   B bool   v void   @ object (@"Class", @? too)   # class   : selector   * character string   ^type pointer
//   {name=members} structure   (name=members) union   [count type] array   bN bit field   ? unknown
//
// Qualifiers (r n N o O R V A j) stand before a type. An object is held as a `Value`, everything else as C++ holds it.

namespace vexim {

struct TypeLayout {
    std::size_t size = 0;
    std::size_t alignment = 1;
};

/// Size and alignment of the first type in `encoding`; raises NSInvalidArgumentException when that is no type.
VEXIM_EXPORT TypeLayout layoutOfType(std::string_view encoding);

/// The first type of `encoding` with its qualifiers, without what follows; raises NSInvalidArgumentException when it is no type.
VEXIM_EXPORT std::string_view firstType(std::string_view encoding);

/// Whether the type is an object's.
constexpr bool isObjectType(std::string_view encoding) noexcept { return encoding.starts_with('@'); }

/// The scalar at `bytes` as a number; nullopt when the type is neither a number's nor a boolean's.
VEXIM_EXPORT std::optional<Value> boxScalar(std::string_view encoding, const void* bytes);

/// Writes `number` to `bytes` as the type's first character says, by the strict reading of numbers.
/// False, with nothing written, when the type is neither a number's nor a boolean's, or `number` is no number.
VEXIM_EXPORT bool unboxScalar(const Value& number, std::string_view encoding, void* bytes);

}  // namespace vexim
