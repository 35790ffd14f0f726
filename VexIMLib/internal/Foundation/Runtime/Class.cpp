#include "VexIMLib/Foundation/Runtime/Class.h"

#include <unordered_set>
#include <utility>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim {

namespace {

/// Caches use the class name as the key, so each name must belong to one class.
void claimName(const std::string& name) {
    static constinit Mutex mutex;
    static auto& names = *new std::unordered_set<std::string>;
    MutexLock lock(mutex);
    if (!names.insert(name).second)
        throw Exception(kInternalInconsistencyException,
                        "There is already a class named " + name + ".");
}

}  // namespace

Method::Method(Selector name, std::string_view types, Implementation body)
    : selector(name),
      signature(MethodSignature::signatureWithObjCTypes(types)),
      implementation(body) {}

const Class& Class::declare(std::string name, const Class* superclass,
                            std::vector<Property> properties,
                            std::vector<InstanceVariableDeclaration> instanceVariables,
                            std::vector<Method> methods) {
    claimName(name);
    // Never destroyed, because objects and caches may use it until the process ends.
    return *new Class(std::move(name), superclass, std::move(properties),
                      std::move(instanceVariables), std::move(methods));
}

Class::Class(std::string name, const Class* superclass, std::vector<Property> properties,
             std::vector<InstanceVariableDeclaration> instanceVariables,
             std::vector<Method> methods)
    : name_(std::move(name)),
      superclass_(superclass),
      properties_(std::move(properties)),
      methods_(std::move(methods)),
      instanceSlotCount_(superclass ? superclass->instanceSlotCount_ : 0) {
    for (auto& [variable, encoding] : instanceVariables) {
        instanceVariables_.push_back(
            InstanceVariable(std::move(variable), std::move(encoding), instanceSlotCount_));
        instanceSlotCount_ += instanceVariables_.back().slotCount();
    }
}

bool Class::isSubclassOf(const Class& other) const noexcept {
    for (const Class* cls = this; cls; cls = cls->superclass_) {
        if (cls == &other) return true;
    }
    return false;
}

const Property* Class::property(std::string_view name) const noexcept {
    for (const Class* cls = this; cls; cls = cls->superclass_) {
        for (const Property& property : cls->properties_) {
            if (property.name() == name) return &property;
        }
    }
    return nullptr;
}

const InstanceVariable* Class::instanceVariable(std::string_view name) const noexcept {
    for (const Class* cls = this; cls; cls = cls->superclass_) {
        for (const InstanceVariable& variable : cls->instanceVariables_) {
            if (variable.name() == name) return &variable;
        }
    }
    return nullptr;
}

const Method* Class::method(Selector selector) const noexcept {
    for (const Class* cls = this; cls; cls = cls->superclass_) {
        for (const Method& method : cls->methods_) {
            if (method.selector == selector) return &method;
        }
    }
    return nullptr;
}

}  // namespace vexim
