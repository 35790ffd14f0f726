#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMRuntimeObject.h"

// Typed access to dynamic properties. An accessor is a message that is forwarded to the store. A
// handle remembers the result of forwarding for each concrete class, so locks and look-ups by name
// are paid only once. Handles are static constants, usable from any thread:
//
//     constinit const vexim::DynamicProperty<std::optional<std::string>> kUid{
//         &VXIMUser::staticClass, "uid"};
//     kUid.set(*user, "u1");  // even if the C++ class has no public setter
//     kUid.get(*user);        // "u1"

namespace vexim {

namespace detail {

/// One accessor's message, getter or setter.
class DynamicAccessor {
public:
    enum class Kind : std::uint8_t { Getter, Setter };

    constexpr DynamicAccessor(Kind kind, const Class& (*declaringClass)(),
                              std::string_view property, std::string_view encoding,
                              std::size_t size) noexcept
        : declaringClass_(declaringClass),
          property_(property),
          encoding_(encoding),
          size_(size),
          kind_(kind) {}

    // `value` points to the C++ form of the encoding, a Value for an object.
    void get(VXIMRuntimeObject& object, void* value) const;
    void set(VXIMRuntimeObject& object, const void* value) const;

private:
    struct Route;
    const Route& routeFor(VXIMRuntimeObject& object) const;
    const Route& addRoute(VXIMRuntimeObject& object, const Class& cls) const;

    const Class& (*declaringClass_)();
    std::string_view property_;
    std::string_view encoding_;
    std::size_t size_;  // of the value, in bytes
    Kind kind_;
    // one for each concrete class; append only, read without a lock
    mutable std::atomic<const Route*> routes_{nullptr};
};

/// The encoding under which a dynamic property of C++ type T is declared.
template <class T>
constexpr std::string_view encodingOf() noexcept {
    if constexpr (std::is_same_v<T, bool>) {
        return "B";
    } else if constexpr (std::is_same_v<T, std::int32_t>) {
        return "i";
    } else if constexpr (std::is_same_v<T, std::int64_t>) {
        return "q";
    } else if constexpr (std::is_same_v<T, std::uint64_t>) {
        return "Q";
    } else if constexpr (std::is_same_v<T, float>) {
        return "f";
    } else if constexpr (std::is_same_v<T, double>) {
        return "d";
    } else {
        return "@";
    }
}

// Objects in their C++ form. Stored values are not converted: a number where a string is expected
// reads as missing.
inline Value fromObject(Value value, std::type_identity<Value>) { return value; }
inline std::optional<std::string> fromObject(const Value& value,
                                             std::type_identity<std::optional<std::string>>) {
    return value.asString();
}
inline std::optional<Array> fromObject(const Value& value,
                                       std::type_identity<std::optional<Array>>) {
    return value.asArray() ? std::optional<Array>(*value.asArray()) : std::nullopt;
}
inline std::optional<Dictionary> fromObject(const Value& value,
                                            std::type_identity<std::optional<Dictionary>>) {
    return value.asDictionary() ? std::optional<Dictionary>(*value.asDictionary()) : std::nullopt;
}
template <class T>
Value toObject(T value) {
    return Value(std::move(value));
}
template <class T>
Value toObject(std::optional<T> value) {
    return value ? Value(*std::move(value)) : Value();
}

}  // namespace detail

/// A dynamic property of C++ type T: bool (`B`), std::int32_t (`i`), std::int64_t (`q`),
/// std::uint64_t (`Q`), float (`f`), double (`d`), or for an object type Value,
/// std::optional<std::string>, std::optional<Array>, std::optional<Dictionary>.
///
/// Both accessors raise NSInvalidArgumentException if the object's class does not have the
/// property, NSInternalInconsistencyException if it is declared with another type than T's, and
/// whatever the forwarding raises.
template <class T>
class DynamicProperty {
public:
    constexpr DynamicProperty(const Class& (*declaringClass)(), std::string_view name) noexcept
        : getter_(detail::DynamicAccessor::Kind::Getter, declaringClass, name,
                  detail::encodingOf<T>(), kSize),
          setter_(detail::DynamicAccessor::Kind::Setter, declaringClass, name,
                  detail::encodingOf<T>(), kSize) {}

    /// A getter is an ordinary message. The object is const for callers because normal getters only
    /// read.
    T get(const VXIMRuntimeObject& object) const {
        auto& target = const_cast<VXIMRuntimeObject&>(object);
        if constexpr (std::is_arithmetic_v<T>) {
            T value{};
            getter_.get(target, &value);
            return value;
        } else {
            Value value;
            getter_.get(target, &value);
            return detail::fromObject(std::move(value), std::type_identity<T>());
        }
    }

    void set(VXIMRuntimeObject& object, T value) const {
        if constexpr (std::is_arithmetic_v<T>) {
            setter_.set(object, &value);
        } else {
            const Value boxed = detail::toObject(std::move(value));
            setter_.set(object, &boxed);
        }
    }

private:
    static constexpr std::size_t kSize = std::is_arithmetic_v<T> ? sizeof(T) : sizeof(Value);

    detail::DynamicAccessor getter_;
    detail::DynamicAccessor setter_;
};

}  // namespace vexim
