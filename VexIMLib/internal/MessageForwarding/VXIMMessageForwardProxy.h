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

/// Carries out the accessors of dynamic properties: a setter's argument is boxed and put into the
/// object's store, a getter's result is taken out of it and unboxed. One proxy serves a root class
/// and everything derived from it, for the life of the process. Usable from any thread; the store
/// itself is the object's user's to guard, save that the accesses of one atomic property exclude
/// each other.
class VXIMMessageForwardProxy final : public vexim::Object {
public:
    using Object::Object;
    /// Registers the proxy under its root class's name in place of an earlier one; nullptr is
    /// ignored.
    static void addProxy(const std::shared_ptr<VXIMMessageForwardProxy>& proxy);
    /// The registered proxy; made and registered when there is none.
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

    /// Serves the invocation when its target and selector lead to a dynamic property, and invokes
    /// it as it is otherwise.
    void proxyForwardInvocation(vexim::Invocation& invocation);

    // The steps of the above once the property is known; the target must be a VXIMRuntimeObject.
    /// Raises NSInvalidArgumentException unless there is one argument, and what `storeArgument`
    /// raises.
    static void forwardSetterWithPropertyInfo(const VXIMPropertyInfo& info,
                                              vexim::Invocation& invocation);
    /// Raises NSInvalidArgumentException when there is an argument, and what `loadResult` raises.
    static void forwardGetterWithPropertyInfo(const VXIMPropertyInfo& info,
                                              vexim::Invocation& invocation);

    // The same without an invocation, for callers that know the type.
    /// A value's type encoding and its size in bytes.
    struct Type {
        std::string_view encoding;
        std::size_t size;
    };
    /// Runs `access` under the lock of the property when that is atomic. An exception leaves the
    /// lock held.
    template <class Access>
    static void accessProperty(const VXIMPropertyInfo& info, Access access) {
        // By hand and not by a guard: users of the lock have always found it held after an
        // exception.
        VXIMNamedLock* lock = info.isAtomic() ? &info.valueAccesslock() : nullptr;
        if (lock) lock->lock();
        access();
        if (lock) lock->unlock();
    }
    /// Boxes the value at `argument` and puts it into the store. Raises
    /// NSInternalInconsistencyException for a type without a boxed form, NSUnknownKeyException when
    /// the store has something else than a dictionary on the way.
    static void storeArgument(const VXIMPropertyInfo& info, VXIMRuntimeObject& target, Type type,
                              const void* argument);
    /// Takes the value out of the store and unboxes it to `result`; nil and null read as 0. Raises
    /// NSInternalInconsistencyException when the stored value does not fit the type.
    static void loadResult(const VXIMPropertyInfo& info, VXIMRuntimeObject& target, Type type,
                           void* result);

private:
    const vexim::Class* rootClass_ = nullptr;
    vexim::Mutex subclassAccessLock_;
    std::unordered_map<std::string, std::shared_ptr<VXIMClassInfo>> classInfoMap_
        VEXIM_GUARDED_BY(subclassAccessLock_);
};
