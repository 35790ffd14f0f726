#include "VexIMLib/Foundation/Runtime/Invocation.h"

#include <cstring>
#include <new>
#include <utility>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Runtime/Class.h"

namespace vexim {

namespace {

constexpr std::size_t kFirstOwnArgument = 2;  // after the receiver and the selector

const MethodSignature& demand(const std::shared_ptr<const MethodSignature>& signature) {
    if (!signature)
        throw Exception(kInvalidArgumentException, "an invocation needs a method signature");
    return *signature;
}

}  // namespace

Invocation::Invocation(std::shared_ptr<const MethodSignature> signature, Object& target,
                       Selector selector)
    : Invocation(demand(signature), target, selector) {
    heldSignature_ = std::move(signature);
}

Invocation::Invocation(const MethodSignature& signature, Object& target, Selector selector)
    : signature_(signature),
      target_(target),
      selector_(selector),
      frame_(inline_) {
    if (signature.frameSize_ > kInlineSize) {
        heap_ = std::make_unique<std::byte[]>(signature.frameSize_);
        frame_ = heap_.get();
    } else {
        std::memset(inline_, 0, signature.frameSize_);
    }
    const auto makeNil = [this](const MethodSignature::Slot& slot) {
        if (slot.isObject) new (frame_ + slot.offset) Value();
    };
    makeNil(signature.result_);
    for (std::size_t i = kFirstOwnArgument; i < signature.arguments_.size(); ++i)
        makeNil(signature.arguments_[i]);
}

Invocation::~Invocation() {
    const auto release = [this](const MethodSignature::Slot& slot) {
        if (slot.isObject) std::destroy_at(object(slot));
    };
    release(signature_.result_);
    for (std::size_t i = kFirstOwnArgument; i < signature_.arguments_.size(); ++i)
        release(signature_.arguments_[i]);
}

Value* Invocation::object(const MethodSignature::Slot& slot) const {
    return std::launder(reinterpret_cast<Value*>(frame_ + slot.offset));
}

const MethodSignature::Slot& Invocation::ownArgument(std::size_t index) const {
    if (index < kFirstOwnArgument) {
        throw Exception(kInvalidArgumentException,
                        "an invocation's receiver and selector are not arguments to set or get");
    }
    return signature_.argument(index);
}

void Invocation::copyIn(const MethodSignature::Slot& slot, const void* from) {
    if (slot.isObject) {
        *object(slot) = *static_cast<const Value*>(from);
    } else {
        std::memcpy(frame_ + slot.offset, from, slot.size);
    }
}

void Invocation::copyOut(const MethodSignature::Slot& slot, void* to) const {
    if (slot.isObject) {
        *static_cast<Value*>(to) = *object(slot);
    } else {
        std::memcpy(to, frame_ + slot.offset, slot.size);
    }
}

void Invocation::setArgument(const void* location, std::size_t index) {
    copyIn(ownArgument(index), location);
}
void Invocation::getArgument(void* location, std::size_t index) const {
    copyOut(ownArgument(index), location);
}
void Invocation::setReturnValue(const void* location) { copyIn(signature_.result_, location); }
void Invocation::getReturnValue(void* location) const { copyOut(signature_.result_, location); }

void Invocation::invoke() {
    if (const Method* method = target_.runtimeClass().method(selector_)) {
        // A method reads its arguments by its own types. An invocation with other types would pass
        // it wrong bytes.
        if (!(*method->signature == signature_)) {
            throw Exception(
                kInvalidArgumentException,
                "the invocation's types are not those of the method " + selector_.text());
        }
        return method->implementation(target_, *this);
    }
    if (!target_.methodSignatureForSelector(selector_)) target_.doesNotRecognizeSelector(selector_);
    target_.forwardInvocation(*this);
}

}  // namespace vexim
