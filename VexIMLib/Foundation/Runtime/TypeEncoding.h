#pragma once

#include <cstddef>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"

// Type encodings, as used in property attributes and method signatures:
//
//   c C s S i I l L q Q   integers, signed and unsigned, from char to 64 bits
//   f d D                 float, double, long double
//   B                     bool
//   v                     void
//   @                     object (@"Class", @? too)
//   #                     class
//   :                     selector
//   *                     character string
//   ^type                 pointer
//   {name=members}        structure
//   (name=members)        union
//   [count type]          array
//   bN                    bit field
//   ?                     unknown
//
// Qualifiers (r n N o O R V A j) stand before a type. An object is stored as a `Value`, everything
// else as in C++.

namespace vexim {

/// The first type of an encoding.
struct Type {
    std::string_view text;  // with its qualifiers
    // in bytes; 0 for void, and for a structure or union with unknown members
    std::size_t size = 0;
    std::size_t alignment = 1;  // in bytes
    bool isObject = false;      // stored as a `Value`
};

/// Reads the first type of `encoding`. Raises NSInvalidArgumentException if there is none.
VEXIM_EXPORT Type readType(std::string_view encoding);

/// The number at `bytes`, read by the type's first character. nil if the type is not a number or a
/// boolean.
VEXIM_EXPORT Value boxScalar(std::string_view encoding, const void* bytes);

/// Writes `number` to `bytes`, converted strictly to the type of the first character. Returns
/// false, and writes nothing, if the type is not a number or a boolean, or if `number` is not a
/// number.
VEXIM_EXPORT bool unboxScalar(const Value& number, std::string_view encoding, void* bytes);

}  // namespace vexim
