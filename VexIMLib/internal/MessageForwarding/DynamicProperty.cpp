#include "VexIMLib/internal/MessageForwarding/DynamicProperty.h"

#include <string_view>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/MessageForwarding/VXIMMessageForwardProxy.h"

namespace vexim::detail {

/// How one concrete class handles the message. Never changed once published, and never destroyed.
struct DynamicAccessor::Route {
    const Class& cls;
    Selector selector;
    std::shared_ptr<const MethodSignature> signature;
    std::shared_ptr<VXIMPropertyInfo> info;  // nullptr: the class has a method of that name
    const Route* next;
};

void DynamicAccessor::get(VXIMRuntimeObject& object, void* value) const {
    const Route& route = routeFor(object);
    if (route.info) {
        VXIMMessageForwardProxy::accessProperty(*route.info, [&] {
            VXIMMessageForwardProxy::loadResult(*route.info, object, {encoding_, size_}, value);
        });
        return;
    }
    Invocation invocation(*route.signature, object, route.selector);
    invocation.invoke();
    invocation.getReturnValue(value);
}

void DynamicAccessor::set(VXIMRuntimeObject& object, const void* value) const {
    const Route& route = routeFor(object);
    if (route.info && route.info->setterSelector() == route.selector) {
        VXIMMessageForwardProxy::accessProperty(*route.info, [&] {
            VXIMMessageForwardProxy::storeArgument(*route.info, object, {encoding_, size_}, value);
        });
        return;
    }
    Invocation invocation(*route.signature, object, route.selector);
    // The setter of a read-only property is handled as a getter, which takes no argument.
    if (route.signature->numberOfArguments() > 2) invocation.setArgument(value, 2);
    invocation.invoke();
}

const DynamicAccessor::Route& DynamicAccessor::routeFor(VXIMRuntimeObject& object) const {
    const Class& cls = object.runtimeClass();
    for (const Route* route = routes_.load(std::memory_order_acquire); route; route = route->next) {
        if (&route->cls == &cls) return *route;
    }
    return addRoute(object, cls);
}

const DynamicAccessor::Route& DynamicAccessor::addRoute(VXIMRuntimeObject& object,
                                                        const Class& cls) const {
    // The declaration of the property decides the message's name, as a compiler would.
    const Property* property = declaringClass_().property(property_);
    const auto customName =
        property ? property->attributeValue(kind_ == Kind::Getter ? "G" : "S") : std::nullopt;
    const Selector selector = customName ? Selector(*customName)
                              : kind_ == Kind::Getter
                                  ? Selector(property_)
                                  : Selector(Property::defaultSetterName(property_));

    const auto signature = object.methodSignatureForSelector(selector);
    if (!signature) object.doesNotRecognizeSelector(selector);
    const bool takesValue = signature->numberOfArguments() > 2;
    const std::string& type =
        takesValue ? signature->argumentType(2) : signature->methodReturnType();
    if (type != encoding_) {
        throw Exception(kInternalInconsistencyException,
                        "The property " + std::string(property_) + " of class " + cls.name() +
                            " is of type " + type + ", not " + std::string(encoding_) + ".");
    }
    std::shared_ptr<VXIMPropertyInfo> info;
    if (!cls.method(selector)) {
        info = VXIMRuntimeObject::messageForwardProxy()
                   ->subclassInfoForSubclass(cls)
                   ->propertyInfoForSelector(selector);
    }

    // one writer at a time for all handles; locked only once for each handle and class
    static constinit Mutex mutex;
    MutexLock lock(mutex);
    const Route* first = routes_.load(std::memory_order_relaxed);
    for (const Route* route = first; route; route = route->next) {
        if (&route->cls == &cls) return *route;
    }
    const Route* added = new Route{cls, selector, signature, std::move(info), first};
    routes_.store(added, std::memory_order_release);
    return *added;
}

}  // namespace vexim::detail
