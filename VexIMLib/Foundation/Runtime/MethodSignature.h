#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// The types of a method's result and arguments, made from a type string such as "v@:q": no result,
/// receiver, selector, and one 64-bit argument. Immutable.
class VEXIM_EXPORT MethodSignature {
public:
    /// Raises NSInvalidArgumentException when `types` is empty or holds what is no type.
    static std::shared_ptr<const MethodSignature> signatureWithObjCTypes(std::string_view types);

    /// Receiver and selector included.
    std::size_t numberOfArguments() const noexcept { return arguments_.size(); }
    /// The encoding of the argument at `index` (0 is the receiver); raises
    /// NSInvalidArgumentException beyond the end.
    const std::string& argumentType(std::size_t index) const;
    /// In bytes, as an invocation holds it.
    std::size_t argumentSize(std::size_t index) const;
    /// The encoding of the result; "v" is none.
    const std::string& methodReturnType() const noexcept { return result_.type; }
    /// In bytes; 0 for void.
    std::size_t methodReturnLength() const noexcept { return result_.size; }

    /// The same types throughout.
    friend VEXIM_EXPORT bool operator==(const MethodSignature& a,
                                        const MethodSignature& b) noexcept;

private:
    friend class Invocation;
    struct Slot {
        std::string type;
        std::size_t size = 0;
        std::size_t offset = 0;  // in an invocation's frame
        bool isObject = false;
    };
    MethodSignature() = default;
    const Slot& argument(std::size_t index) const;

    Slot result_;
    std::vector<Slot> arguments_;
    std::size_t frameSize_ = 0;
};

}  // namespace vexim
