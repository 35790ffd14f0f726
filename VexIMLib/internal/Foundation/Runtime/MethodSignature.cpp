#include "VexIMLib/Foundation/Runtime/MethodSignature.h"

#include <algorithm>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Runtime/TypeEncoding.h"

namespace vexim {

// A frame holds the result and the arguments after the selector. Each is at a multiple of 16 bytes,
// which is enough for every type.
static constexpr std::size_t kFrameAlignment = 16;

std::shared_ptr<const MethodSignature> MethodSignature::signatureWithObjCTypes(
    std::string_view types) {
    auto signature = std::shared_ptr<MethodSignature>(new MethodSignature);
    std::size_t end = 0;
    const auto readSlot = [&types, &end](bool inFrame) {
        const Type type = readType(types);
        Slot slot{.type = std::string(type.text),
                  .size = type.size,
                  .offset = end,
                  .isObject = type.isObject};
        if (inFrame) end += (type.size + kFrameAlignment - 1) / kFrameAlignment * kFrameAlignment;
        types.remove_prefix(type.text.size());
        // offsets, as compilers write them
        types.remove_prefix(std::min(types.find_first_not_of("+-0123456789"), types.size()));
        return slot;
    };
    signature->result_ = readSlot(true);
    while (!types.empty())
        signature->arguments_.push_back(readSlot(signature->arguments_.size() >= 2));
    signature->frameSize_ = end;
    return signature;
}

const MethodSignature::Slot& MethodSignature::argument(std::size_t index) const {
    if (index >= arguments_.size()) {
        throw Exception(kInvalidArgumentException,
                        "argument index " + std::to_string(index) + " is beyond the " +
                            std::to_string(arguments_.size()) + " arguments of the signature");
    }
    return arguments_[index];
}

const std::string& MethodSignature::argumentType(std::size_t index) const {
    return argument(index).type;
}

std::size_t MethodSignature::argumentSize(std::size_t index) const { return argument(index).size; }

bool operator==(const MethodSignature& a, const MethodSignature& b) noexcept {
    const auto sameType = [](const MethodSignature::Slot& x, const MethodSignature::Slot& y) {
        return x.type == y.type;
    };
    return sameType(a.result_, b.result_) &&
           std::ranges::equal(a.arguments_, b.arguments_, sameType);
}

}  // namespace vexim
