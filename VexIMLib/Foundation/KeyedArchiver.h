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

/// Holds an object's values by key, for an archive. A class that can be archived writes its values
/// in `encodeWithCoder` and reads them back in `initWithCoder`. Use one coder on one thread.
///
///     const vexim::Data archive = vexim::archivedData(*message);
///     vexim::ErrorPtr error;
///     const auto copy = vexim::unarchivedObject<VXIMMessage>(archive, &error);
///
/// A class becomes archivable with three functions:
///
///     void encodeWithCoder(vexim::Coder& coder) const { coder.encode("title", title_); }
///     static std::shared_ptr<Song> initWithCoder(const vexim::Coder& coder);
///     static bool supportsSecureCoding() { return true; }
class VEXIM_EXPORT Coder {
public:
    /// A coder to encode into. It has no values yet.
    Coder() = default;
    /// A coder to decode from. The values may come from a damaged archive, so check their kinds.
    explicit Coder(Dictionary values) : values_(std::move(values)) {}

    /// Adds a value, or replaces the one under `key`; nil removes the key. Store only what JSON can
    /// express: no data, no objects, no NaN.
    void encode(std::string_view key, Value value) { values_.setOrRemove(key, std::move(value)); }
    /// The value under `key`; nil if there is none. Archives may come from an older program, so
    /// expect nil. The reference is valid as long as the coder.
    const Value& decode(std::string_view key) const noexcept { return values_.get(key); }
    /// Everything encoded so far, or everything that the archive held. Valid as long as the coder.
    const Dictionary& values() const noexcept { return values_; }

private:
    Dictionary values_;  // by key
};

/// A class whose objects can be archived. `initWithCoder` returns nullptr if the coder does not
/// hold a T. `supportsSecureCoding` returns true; `staticClass` names the class in the archive. Of
/// the library's own classes, VXIMMessage can be archived.
template <class T>
concept SecureCoding = std::derived_from<T, Object> &&
    requires(const T& object, Coder& coder, const Coder& archive) {
    object.encodeWithCoder(coder);
    { T::initWithCoder(archive) } -> std::same_as<std::shared_ptr<T>>;
    { T::supportsSecureCoding() } -> std::same_as<bool>;
    { T::staticClass() } -> std::same_as<const Class&>;
};

namespace detail {
// The parts that are the same for every class: JSON with the class's name around the coder's
// values. Both clear `error` on success.
VEXIM_EXPORT Data archive(const Class& cls, const Coder& coder, ErrorPtr* error);
VEXIM_EXPORT std::optional<Coder> unarchive(const Class& cls, const Data& archive, ErrorPtr* error);
}  // namespace detail

/// Archives an object as JSON, with the name of its class. The result is UTF-8 text. If the object
/// holds something that JSON cannot express, the result is empty and `error` (if not nullptr) is
/// set to "NSCocoaErrorDomain" 3851. Without `error` the failure shows only in the empty result.
/// Call from any thread, while no other thread changes the object.
template <SecureCoding T>
Data archivedData(const T& object, ErrorPtr* error = nullptr) {
    Coder coder;
    object.encodeWithCoder(coder);
    return detail::archive(T::staticClass(), coder, error);
}

/// Restores an object from `archive`. It never makes anything but a T. If the archive is damaged or
/// names another class, the result is nullptr and `error` (if not nullptr) is set to
/// "NSCocoaErrorDomain" 4864. If `initWithCoder` refuses the values, the result is nullptr without
/// an error. Call from any thread.
template <SecureCoding T>
std::shared_ptr<T> unarchivedObject(const Data& archive, ErrorPtr* error = nullptr) {
    const auto coder = detail::unarchive(T::staticClass(), archive, error);
    return coder ? T::initWithCoder(*coder) : nullptr;
}

}  // namespace vexim
