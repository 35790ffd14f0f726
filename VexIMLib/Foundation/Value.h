#pragma once

#include <cassert>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Counted.h"
#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Export.h"

namespace vexim {

class Object;

namespace detail {
struct DictionaryItem;
struct DictionaryRep;
struct ObjectRep;
struct StringRep;
}  // namespace detail

/// Any value that the library handles: JSON values, bytes, and objects.
///
/// nil (missing) and null (JSON null) differ. A boolean is not the number 1, an integer is not a
/// real, and a 64-bit integer is never converted to a double. `Unsigned` is used only above the
/// signed range, so 5 is always an `Integer`. Copies are cheap: strings, data and containers are
/// shared until written. You may use a copy on another thread, but do not write a value while
/// another thread uses it.
///
///     vexim::Value record = vexim::Dictionary{{"name", "Alice"}, {"nick", vexim::Value::null()}};
///     record.get("name").asString();           // "Alice", or nullopt if it were not a string
///     record.get("name").get("first").isNil(); // true: a missing entry is nil, at any depth
///     record.get("age").intValue();            // 0: lenient readings never fail
///     record.mutableDictionary().set("age", 42);
///
/// There are three ways to read one. `as…` gives the contents if the kind is right, and is for data
/// that must be checked. `…Value` converts leniently, and is for counters, flags and times from the
/// service. `boolean`, `integer`, `unsignedInteger` and `real` give the exact number after a look
/// at `kind`. Reading never changes the value.
///
/// To change a value that lies in another one, do it in place:
///
///     record.mutableDictionary().update("tags", [](vexim::Value& tags) {
///         if (!tags.isArray()) tags = vexim::Array();
///         tags.mutableArray().append("new");
///     });
///
/// A value can be compared with whatever it can be made from: `record.get("name") == "Alice"`. The
/// kind counts: `value == 5` is false for the text "5" and for 5.0.
///
/// Sixteen bytes large. A text of up to 14 bytes is stored inside and needs no memory of its own.
class VEXIM_EXPORT Value {
public:
    /// What a value holds.
    enum class Kind : std::uint8_t {
        /// nothing: an entry that is missing; never inside a container
        Nil,
        /// JSON null: an entry that is there and empty
        Null,
        /// true or false
        Boolean,
        /// a whole number of the signed 64-bit range
        Integer,
        /// a whole number above the signed range, up to 2^64 - 1
        Unsigned,
        /// a number with a fraction or an exponent, in double precision; also 5.0
        Real,
        /// text in UTF-8; may be empty and may contain NUL
        String,
        /// bytes; JSON has none
        Data,
        /// an ordered list
        Array,
        /// a map from strings to values
        Dictionary,
        /// an object of any class, held by reference; JSON has none
        Object
    };

    constexpr Value() noexcept = default;                                         ///< nil
    constexpr Value(std::nullptr_t) noexcept {}                                   ///< nil
    static Value null() noexcept { return Value(Kind::Null, std::uint64_t{0}); }  ///< JSON null
    /// true or false. Only bool gives a boolean: 1 is a number.
    Value(bool value) noexcept : Value(Kind::Boolean, std::uint64_t{value}) {}
    /// A whole number of any size and sign: an `Integer`, or an `Unsigned` if it is above 2^63 - 1.
    /// A char gives the number of the character.
    template <std::integral T>
    requires(!std::same_as<T, bool>) Value(T value)
    noexcept : Value(fromIntegral(value)) {}
    /// A `Real`, even if it has no fraction. NaN and infinity are allowed here, but not in JSON.
    Value(double value) noexcept : Value(Kind::Real, value) {}

    /// Forbidden: other pointers would silently become booleans.
    template <class T>
    requires(!std::same_as<std::remove_cv_t<T>, char>) Value(T* pointer)
    = delete;
    // A string; nullptr and nullopt give nil. The text is copied. It should be UTF-8, which is not
    // checked here; `vexim::writeJSON` refuses anything else.
    Value(const char* text);
    Value(std::string_view text);
    Value(const std::string& text);
    Value(const std::optional<std::string>& text);

