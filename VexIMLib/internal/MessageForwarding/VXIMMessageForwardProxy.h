#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/MessageForwarding/VXIMClassInfo.h"

class VXIMRuntimeObject;

/// Executes the accessors of dynamic properties. A setter boxes its argument and puts it into the
/// object's store; a getter takes a value out and unboxes it. One proxy serves a root class and all
/// classes derived from it, until the process ends. Usable from any thread, but the caller must
/// protect the object's store. Only the accesses of one atomic property exclude each other.
class VXIMMessageForwardProxy final : public vexim::Object {
public:
    using Object::Object;
    /// Registers the proxy under its root class's name, replacing an earlier one. nullptr is
    /// ignored.
    static void addProxy(const std::shared_ptr<VXIMMessageForwardProxy>& proxy);
    /// The registered proxy; makes and registers one if there is none.
    static std::shared_ptr<VXIMMessageForwardProxy> proxyForRootClass(
        const vexim::Class& rootClass);

    static std::shared_ptr<VXIMMessageForwardProxy> initWithRootClass(
        const vexim::Class& rootClass);
    bool initialise(const vexim::Class& rootClass);

    const vexim::Class& rootClass() const noexcept { return *rootClass_; }
    /// nullptr when `cls` is not derived from the root class.
    std::shared_ptr<VXIMClassInfo> subclassInfoForSubclass(const vexim::Class& cls);
    using Object::methodSignatureForSelector;
    /// nullptr when `cls` is not derived from the root class, or has no such property.
    std::shared_ptr<const vexim::MethodSignature> methodSignatureForSelector(
        vexim::Selector selector, const vexim::Class& cls);

    /// Handles the invocation if its target and selector belong to a dynamic property; otherwise
    /// invokes it normally.
    void proxyForwardInvocation(vexim::Invocation& invocation);

    // The second step of the above, with a known property. The target must be a VXIMRuntimeObject.
    // Raises NSInvalidArgumentException unless there is one argument, and what `storeArgument`
    // raises.
    static void forwardSetterWithPropertyInfo(const VXIMPropertyInfo& info,
                                              vexim::Invocation& invocation);
    /// Raises NSInvalidArgumentException when there is an argument, and what `loadResult` raises.
    static void forwardGetterWithPropertyInfo(const VXIMPropertyInfo& info,
                                              vexim::Invocation& invocation);

    // The same without an invocation, for callers that know the type: a type encoding and the
    // value's size in bytes.
    struct Type {
        std::string_view encoding;
        std::size_t size;
    };
    /// Runs `access` under the property's lock, if it is atomic. After an exception the lock stays
    /// locked.
    template <class Access>
    static void accessProperty(const VXIMPropertyInfo& info, Access access) {
        // Locked by hand and not with a guard: callers rely on the lock being held after an
        // exception.
        VXIMNamedLock* lock = info.isAtomic() ? &info.valueAccesslock() : nullptr;
        if (lock) lock->lock();
        access();
        if (lock) lock->unlock();
    }
    /// Boxes the value at `argument` and puts it into the store. Raises
    /// NSInternalInconsistencyException for a type that cannot be boxed, NSUnknownKeyException if
    /// the key path leads through something other than a dictionary.
    static void storeArgument(const VXIMPropertyInfo& info, VXIMRuntimeObject& target, Type type,
                              const void* argument);
    /// Reads the value from the store and unboxes it to `result`; nil and null read as 0. Raises
    /// NSInternalInconsistencyException if the stored value does not fit the type.
    static void loadResult(const VXIMPropertyInfo& info, VXIMRuntimeObject& target, Type type,
                           void* result);

private:
    const vexim::Class* rootClass_ = nullptr;
    vexim::Mutex subclassAccessLock_;
    std::unordered_map<std::string, std::shared_ptr<VXIMClassInfo>> classInfoMap_
        VEXIM_GUARDED_BY(subclassAccessLock_);
};
