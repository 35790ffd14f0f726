#pragma once

#include <cstddef>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"

// Type encodings, as property attributes and method signatures carry them:
//
// c C s S i I l L q Q   integers, signed and unsigned, from char to 64 bits        f d D   float,
// double, long double
// B bool   v void   @ object (@"Class", @? too)   # class   : selector   * character string   ^type
// pointer
//   {name=members} structure   (name=members) union   [count type] array   bN bit field   ? unknown
//
// Qualifiers (r n N o O R V A j) stand before a type. An object is held as a `Value`, everything
// else as C++ holds it.

namespace vexim {

/// The first type of an encoding.
struct Type {
    std::string_view text;  // with its qualifiers
    // in bytes; 0 for void, and for a structure or union whose members are not told
    std::size_t size = 0;
    std::size_t alignment = 1;  // in bytes
    bool isObject = false;      // held as a `Value`
};

/// Reads the first type of `encoding`; raises NSInvalidArgumentException when there is none.
VEXIM_EXPORT Type readType(std::string_view encoding);

/// The scalar at `bytes` as a number, by the type's first character; nil when the type is neither a
/// number's nor a boolean's.
VEXIM_EXPORT Value boxScalar(std::string_view encoding, const void* bytes);

/// Writes `number` to `bytes` as the type's first character says, by the strict reading of numbers.
/// False, with nothing written, when the type is neither a number's nor a boolean's, or `number` is
/// no number.
VEXIM_EXPORT bool unboxScalar(const Value& number, std::string_view encoding, void* bytes);

}  // namespace vexim
