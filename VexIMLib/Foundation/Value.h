#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Export.h"

namespace vexim {

class Object;

/// Any value that the library handles: what JSON can say, bytes, and objects.
///
/// nil (absent) and null (JSON null) differ. A boolean is not the number 1, an integer is not a real, and no 64-bit integer
/// passes through a double. `Unsigned` is used only above the signed range, so that 5 is one kind.
/// Copying costs at most one counter: strings, data and containers are shared until written.
class VEXIM_EXPORT Value {
public:
    enum class Kind : std::uint8_t { Nil, Null, Boolean, Integer, Unsigned, Real, String, Data, Array, Dictionary, Object };

    Value() noexcept;                ///< nil
    Value(std::nullptr_t) noexcept;  ///< nil
    static Value null() noexcept;    ///< JSON null
    Value(bool value) noexcept;
    template <std::integral T>
    requires(!std::same_as<T, bool>) Value(T value)
    noexcept : Value(fromIntegral(value)) {}
    Value(double value) noexcept;
    Value(const char* text);  ///< nullptr is nil
    Value(std::string_view text);
    Value(const std::string& text);
    Value(const std::optional<std::string>& text);  ///< nullopt is nil
    Value(vexim::Data data) noexcept;
    Value(vexim::Array array) noexcept;
    Value(vexim::Dictionary dictionary) noexcept;
    /// An object of any class; nullptr is nil.
    template <std::derived_from<vexim::Object> T>
    Value(std::shared_ptr<T> object) noexcept : Value(fromObject(std::static_pointer_cast<vexim::Object>(std::move(object)))) {}

    Value(const Value& other) noexcept;
    Value(Value&& other) noexcept;
    Value& operator=(const Value& other) noexcept;
    Value& operator=(Value&& other) noexcept;
    ~Value();

    Kind kind() const noexcept;
    bool isNil() const noexcept { return kind() == Kind::Nil; }
    bool isNull() const noexcept { return kind() == Kind::Null; }
    bool isNilOrNull() const noexcept { return kind() <= Kind::Null; }
    bool isBoolean() const noexcept { return kind() == Kind::Boolean; }
    /// A boolean, an integer or a real: what the platform would hold in one number object.
    bool isNumber() const noexcept { return kind() >= Kind::Boolean && kind() <= Kind::Real; }
    bool isString() const noexcept { return kind() == Kind::String; }
    bool isData() const noexcept { return kind() == Kind::Data; }
    bool isArray() const noexcept { return kind() == Kind::Array; }
    bool isDictionary() const noexcept { return kind() == Kind::Dictionary; }
    bool isObject() const noexcept { return kind() == Kind::Object; }

    // The contents, when they are of that kind. Pointers and views live as long as this value is not written.
    std::optional<std::string_view> asStringView() const noexcept;
    /// The text as a string of its own; nullopt when this is no string.
    std::optional<std::string> asString() const;
    const vexim::Data* asData() const noexcept;
    const vexim::Array* asArray() const noexcept;
    const vexim::Dictionary* asDictionary() const noexcept;
    std::shared_ptr<vexim::Object> asObject() const noexcept;
    /// The object, when it is one of class T; else nullptr.
    template <class T>
    std::shared_ptr<T> as() const noexcept {
        return std::dynamic_pointer_cast<T>(asObject());
    }

    /// The container itself, to be written in place; the value must be of that kind (else NSInternalInconsistencyException).
    vexim::Array& mutableArray();
    vexim::Dictionary& mutableDictionary();

    /// The exact number held, by kind; call only for that kind (asserted).
    bool boolean() const noexcept;
    std::int64_t integer() const noexcept;
    std::uint64_t unsignedInteger() const noexcept;
    double real() const noexcept;

    // Lenient readings, as everything from the wire is read: numbers and numeric text convert, anything else is 0 or false.
    // Narrow integers wrap, a real truncates and saturates, NaN is 0.
    bool boolValue() const noexcept;
    std::int32_t intValue() const noexcept;
    std::int64_t longLongValue() const noexcept;
    std::uint64_t unsignedLongLongValue() const noexcept;
    double doubleValue() const noexcept;

    /// The entry under `key` when this is a dictionary that has one, else nil.
    const Value& get(std::string_view key) const noexcept;
    /// The element at `index` when this is an array that has one, else nil.
    const Value& get(std::size_t index) const noexcept;

    /// What `%@` prints: "(null)" for nil, "<null>" for null, 1 and 0 for booleans, a string as it stands.
    std::string description() const;

    /// Deep equality within one kind (5 and 5.0 differ; nil equals nil here, see `idsEqual` for ids). Objects by `isEqual`.
    friend VEXIM_EXPORT bool operator==(const Value& a, const Value& b) noexcept;

private:
    static Value fromObject(std::shared_ptr<vexim::Object> object) noexcept;
    static Value fromSigned(std::int64_t value) noexcept;
    static Value fromUnsigned(std::uint64_t value) noexcept;
    template <class T>
    static Value fromIntegral(T value) noexcept {
        if constexpr (std::is_signed_v<T>) {
            return fromSigned(static_cast<std::int64_t>(value));
        } else {
            return fromUnsigned(static_cast<std::uint64_t>(value));
        }
    }

    // TODO(foundation): private representation
    alignas(8) unsigned char storage_[16];
};

/// Whether two ids are the same. nil equals nothing, not even nil.
VEXIM_EXPORT bool idsEqual(const Value& a, const Value& b) noexcept;
VEXIM_EXPORT bool idsEqual(const std::optional<std::string>& a, const std::optional<std::string>& b) noexcept;

}  // namespace vexim
