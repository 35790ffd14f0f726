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

/// A method that can be reached by its selector. It takes its arguments from the invocation and
/// leaves its result there.
struct Method {
    /// The method's body, called on the thread that sends the message.
    using Implementation = void (*)(Object& self, Invocation& invocation);

    /// `types` as for `MethodSignature::signatureWithObjCTypes`, which raises for what is no type.
    Method(Selector name, std::string_view types, Implementation body);

    Selector selector;                                 // its name
    std::shared_ptr<const MethodSignature> signature;  // never nullptr
    Implementation implementation;                     // called with the receiver and the message
};

/// An instance variable's declaration: its name and type encoding.
struct InstanceVariableDeclaration {
    std::string name;          // unique among the class's
    std::string typeEncoding;  // as TypeEncoding.h tells
};

/// The runtime's record of a class. Made once, by the class's `staticClass()`, and never changed or
/// destroyed, so it is read from any thread without a lock.
///
///     const vexim::Class& Song::staticClass() {
///         static const vexim::Class& cls = vexim::Class::declare("Song",
///         &VXIMRuntimeObject::staticClass(),
///                                                                {{"title",
///                                                                "T@\"NSString\",C,D,N"},
///                                                                {"length", "Tq,D,N"}});
///         return cls;
///     }
class VEXIM_EXPORT Class {
public:
    /// Makes the record of a class named `name`, which no other class may bear (else
    /// NSInternalInconsistencyException). `superclass` is nullptr for a root class.
    static const Class& declare(std::string name, const Class* superclass,
                                std::vector<Property> properties = {},
                                std::vector<InstanceVariableDeclaration> instanceVariables = {},
                                std::vector<Method> methods = {});
    Class(const Class&) = delete;
    Class& operator=(const Class&) = delete;

    /// As declared; unique in the process.
    const std::string& name() const noexcept { return name_; }
    /// nullptr for a root class.
    const Class* superclass() const noexcept { return superclass_; }
    /// A class counts as a subclass of itself.
    bool isSubclassOf(const Class& other) const noexcept;

    // By name; each looks at this class first and then at its superclasses. nullptr when there is
    // none.
    const Property* property(std::string_view name) const noexcept;
    const InstanceVariable* instanceVariable(std::string_view name) const noexcept;
    const Method* method(Selector selector) const noexcept;
    bool instancesRespondToSelector(Selector selector) const noexcept {
        return method(selector) != nullptr;
    }

    // Those that this class declares itself, in order.
    const std::vector<Property>& declaredProperties() const noexcept { return properties_; }
    const std::vector<InstanceVariable>& declaredInstanceVariables() const noexcept {
        return instanceVariables_;
    }

    /// How many slots an instance's variables take, inherited ones first.
    std::size_t instanceSlotCount() const noexcept { return instanceSlotCount_; }

private:
    Class(std::string name, const Class* superclass, std::vector<Property> properties,
          std::vector<InstanceVariableDeclaration> instanceVariables, std::vector<Method> methods);

    std::string name_;
    const Class* superclass_;
    std::vector<Property> properties_;
    std::vector<InstanceVariable> instanceVariables_;
    std::vector<Method> methods_;
    std::size_t instanceSlotCount_;
};

}  // namespace vexim