    // Bytes, an array or a dictionary. Shares the storage with the original: a later write to one
    // of them does not change the other. Costs no copy of the contents.
    Value(vexim::Data data) noexcept;
    Value(vexim::Array array) noexcept;
    Value(vexim::Dictionary dictionary) noexcept;

    /// An object of any class, kept alive by this value and its copies. nullptr gives nil. It stays
    /// the same object: a change of it shows in every copy of the value.
    template <std::derived_from<vexim::Object> T>
    Value(std::shared_ptr<T> object) noexcept
        : Value(fromObject(std::static_pointer_cast<vexim::Object>(std::move(object)))) {}

    // Copies share strings, data and containers. A moved-from value is nil.
    Value(const Value& other) noexcept {
        relocate(other);
        if (isCounted()) retain();
    }
    Value(Value&& other) noexcept {
        relocate(other);
        other.forget();
    }
    // Releases what was there. Assigning a part of the value to the whole is fine.
    Value& operator=(const Value& other) noexcept {
        Value copy(other);  // copy first: `other` may be a part of this value
        swap(copy);
        return *this;
    }
    Value& operator=(Value&& other) noexcept {
        Value taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~Value() {
        if (isCounted()) release();
    }
    /// Exchanges the contents, without touching a counter: cheaper than three copies.
    void swap(Value& other) noexcept {
        Value kept;
        kept.relocate(other);
        other.relocate(*this);
        relocate(kept);
        kept.forget();
    }

    // Questions about the kind. None of them looks into the contents.

    /// What it holds. A switch over it should list every kind.
    Kind kind() const noexcept { return kind_; }
    /// Whether there is nothing, as for a missing entry.
    bool isNil() const noexcept { return kind() == Kind::Nil; }
    /// Whether it is JSON null, an entry that the sender emptied.
    bool isNull() const noexcept { return kind() == Kind::Null; }
    /// Whether it is one of the two. Most readers of optional fields want this.
    bool isNilOrNull() const noexcept { return kind() <= Kind::Null; }
    /// Whether it is true or false. 0 and 1 are not.
    bool isBoolean() const noexcept { return kind() == Kind::Boolean; }
    /// Whether it is a boolean, an integer or a real.
    bool isNumber() const noexcept { return kind() >= Kind::Boolean && kind() <= Kind::Real; }
    /// Whether it is a text; "5" is one.
    bool isString() const noexcept { return kind() == Kind::String; }
    /// Whether it holds bytes, such as an answer that was not JSON.
    bool isData() const noexcept { return kind() == Kind::Data; }
    /// Whether it is a list, an empty one included.
    bool isArray() const noexcept { return kind() == Kind::Array; }
    /// Whether it is a map, an empty one included.
    bool isDictionary() const noexcept { return kind() == Kind::Dictionary; }
    /// Whether it holds an object; `as` says of which class.
    bool isObject() const noexcept { return kind() == Kind::Object; }

    // The contents if they are of that kind, otherwise nullopt or nullptr. Nothing is converted:
    // the number 5 is not a string. Writing to the value, assigning to it or destroying it
    // invalidates pointers and views.

    /// The text where it lies; nullopt if it is not a string.
    std::optional<std::string_view> asStringView() const noexcept {
        if (!isString()) return std::nullopt;
        return textView();
    }
    /// A copy of the text, to keep; nullopt if it is not a string. With a default:
    ///
    ///     record.get("name").asString().value_or("nobody")
    std::optional<std::string> asString() const;
    // nullptr if it is of another kind:
    //
    //     if (const auto* names = answer.asArray()) show(names->strings());
    const vexim::Data* asData() const noexcept { return isData() ? &held<vexim::Data>() : nullptr; }
    const vexim::Array* asArray() const noexcept {
        return isArray() ? &held<vexim::Array>() : nullptr;
    }
    const vexim::Dictionary* asDictionary() const noexcept {
        return isDictionary() ? &held<vexim::Dictionary>() : nullptr;
    }
    /// The object, which the result keeps alive; nullptr if it is not an object.
    std::shared_ptr<vexim::Object> asObject() const noexcept;
    /// The object if it is a T, or of a class that derives from T; otherwise nullptr. So the user
    /// information of a notification is read in one step:
    ///
    ///     if (const auto message = userInfo.get("msg").as<VXIMMessage>()) …
    template <class T>
    std::shared_ptr<T> as() const noexcept {
        return std::dynamic_pointer_cast<T>(asObject());
    }

    // The container, to be changed in place. If a copy shares its storage, the storage is copied
    // first, so the copy does not change. A value of another kind raises
    // NSInternalInconsistencyException. The reference is valid until the value is assigned to.
    vexim::Array& mutableArray();
    vexim::Dictionary& mutableDictionary();

    // The exact number. Call only for a value of that kind (checked by an assertion; in a release
    // build the result is then meaningless). `kind()` says which of the four fits; a JSON number
    // like 5 is an Integer, 5.0 is a Real, and one above 2^63 - 1 is an Unsigned.

    /// Of a `Boolean`.
    bool boolean() const noexcept {
        assert(kind_ == Kind::Boolean);
        return word<std::uint64_t>() != 0;
    }
    /// Of an `Integer`.
    std::int64_t integer() const noexcept {
        assert(kind_ == Kind::Integer);
        return word<std::int64_t>();
    }
    /// Of an `Unsigned`.
    std::uint64_t unsignedInteger() const noexcept {
        assert(kind_ == Kind::Unsigned);
        return word<std::uint64_t>();
    }
    /// Of a `Real`.
    double real() const noexcept {
        assert(kind_ == Kind::Real);
        return word<double>();
    }

    // Lenient conversions, for everything that the service sends: numbers and numeric text convert,
    // anything else (nil, null, containers, objects, other text) is 0 or false. They never fail and
    // need no check of the kind. Narrow integers wrap, a real is truncated and limited to the
    // range, NaN is 0. So "12" and 12.9 give 12; "12abc" gives 0.

    /// Whether it is a number other than 0, or a text with one. "true" and "yes" are not numbers,
    /// so they give false.
    bool boolValue() const noexcept;
    /// The lower 32 bits of `longLongValue()`: 4294967297 gives 1.
    std::int32_t intValue() const noexcept;
    /// For times in milliseconds and counters. A real above 2^63 - 1 gives 2^63 - 1.
    std::int64_t longLongValue() const noexcept;
    /// For ids that use all 64 bits. A negative integer wraps; a negative real gives 0.
    std::uint64_t unsignedLongLongValue() const noexcept;
    /// The nearest double; integers above 2^53 may lose their last digits.
    double doubleValue() const noexcept;

    /// The entry under `key`; nil if there is none or this is not a dictionary. So calls can be
    /// chained without checks. The reference is valid until this value is written or destroyed.
    const Value& get(std::string_view key) const noexcept;
    /// The element at `index`, counted from 0; nil if there is none or this is not an array. The
    /// reference is valid until this value is written or destroyed.
    ///
    ///     answer.get("users").get(0).get("name").asString();
    const Value& get(std::size_t index) const noexcept;

    /// The text that `%@` prints: "(null)" for nil, "<null>" for null, 1 or 0 for booleans, strings
    /// unchanged. For people and logs; `vexim::writeJSON` writes what programs read. Do not log
    /// what may hold credentials or the text of a message.
    std::string description() const;

    /// Deep equality. Different kinds are never equal (5 and 5.0 differ). nil equals nil here;
    /// compare ids with `idsEqual`. Objects are compared with `isEqual`. NaN equals itself here, so
    /// a value always equals its copy.
    friend VEXIM_EXPORT bool operator==(const Value& a, const Value& b) noexcept;

private:
    // The steps of the constructors above. They choose the kind, and make the block if one is
    // needed.
    static Value fromObject(std::shared_ptr<vexim::Object> object) noexcept;
    static Value fromSigned(std::int64_t value) noexcept { return Value(Kind::Integer, value); }
    static Value fromUnsigned(std::uint64_t value) noexcept;
    template <class T>
    static Value fromIntegral(T value) noexcept {
        if constexpr (std::is_signed_v<T>) {
            return fromSigned(static_cast<std::int64_t>(value));
        } else {
            return fromUnsigned(static_cast<std::uint64_t>(value));
        }
    }

    // Sixteen bytes: the kind, then either the text of a short string, or at offset 8 a number or
    // the pointer to a shared block. Unused bytes are zero, so two short strings are equal if all
    // sixteen bytes are.
    friend struct detail::DictionaryItem;
    friend struct detail::DictionaryRep;
    /// The longest text that is stored inside, in bytes.
    static constexpr std::size_t kInlineCapacity = 14;
    /// Used as the length if the contents are in a block.
    static constexpr std::uint8_t kCounted = 0xFF;
    /// Where the number or the pointer begins in `bytes_`.
    static constexpr std::size_t kWordOffset = 6;

    /// A value whose contents are one word.
    template <class T>
    Value(Kind kind, T word) noexcept : kind_(kind) {
        static_assert(sizeof(T) <= 8 && std::is_trivially_copyable_v<T>);
        std::memcpy(bytes_ + kWordOffset, &word, sizeof(word));
    }
    /// Takes over one reference to `block`.
    static Value counted(Kind kind, detail::Counted* block) noexcept {
        Value value(kind, block);
        value.inlineSize_ = kCounted;
        return value;
    }

    /// The number or the pointer.
    template <class T>
    T word() const noexcept {
        T word;
        std::memcpy(&word, bytes_ + kWordOffset, sizeof(word));
        return word;
    }
    /// A container is one pointer, in the place where other kinds have their number.
    template <class T>
    const T& held() const noexcept {
        return *std::launder(reinterpret_cast<const T*>(bytes_ + kWordOffset));
    }
    // The text of a string, which lies here or in a block.
    std::string_view textView() const noexcept { return isCounted() ? sharedText() : inlineText(); }
    std::string_view inlineText() const noexcept {
        return {reinterpret_cast<const char*>(bytes_), inlineSize_};
    }
    std::string_view sharedText() const noexcept;

    // Sharing: a value with a block counts the references to it. The others are plain bytes.
    bool isCounted() const noexcept { return inlineSize_ == kCounted; }
    void retain() const noexcept {
        // an empty container has no block
        if (auto* block = word<detail::Counted*>()) block->retain();
    }
    /// Drops the reference. The last one destroys the block, without recursion for deep values.
    void release() noexcept;
    /// Copies the bytes without counting a reference; one of the two must then `forget`.
    void relocate(const Value& other) noexcept {
        std::memcpy(static_cast<void*>(this), &other, sizeof(Value));
    }
    /// Becomes nil without dropping a reference.
    void forget() noexcept {
        kind_ = Kind::Nil;
        inlineSize_ = 0;
    }

    // aligned, so that the word is, too
    alignas(8) Kind kind_ = Kind::Nil;
    // length of a string stored here; kCounted if the word points to a block, or is empty because
    // an empty container has none
    std::uint8_t inlineSize_ = 0;
    unsigned char bytes_[kInlineCapacity] = {};
};

// Whether two ids are the same. nil equals nothing, not even nil, so two users without an id are
// not the same user. The kinds must be equal, too: "5" is not 5.
VEXIM_EXPORT bool idsEqual(const Value& a, const Value& b) noexcept;
VEXIM_EXPORT bool idsEqual(const std::optional<std::string>& a,
                           const std::optional<std::string>& b) noexcept;

}  // namespace vexim
