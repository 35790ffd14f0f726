#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// The types of a method's result and arguments, made from a type string. "v@:q" means: no result,
/// receiver, selector, and one 64-bit argument. Immutable, so any thread may use it. Making one
/// parses the text, so keep it for messages that you send often.
///
///     const auto signature = vexim::MethodSignature::signatureWithObjCTypes("v@:q");
///     signature->numberOfArguments();  // 3
///     signature->argumentSize(2);      // 8
class VEXIM_EXPORT MethodSignature {
public:
    /// Makes a signature. Raises NSInvalidArgumentException if `types` is empty or has an invalid
    /// type. The first type is the result, the next two are receiver and selector. TypeEncoding.h
    /// lists the types.
    static std::shared_ptr<const MethodSignature> signatureWithObjCTypes(std::string_view types);

    /// The number of arguments, including receiver and selector.
    std::size_t numberOfArguments() const noexcept { return arguments_.size(); }
    /// The encoding of the argument at `index` (0 is the receiver). Raises
    /// NSInvalidArgumentException beyond the end.
    const std::string& argumentType(std::size_t index) const;
    /// The argument's size in an invocation, in bytes. Raises NSInvalidArgumentException beyond the
    /// end.
    std::size_t argumentSize(std::size_t index) const;
    /// The encoding of the result; "v" means none.
    const std::string& methodReturnType() const noexcept { return result_.type; }
    /// The size of the result in bytes; 0 for void.
    std::size_t methodReturnLength() const noexcept { return result_.size; }

    /// Whether the result and all arguments have equal types, in the same order.
    friend VEXIM_EXPORT bool operator==(const MethodSignature& a,
                                        const MethodSignature& b) noexcept;

private:
    friend class Invocation;
    struct Slot {
        std::string type;      // its encoding
        std::size_t size = 0;  // in bytes
        /// Where it begins in an invocation's frame.
        std::size_t offset = 0;
        /// Whether a `Value` is stored there.
        bool isObject = false;
    };
    MethodSignature() = default;
    /// Raises beyond the end.
    const Slot& argument(std::size_t index) const;

    Slot result_;
    std::vector<Slot> arguments_;
    /// How many bytes an invocation needs for the result and the arguments.
    std::size_t frameSize_ = 0;
};

}  // namespace vexim
