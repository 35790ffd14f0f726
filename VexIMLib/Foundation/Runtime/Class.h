#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Runtime/InstanceVariable.h"
#include "VexIMLib/Foundation/Runtime/Invocation.h"
#include "VexIMLib/Foundation/Runtime/MethodSignature.h"
#include "VexIMLib/Foundation/Runtime/Property.h"
#include "VexIMLib/Foundation/Runtime/Selector.h"

namespace vexim {

/// A method that can be called by its selector. It reads its arguments from the invocation and
/// stores its result there.
struct Method {
    /// The method's code. It runs on the thread that sends the message.
    using Implementation = void (*)(Object& self, Invocation& invocation);

    /// `types` is as for `MethodSignature::signatureWithObjCTypes`; an invalid type raises
    /// NSInvalidArgumentException.
    Method(Selector name, std::string_view types, Implementation body);

    /// Its name.
    Selector selector;
    /// The types of its result and its arguments. Never nullptr.
    std::shared_ptr<const MethodSignature> signature;
    /// Called with the receiver and the message. Never nullptr.
    Implementation implementation;
};

/// Declares an instance variable.
struct InstanceVariableDeclaration {
    /// Unique in its class.
    std::string name;
    /// One type, see TypeEncoding.h.
    std::string typeEncoding;
};

/// The runtime record of a class. The class's `staticClass()` makes it once. It never changes and
/// is never destroyed, so any thread can read it without a lock.
///
///     const vexim::Class& Song::staticClass() {
///         static const vexim::Class& cls =
///             vexim::Class::declare("Song", &VXIMRuntimeObject::staticClass(),
///                                   {{"title", "T@\"NSString\",C,D,N"}, {"length", "Tq,D,N"}});
///         return cls;
///     }
///
/// A method that is called by name reads its arguments from the invocation. Index 2 is the first:
///
///     {"play:", "v@:q", [](vexim::Object& self, vexim::Invocation& invocation) {
///          std::int64_t second = 0;
///          invocation.getArgument(&second, 2);
///          static_cast<Song&>(self).play(second);
///      }}
class VEXIM_EXPORT Class {
public:
    /// Makes the record of a class. If another class has the same name, it raises
    /// NSInternalInconsistencyException. `superclass` is nullptr for a root class. Call it once for
    /// each class, in the initialiser of a static as above; any thread may be the first.
    static const Class& declare(std::string name, const Class* superclass,
                                std::vector<Property> properties = {},
                                std::vector<InstanceVariableDeclaration> instanceVariables = {},
                                std::vector<Method> methods = {});
    Class(const Class&) = delete;
    Class& operator=(const Class&) = delete;

    /// The name, unique in the process.
    const std::string& name() const noexcept { return name_; }
    /// The record of the class that it derives from; nullptr for a root class.
    const Class* superclass() const noexcept { return superclass_; }
    /// Whether this class derives from `other` or is the same.
    bool isSubclassOf(const Class& other) const noexcept;

    // Look up by name, first in this class and then in its superclasses. nullptr if there is none.
    // What they point to lives until the process ends. The search is linear, so keep what you use
    // often.
    const Property* property(std::string_view name) const noexcept;
    const InstanceVariable* instanceVariable(std::string_view name) const noexcept;
    const Method* method(Selector selector) const noexcept;
    bool instancesRespondToSelector(Selector selector) const noexcept {
        return method(selector) != nullptr;
    }

    // What this class itself declares, in order. Inherited ones are in the superclass's record.
    const std::vector<Property>& declaredProperties() const noexcept { return properties_; }
    const std::vector<InstanceVariable>& declaredInstanceVariables() const noexcept {
        return instanceVariables_;
    }

    /// How many slots the variables of an instance take, including inherited ones.
    std::size_t instanceSlotCount() const noexcept { return instanceSlotCount_; }

private:
    Class(std::string name, const Class* superclass, std::vector<Property> properties,
          std::vector<InstanceVariableDeclaration> instanceVariables, std::vector<Method> methods);

    // All constant after construction.
    std::string name_;
    const Class* superclass_;
    std::vector<Property> properties_;
    std::vector<InstanceVariable> instanceVariables_;
    std::vector<Method> methods_;
    std::size_t instanceSlotCount_;
};

}  // namespace vexim
