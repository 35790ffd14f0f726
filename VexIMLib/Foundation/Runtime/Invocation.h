#pragma once

#include <cstddef>
#include <memory>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Runtime/MethodSignature.h"
#include "VexIMLib/Foundation/Runtime/Selector.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim {

class Object;

/// A message as an object: receiver, selector, arguments and, after `invoke`, the result. Create it
/// on the stack: for ordinary accessors it allocates no memory. Arguments and result are zero (nil)
/// at first. Use it on one thread. If you know the function at compile time, call it directly: an
/// invocation is for names that are only known at run time.
///
///     const auto signature = user->methodSignatureForSelector("sessionCount");
///     Invocation invocation(signature, *user, "sessionCount");
///     invocation.invoke();
///     std::int64_t count;
///     invocation.getReturnValue(&count);
class VEXIM_EXPORT Invocation {
public:
    /// `target` must outlive the invocation. A nullptr signature raises NSInvalidArgumentException.
    Invocation(std::shared_ptr<const MethodSignature> signature, Object& target, Selector selector);
    /// Does not keep the signature alive: it must outlive the invocation as well.
    Invocation(const MethodSignature& signature, Object& target, Selector selector);
    Invocation(const Invocation&) = delete;
    Invocation& operator=(const Invocation&) = delete;
    ~Invocation();

    // As given to the constructor.
    const MethodSignature& methodSignature() const noexcept { return signature_; }
    Object& target() const noexcept { return target_; }
    Selector selector() const noexcept { return selector_; }

    // Copy as many bytes as the type has; for an object type `location` is a `Value`. Index 2 is
    // the first argument after receiver and selector. An invalid index raises
    // NSInvalidArgumentException.
    //
    //     const std::int64_t second = 30;
    //     invocation.setArgument(&second, 2);
    void setArgument(const void* location, std::size_t index);
    void getArgument(void* location, std::size_t index) const;
    void setReturnValue(const void* location);
    void getReturnValue(void* location) const;
    // The addresses of an argument and of the result, valid as long as the invocation lives. For an
    // object type a `Value` is there. An invalid index raises NSInvalidArgumentException.
    const void* argumentLocation(std::size_t index) const {
        return frame_ + ownArgument(index).offset;
    }
    void* returnValueLocation() noexcept { return frame_ + signature_.result_.offset; }

    /// Sends the message. Raises NSInvalidArgumentException if the receiver does not understand it.
    /// Exceptions of the method pass through. May be called again, with other arguments. If the
    /// class has a method of that name, its types must be those of the signature; other types raise
    /// NSInvalidArgumentException. Without a method, the receiver's `forwardInvocation` is called.
    void invoke();

private:
    /// Enough for a result and three arguments of up to 16 bytes each.
    static constexpr std::size_t kInlineSize = 64;

    /// An argument after receiver and selector; raises for any other index.
    const MethodSignature::Slot& ownArgument(std::size_t index) const;
    /// The `Value` in an object's slot, which always holds one.
    Value* object(const MethodSignature::Slot& slot) const;
    void copyIn(const MethodSignature::Slot& slot, const void* from);
    void copyOut(const MethodSignature::Slot& slot, void* to) const;

    std::shared_ptr<const MethodSignature> heldSignature_;
    const MethodSignature& signature_;
    Object& target_;
    Selector selector_;
    // the result, then the arguments, each at a multiple of 16 bytes
    std::byte* frame_;
    std::unique_ptr<std::byte[]> heap_;  // for a frame that is larger than the inline one
    alignas(16) std::byte inline_[kInlineSize];
};

}  // namespace vexim
