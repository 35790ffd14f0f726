#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim {

/// What an object writes itself into, and is made again from: values by key.
class VEXIM_EXPORT Coder {
public:
    Coder() = default;
    /// One to decode from.
    explicit Coder(Dictionary values) : values_(std::move(values)) {}

    /// nil leaves the key out.
    void encode(std::string_view key, Value value) { values_.setOrRemove(key, std::move(value)); }
    /// nil when there is none.
    const Value& decode(std::string_view key) const noexcept { return values_.get(key); }
    /// All that was encoded so far.
    const Dictionary& values() const noexcept { return values_; }

private:
    Dictionary values_;
};

/// A class whose objects can be kept: they encode themselves, and a coder makes them again
/// (nullptr: what it holds is no T).
template <class T>
concept SecureCoding = std::derived_from<T, Object> &&
    requires(const T& object, Coder& coder, const Coder& archive) {
    object.encodeWithCoder(coder);
    { T::initWithCoder(archive) } -> std::same_as<std::shared_ptr<T>>;
    { T::supportsSecureCoding() } -> std::same_as<bool>;
    { T::staticClass() } -> std::same_as<const Class&>;
};

namespace detail {
VEXIM_EXPORT Data archive(const Class& cls, const Coder& coder, ErrorPtr* error);
VEXIM_EXPORT std::optional<Coder> unarchive(const Class& cls, const Data& archive, ErrorPtr* error);
}  // namespace detail

/// An object as bytes to be kept: JSON that names the class. Empty, with `error` set when given
/// ("NSCocoaErrorDomain" 3851), when the object holds what JSON cannot say.
template <SecureCoding T>
Data archivedData(const T& object, ErrorPtr* error = nullptr) {
    Coder coder;
    object.encodeWithCoder(coder);
    return detail::archive(T::staticClass(), coder, error);
}

/// The object kept in `archive`. Only a T is ever made of it: nullptr, with `error` set when given
/// ("NSCocoaErrorDomain" 4864), for what is damaged or names another class.
template <SecureCoding T>
std::shared_ptr<T> unarchivedObject(const Data& archive, ErrorPtr* error = nullptr) {
    const auto coder = detail::unarchive(T::staticClass(), archive, error);
    return coder ? T::initWithCoder(*coder) : nullptr;
}

}  // namespace vexim
