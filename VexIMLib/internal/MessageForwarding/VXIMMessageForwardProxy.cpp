#include "VexIMLib/internal/MessageForwarding/VXIMMessageForwardProxy.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Runtime/TypeEncoding.h"
#include "VexIMLib/VXIMRuntimeObject.h"

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
    // never destroyed: accessors may run until the process is gone
    static Registry& shared = *new Registry;
    return shared;
}

/// The two texts differ (an exclamation mark, a colon), and callers distinguish them by that.
[[noreturn]] void refuseType(std::string_view encoding) {
    throw Exception(vexim::kInternalInconsistencyException,
                    "Unsupported type encoding " + std::string(encoding) + "!");
}
[[noreturn]] void refuseValueForType(std::string_view encoding) {
    throw Exception(vexim::kInternalInconsistencyException,
                    "Unsupported type encoding: " + std::string(encoding));
}

// Most numbers are of this type, and need no conversion.
constexpr std::string_view kInt64 = "q";
std::int64_t loadInt64(const void* bytes) noexcept {
    std::int64_t number;
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

/// Values are immutable anyway; only an object must be copied.
Value copied(const Value& value) {
    const auto object = value.asObject();
    return object ? Value(object->copy()) : value;
}

VXIMRuntimeObject& targetOf(const Invocation& invocation) {
    return static_cast<VXIMRuntimeObject&>(invocation.target());
}

}  // namespace

void VXIMMessageForwardProxy::addProxy(const std::shared_ptr<VXIMMessageForwardProxy>& proxy) {
    if (!proxy) return;
    Registry& shared = registry();
    const std::lock_guard lock(shared.mutex);
    shared.proxies[proxy->rootClass().name()] = proxy;
}

std::shared_ptr<VXIMMessageForwardProxy> VXIMMessageForwardProxy::proxyForRootClass(
    const Class& rootClass) {
    Registry& shared = registry();
    const std::lock_guard lock(shared.mutex);
    if (const auto known = shared.proxies.find(rootClass.name()); known != shared.proxies.end())
        return known->second;
    auto proxy = initWithRootClass(rootClass);
    addProxy(proxy);
    return proxy;
}

std::shared_ptr<VXIMMessageForwardProxy> VXIMMessageForwardProxy::initWithRootClass(
    const Class& rootClass) {
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

std::shared_ptr<const vexim::MethodSignature> VXIMMessageForwardProxy::methodSignatureForSelector(
    vexim::Selector selector, const Class& cls) {
    const auto info = subclassInfoForSubclass(cls);
    return info ? info->forwardMethodSignatureForSelector(selector) : nullptr;
}

void VXIMMessageForwardProxy::proxyForwardInvocation(Invocation& invocation) {
    auto* target = dynamic_cast<VXIMRuntimeObject*>(&invocation.target());
    const auto classInfo = target ? subclassInfoForSubclass(target->runtimeClass()) : nullptr;
    if (!classInfo) return invocation.invoke();
    const auto info = classInfo->propertyInfoForSelector(invocation.selector());
    if (!info) return invocation.invoke();
    accessProperty(*info, [&] {
        if (info->setterSelector() == invocation.selector()) {
            forwardSetterWithPropertyInfo(*info, invocation);
        } else {
            forwardGetterWithPropertyInfo(*info, invocation);
        }
    });
}

void VXIMMessageForwardProxy::forwardSetterWithPropertyInfo(const VXIMPropertyInfo& info,
                                                            Invocation& invocation) {
    constexpr std::size_t kValueIndex = 2;
    const vexim::MethodSignature& signature = invocation.methodSignature();
    if (signature.numberOfArguments() != kValueIndex + 1) {
        throw Exception(vexim::kInvalidArgumentException, "Setter should only take 1 argument.");
    }
    storeArgument(info, targetOf(invocation),
                  {signature.argumentType(kValueIndex), signature.argumentSize(kValueIndex)},
                  invocation.argumentLocation(kValueIndex));
}

void VXIMMessageForwardProxy::forwardGetterWithPropertyInfo(const VXIMPropertyInfo& info,
                                                            Invocation& invocation) {
    const vexim::MethodSignature& signature = invocation.methodSignature();
    if (signature.numberOfArguments() != 2) {
        throw Exception(vexim::kInvalidArgumentException, "Getter should take no argument.");
    }
    loadResult(info, targetOf(invocation),
               {signature.methodReturnType(), signature.methodReturnLength()},
               invocation.returnValueLocation());
}

void VXIMMessageForwardProxy::storeArgument(const VXIMPropertyInfo& info, VXIMRuntimeObject& target,
                                            Type type, const void* argument) {
    if (type.encoding.starts_with('@')) {
        Value value = *static_cast<const Value*>(argument);
        if (info.associationPolicy() == VXIMPropertyInfo::AssociationPolicy::Copy)
            value = copied(value);
        if (info.ivar()) return target.instanceStorage().setObject(*info.ivar(), std::move(value));
        return target.setValueForPropertyName(std::move(value), info.name());
    }
    if (info.ivar()) return target.instanceStorage().setBytes(*info.ivar(), argument, type.size);
    // Constructed in place: moving it right after writing it byte by byte would wait for these
    // writes.
    if (type.encoding == kInt64)
        return target.setValueForPropertyName(loadInt64(argument), info.name());
    Value number = vexim::boxScalar(type.encoding, argument);
    if (number.isNil()) refuseType(type.encoding);
    target.setValueForPropertyName(std::move(number), info.name());
}

void VXIMMessageForwardProxy::loadResult(const VXIMPropertyInfo& info, VXIMRuntimeObject& target,
                                         Type type, void* result) {
    if (type.encoding.starts_with('@')) {
        Value& value = *static_cast<Value*>(result);
        value = info.ivar() ? target.instanceStorage().object(*info.ivar())
                            : target.valueForPropertyName(info.name());
        // an instance variable returns what was stored
        if (!info.ivar() && value.isNull()) value = Value();
        return;
    }
    if (info.ivar()) {
        std::memset(result, 0, type.size);
        // A getter copies only 64 bits, although a setter stores the whole value: a long double or
        // a structure comes back cut short.
        target.instanceStorage().copyBytes(*info.ivar(), result,
                                           std::min(type.size, sizeof(std::uint64_t)));
        return;
    }
    const Value value = target.valueForPropertyName(info.name());
    if (value.isNilOrNull()) {
        std::memset(result, 0, type.size);
        return;
    }
    if (value.kind() == Value::Kind::Integer && type.encoding == kInt64) {
        const std::int64_t number = value.integer();
        std::memcpy(result, &number, sizeof number);
        return;
    }
    if (vexim::unboxScalar(value, type.encoding, result)) return;
    value.isNumber() ? refuseType(type.encoding) : refuseValueForType(type.encoding);
}
