#include "VexIMLib/Foundation/Value.h"

#include <limits>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Scalars.h"
#include "VexIMLib/internal/Foundation/Text/Description.h"
#include "VexIMLib/internal/Foundation/Values/Blocks.h"
#include "VexIMLib/internal/Foundation/Values/Nil.h"

namespace vexim {

namespace detail {
constinit const Value kNil;
}

static_assert(sizeof(Value) == 16);
static_assert(sizeof(Array) == sizeof(void*) && sizeof(Dictionary) == sizeof(void*) &&
                  sizeof(Data) == sizeof(void*),
              "a container fits in a value's word");

/// Copies at most 14 bytes, in words that may overlap. Calling memcpy would cost more than the
/// copy.
static void copyShort(unsigned char* to, std::string_view text) noexcept {
    const char* const from = text.data();
    const std::size_t size = text.size();
    if (size >= 8) {
        std::memcpy(to, from, 8);
        std::memcpy(to + size - 8, from + size - 8, 8);
    } else if (size >= 4) {
        std::memcpy(to, from, 4);
        std::memcpy(to + size - 4, from + size - 4, 4);
    } else {
        for (std::size_t i = 0; i < size; ++i) to[i] = static_cast<unsigned char>(from[i]);
    }
}

Value::Value(const char* text) {
    if (text != nullptr) *this = Value(std::string_view(text));
}

Value::Value(std::string_view text) : kind_(Kind::String) {
    if (text.size() <= kInlineCapacity) {
        inlineSize_ = static_cast<std::uint8_t>(text.size());
        copyShort(bytes_, text);
        return;
    }
    auto* block = static_cast<detail::Counted*>(detail::StringRep::make(text));
    inlineSize_ = kCounted;
    std::memcpy(bytes_ + kWordOffset, &block, sizeof(block));
}

Value::Value(const std::string& text) : Value(std::string_view(text)) {}

Value::Value(const std::optional<std::string>& text) {
    if (text) *this = Value(std::string_view(*text));
}

Value::Value(vexim::Data data) noexcept : kind_(Kind::Data), inlineSize_(kCounted) {
    new (bytes_ + kWordOffset) vexim::Data(std::move(data));
}

Value::Value(vexim::Array array) noexcept : kind_(Kind::Array), inlineSize_(kCounted) {
    new (bytes_ + kWordOffset) vexim::Array(std::move(array));
}

Value::Value(vexim::Dictionary dictionary) noexcept
    : kind_(Kind::Dictionary),
      inlineSize_(kCounted) {
    new (bytes_ + kWordOffset) vexim::Dictionary(std::move(dictionary));
}

Value Value::fromObject(std::shared_ptr<vexim::Object> object) noexcept {
    if (!object) return {};
    return counted(Kind::Object, new detail::ObjectRep(std::move(object)));
}

Value Value::fromUnsigned(std::uint64_t value) noexcept {
    constexpr std::uint64_t kLargestSigned = std::numeric_limits<std::int64_t>::max();
    return Value(value > kLargestSigned ? Kind::Unsigned : Kind::Integer, value);
}

void Value::release() noexcept {
    switch (kind_) {
        case Kind::String: {
            auto* rep = static_cast<detail::StringRep*>(word<detail::Counted*>());
            if (rep->release()) detail::StringRep::destroy(rep);
            return;
        }
        case Kind::Object: {
            auto* rep = static_cast<detail::ObjectRep*>(word<detail::Counted*>());
            if (rep->release()) detail::destroyObject(rep);
            return;
        }
        case Kind::Data: held<vexim::Data>().~Data(); return;
        case Kind::Array: held<vexim::Array>().~Array(); return;
        case Kind::Dictionary: held<vexim::Dictionary>().~Dictionary(); return;
        case Kind::Nil:
        case Kind::Null:
        case Kind::Boolean:
        case Kind::Integer:
        case Kind::Unsigned:
        case Kind::Real: return;  // never counted
    }
}

std::string_view Value::sharedText() const noexcept {
    return static_cast<detail::StringRep*>(word<detail::Counted*>())->view();
}

std::optional<std::string> Value::asString() const {
    if (!isString()) return std::nullopt;
    return std::string(textView());
}

std::shared_ptr<Object> Value::asObject() const noexcept {
    if (!isObject()) return nullptr;
    return static_cast<detail::ObjectRep*>(word<detail::Counted*>())->object;
}

vexim::Array& Value::mutableArray() {
    if (!isArray()) throw Exception(kInternalInconsistencyException, "The value is not an array.");
    return const_cast<vexim::Array&>(held<vexim::Array>());
}

vexim::Dictionary& Value::mutableDictionary() {
    if (!isDictionary())
        throw Exception(kInternalInconsistencyException, "The value is not a dictionary.");
    return const_cast<vexim::Dictionary&>(held<vexim::Dictionary>());
}

bool Value::boolValue() const noexcept { return lenientBool(*this); }
std::int32_t Value::intValue() const noexcept {
    return static_cast<std::int32_t>(lenientInt64(*this));
}
std::int64_t Value::longLongValue() const noexcept { return lenientInt64(*this); }
std::uint64_t Value::unsignedLongLongValue() const noexcept { return lenientUInt64(*this); }
double Value::doubleValue() const noexcept { return lenientDouble(*this); }

const Value& Value::get(std::string_view key) const noexcept {
    const auto* dictionary = asDictionary();
    return dictionary ? dictionary->get(key) : detail::kNil;
}

const Value& Value::get(std::size_t index) const noexcept {
    const auto* array = asArray();
    return array ? array->get(index) : detail::kNil;
}

std::string Value::description() const {
    std::string text;
    detail::describe(*this, text);
    return text;
}

namespace {

// NaN equals itself here, so that a value always equals its copy, even if they share no storage.
bool sameReal(double a, double b) noexcept { return a == b || (a != a && b != b); }

using Pair = std::pair<const Value*, const Value*>;

// Compares one level. Containers that must be compared further go onto `pending`.
bool sameLevel(const Value& a, const Value& b, std::vector<Pair>& pending) {
    if (a.kind() != b.kind()) return false;
    switch (a.kind()) {
        case Value::Kind::Nil:
        case Value::Kind::Null: return true;
        case Value::Kind::Boolean: return a.boolean() == b.boolean();
        case Value::Kind::Integer: return a.integer() == b.integer();
        case Value::Kind::Unsigned: return a.unsignedInteger() == b.unsignedInteger();
        case Value::Kind::Real: return sameReal(a.real(), b.real());
        case Value::Kind::String: return *a.asStringView() == *b.asStringView();
        case Value::Kind::Data: return *a.asData() == *b.asData();
        case Value::Kind::Array:
        case Value::Kind::Dictionary: pending.emplace_back(&a, &b); return true;
        case Value::Kind::Object: {
            auto left = a.asObject();
            auto right = b.asObject();
            return left == right || left->isEqual(*right);
        }
    }
    return false;
}

bool sameElements(const Array& a, const Array& b, std::vector<Pair>& pending) {
    if (a.size() != b.size()) return false;
    if (a.begin() == b.begin()) return true;  // one store
    for (const Value *left = a.begin(), *right = b.begin(); left != a.end(); ++left, ++right) {
        if (!sameLevel(*left, *right, pending)) return false;
    }
    return true;
}

bool sameEntries(const Dictionary& a, const Dictionary& b, std::vector<Pair>& pending) {
    if (a.size() != b.size()) return false;
    if (a.begin() == b.begin()) return true;
    for (const auto& [key, value] : a) {
        const Value* other = b.find(key);
        if (other == nullptr || !sameLevel(value, *other, pending)) return false;
    }
    return true;
}

bool samePending(std::vector<Pair>& pending) {
    while (!pending.empty()) {
        auto [a, b] = pending.back();
        pending.pop_back();
        bool same = a->isArray() ? sameElements(*a->asArray(), *b->asArray(), pending)
                                 : sameEntries(*a->asDictionary(), *b->asDictionary(), pending);
        if (!same) return false;
    }
    return true;
}

}  // namespace

bool operator==(const Value& a, const Value& b) noexcept {
    std::vector<Pair> pending;
    return sameLevel(a, b, pending) && samePending(pending);
}

bool operator==(const Array& a, const Array& b) noexcept {
    std::vector<Pair> pending;
    return sameElements(a, b, pending) && samePending(pending);
}

bool operator==(const Dictionary& a, const Dictionary& b) noexcept {
    std::vector<Pair> pending;
    return sameEntries(a, b, pending) && samePending(pending);
}

bool idsEqual(const Value& a, const Value& b) noexcept { return !a.isNil() && a == b; }

bool idsEqual(const std::optional<std::string>& a, const std::optional<std::string>& b) noexcept {
    return a && b && *a == *b;
}

}  // namespace vexim
