// How the root class sends messages by name.

#include <cstddef>
#include <cstdio>
#include <string>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/Foundation/Runtime/TypeEncoding.h"

namespace vexim {

namespace {

constexpr std::size_t kLargestScalar = 16;  // bytes: a long double

void setBoxedArgument(Invocation& invocation, const Value& value, std::size_t index) {
    const Type type = readType(invocation.methodSignature().argumentType(index));
    if (type.isObject) return invocation.setArgument(&value, index);
    if (value.isNilOrNull()) return;  // arguments are 0 at first
    alignas(kLargestScalar) std::byte scalar[kLargestScalar] = {};
    if (!unboxScalar(value, type.text, scalar)) {
        throw Exception(kInvalidArgumentException,
                        "argument " + value.description() + " of " + invocation.selector().text() +
                            " cannot be passed as type " + std::string(type.text));
    }
    invocation.setArgument(scalar, index);
}

Value boxedReturnValue(const Invocation& invocation) {
    const Type type = readType(invocation.methodSignature().methodReturnType());
    Value result;
    if (type.isObject) {
        invocation.getReturnValue(&result);
    } else if (type.size > 0) {
        alignas(kLargestScalar) std::byte scalar[kLargestScalar] = {};
        if (type.size <= sizeof scalar) invocation.getReturnValue(scalar);
        if (type.size <= sizeof scalar) result = boxScalar(type.text, scalar);
        if (result.isNil()) {
            throw Exception(kInvalidArgumentException,
                            "the result of " + invocation.selector().text() + ", of type " +
                                std::string(type.text) + ", cannot be a Value");
        }
    }
    return result;
}

}  // namespace

const Class& Object::staticClass() {
    static const Class& cls =
        Class::declare("Object", nullptr, {}, {},
                       {{"description", "@@:", [](Object& self, Invocation& invocation) {
                             const Value text = self.description();
                             invocation.setReturnValue(&text);
                         }}});
    return cls;
}

const Class& Object::runtimeClass() const { return staticClass(); }

bool Object::isKindOfClass(const Class& cls) const noexcept {
    return runtimeClass().isSubclassOf(cls);
}

bool Object::respondsToSelector(Selector selector) const noexcept {
    return runtimeClass().instancesRespondToSelector(selector);
}

std::shared_ptr<const MethodSignature> Object::methodSignatureForSelector(Selector selector) const {
    const Method* method = runtimeClass().method(selector);
    return method ? method->signature : nullptr;
}

void Object::forwardInvocation(Invocation& invocation) {
    doesNotRecognizeSelector(invocation.selector());
}

Value Object::perform(Selector selector, std::initializer_list<Value> arguments) {
    const auto signature = methodSignatureForSelector(selector);
    if (!signature) doesNotRecognizeSelector(selector);
    Invocation invocation(*signature, *this, selector);
    std::size_t index = 2;  // after the receiver and the selector
    for (const Value& argument : arguments) {
        if (index == signature->numberOfArguments()) break;
        setBoxedArgument(invocation, argument, index++);
    }
    invocation.invoke();
    return boxedReturnValue(invocation);
}

void Object::doesNotRecognizeSelector(Selector selector) const {
    char address[2 + 2 * sizeof(void*) + 1];
    std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
    throw Exception(kInvalidArgumentException,
                    "-[" + runtimeClass().name() + " " + selector.text() +
                        "]: unrecognized selector sent to instance " + address);
}

}  // namespace vexim
