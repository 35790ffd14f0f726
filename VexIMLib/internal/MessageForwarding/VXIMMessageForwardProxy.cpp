#include "VexIMLib/internal/MessageForwarding/VXIMMessageForwardProxy.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Runtime/TypeEncoding.h"
#include "VexIMLib/internal/VXIMRuntimeObject.h"

using vexim::Class;
using vexim::Exception;
using vexim::Invocation;
using vexim::Value;

namespace {

struct Registry {
    std::recursive_mutex mutex;  // proxyForRootClass comes back through addProxy
    std::unordered_map<std::string, std::shared_ptr<VXIMMessageForwardProxy>> proxies;
};

Registry& registry() {
    static Registry& shared = *new Registry;  // never destroyed: accessors may run until the process is gone
    return shared;
}

/// Bytes of one argument or result: on the stack unless a structure is large.
class ScratchBytes {
public:
    explicit ScratchBytes(std::size_t size) : heap_(size > sizeof inline_ ? new std::byte[size]() : nullptr) {}
    std::byte* get() noexcept { return heap_ ? heap_.get() : inline_; }

private:
    alignas(16) std::byte inline_[32] = {};
    std::unique_ptr<std::byte[]> heap_;
};

/// The two refusals read differently (an exclamation mark, a colon), and their users tell them apart by it.
[[noreturn]] void refuseType(const std::string& type) {
    throw Exception(vexim::kInternalInconsistencyException, "Unsupported type encoding " + type + "!");
}
[[noreturn]] void refuseValueForType(const std::string& type) {
    throw Exception(vexim::kInternalInconsistencyException, "Unsupported type encoding: " + type);
}

/// Values are immutable copies by nature; only an object needs to be asked for one.
Value copied(const Value& value) {
    const auto object = value.asObject();
    return object ? Value(object->copy()) : value;
}

VXIMRuntimeObject& targetOf(const Invocation& invocation) { return static_cast<VXIMRuntimeObject&>(invocation.target()); }

}  // namespace

void VXIMMessageForwardProxy::addProxy(const std::shared_ptr<VXIMMessageForwardProxy>& proxy) {
    if (!proxy) return;
    Registry& shared = registry();
    const std::lock_guard lock(shared.mutex);
    shared.proxies[proxy->rootClass().name()] = proxy;
}

std::shared_ptr<VXIMMessageForwardProxy> VXIMMessageForwardProxy::proxyForRootClass(const Class& rootClass) {
    Registry& shared = registry();
    const std::lock_guard lock(shared.mutex);
    if (const auto known = shared.proxies.find(rootClass.name()); known != shared.proxies.end()) return known->second;
    auto proxy = initWithRootClass(rootClass);
    addProxy(proxy);
    return proxy;
}

std::shared_ptr<VXIMMessageForwardProxy> VXIMMessageForwardProxy::initWithRootClass(const Class& rootClass) {
    return vexim::create<VXIMMessageForwardProxy>(rootClass);
}

bool VXIMMessageForwardProxy::initialise(const Class& rootClass) {
    rootClass_ = &rootClass;
    return true;
}

std::shared_ptr<VXIMClassInfo> VXIMMessageForwardProxy::subclassInfoForSubclass(const Class& cls) {
    vexim::MutexLock lock(subclassAccessLock_);
    if (!cls.isSubclassOf(*rootClass_)) return nullptr;
    auto& info = classInfoMap_[cls.name()];
    if (!info) info = VXIMClassInfo::subclassInfoWithClass(cls);
    return info;
}

std::shared_ptr<const vexim::MethodSignature> VXIMMessageForwardProxy::methodSignatureForSelector(vexim::Selector selector,
                                                                                                  const Class& cls) {
    const auto info = subclassInfoForSubclass(cls);
    return info ? info->forwardMethodSignatureForSelector(selector) : nullptr;
}

void VXIMMessageForwardProxy::proxyForwardInvocation(Invocation& invocation) {
    auto* target = dynamic_cast<VXIMRuntimeObject*>(&invocation.target());
    const auto classInfo = target ? subclassInfoForSubclass(target->runtimeClass()) : nullptr;
    if (!classInfo) return invocation.invoke();
    const auto info = classInfo->propertyInfoForSelector(invocation.selector());
    if (!info) return invocation.invoke();
    accessProperty(*info, invocation);
}

void VXIMMessageForwardProxy::accessProperty(const VXIMPropertyInfo& info, Invocation& invocation) {
    // By hand and not by a guard: an exception from the access leaves the lock held, as it always has.
    if (info.isAtomic()) info.valueAccesslock().lock();
    if (info.setterSelector() == invocation.selector()) {
        forwardSetterWithPropertyInfo(info, invocation);
    } else {
        forwardGetterWithPropertyInfo(info, invocation);
    }
    if (info.isAtomic()) info.valueAccesslock().unlock();
}

void VXIMMessageForwardProxy::forwardSetterWithPropertyInfo(const VXIMPropertyInfo& info, Invocation& invocation) {
    constexpr std::size_t kValueIndex = 2;
    if (invocation.methodSignature().numberOfArguments() != kValueIndex + 1) {
        throw Exception(vexim::kInvalidArgumentException, "Setter should only take 1 argument.");
    }
    VXIMRuntimeObject& target = targetOf(invocation);
    const std::string& type = invocation.methodSignature().argumentType(kValueIndex);

    if (type.starts_with('@')) {
        Value value;
        invocation.getArgument(&value, kValueIndex);
        if (info.associationPolicy() == VXIMPropertyInfo::AssociationPolicy::Copy) value = copied(value);
        if (info.ivar()) return target.instanceStorage().setObject(*info.ivar(), std::move(value));
        return target.setValueForPropertyName(std::move(value), info.name());
    }

    const std::size_t size = invocation.methodSignature().argumentSize(kValueIndex);
    ScratchBytes argument(size);
    invocation.getArgument(argument.get(), kValueIndex);
    if (info.ivar()) return target.instanceStorage().setBytes(*info.ivar(), argument.get(), size);
    auto number = vexim::boxScalar(type, argument.get());
    if (!number) refuseType(type);
    target.setValueForPropertyName(*std::move(number), info.name());
}

void VXIMMessageForwardProxy::forwardGetterWithPropertyInfo(const VXIMPropertyInfo& info, Invocation& invocation) {
    if (invocation.methodSignature().numberOfArguments() != 2) {
        throw Exception(vexim::kInvalidArgumentException, "Getter should take no argument.");
    }
    VXIMRuntimeObject& target = targetOf(invocation);
    const std::string& type = invocation.methodSignature().methodReturnType();

    if (type.starts_with('@')) {
        Value value = info.ivar() ? target.instanceStorage().object(*info.ivar()) : target.valueForPropertyName(info.name());
        if (value.isNull()) value = Value();
        return invocation.setReturnValue(&value);
    }

    ScratchBytes result(invocation.methodSignature().methodReturnLength());
    if (info.ivar()) {
        // One word whatever the type, although a setter stores all of it: a long double or a structure comes back cut short.
        target.instanceStorage().copyBytes(*info.ivar(), result.get(), sizeof(void*));
        return invocation.setReturnValue(result.get());
    }
    const Value value = target.valueForPropertyName(info.name());
    if (!value.isNilOrNull() && !vexim::unboxScalar(value, type, result.get())) {
        value.isNumber() ? refuseType(type) : refuseValueForType(type);
    }
    invocation.setReturnValue(result.get());
}
