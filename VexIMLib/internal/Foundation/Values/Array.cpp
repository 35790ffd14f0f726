#include "VexIMLib/Foundation/Array.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/internal/Foundation/Text/Description.h"
#include "VexIMLib/internal/Foundation/Values/Blocks.h"
#include "VexIMLib/internal/Foundation/Values/Nil.h"

namespace vexim {

using detail::ArrayRep;

namespace detail {

ArrayRep* ArrayRep::make(std::size_t capacity) {
    const Block block = Block::take(sizeof(ArrayRep) + capacity * sizeof(Value));
    return new (block.at) ArrayRep(capacity, block.offset);
}

ArrayRep* ArrayRep::adopt(Value* values, std::size_t count) {
    if (count == 0) return nullptr;
    auto* rep = make(count);
    std::memcpy(static_cast<void*>(rep->elements()), values, count * sizeof(Value));
    rep->size = count;
    return rep;
}

Array ArrayRep::wrap(ArrayRep* rep) noexcept {
    Array array;
    array.rep_ = rep;
    return array;
}

void ArrayRep::destroy(ArrayRep* rep) noexcept {
    const Block block{rep, rep->offset};
    std::destroy_n(rep->elements(), rep->size);
    rep->~ArrayRep();
    block.deallocate();
}

namespace {

void drop(ArrayRep* rep) noexcept {
    if (rep && rep->release()) destroyContainer(rep);
}

// Makes the storage ours alone, with room for `count` elements, and replaces what `rep` points to.
ArrayRep& own(ArrayRep*& rep, std::size_t count) {
    if (rep && !rep->isShared() && rep->capacity >= count) return *rep;
    const std::size_t size = rep ? rep->size : 0;
    const std::size_t room =
        count <= size ? size : std::max({count, size + size / 2, std::size_t{4}});
    auto* fresh = ArrayRep::make(room);
    if (rep) {
        if (rep->isShared()) {
            std::uninitialized_copy_n(rep->elements(), size, fresh->elements());
        } else {  // moves values by copying their bytes
            std::memcpy(static_cast<void*>(fresh->elements()), rep->elements(),
                        size * sizeof(Value));
            rep->size = 0;
        }
    }
    fresh->size = size;
    drop(std::exchange(rep, fresh));
    return *fresh;
}

Value checked(Value element) {
    if (element.isNil()) throw Exception(kInvalidArgumentException, "An array cannot hold nil.");
    return element;
}

[[noreturn]] void throwRange(std::size_t index, std::size_t size) {
    throw Exception(kRangeException, "Index " + std::to_string(index) +
                                         " beyond bounds of an array of " + std::to_string(size) +
                                         ".");
}

}  // namespace
}  // namespace detail

// delegated, so that a throw below still runs the destructor
Array::Array(std::initializer_list<Value> elements) : Array() {
    reserve(elements.size());
    for (const auto& element : elements) append(element);
}

Array::Array(std::vector<Value> elements) : Array() {
    reserve(elements.size());
    for (auto& element : elements) append(std::move(element));
}

Array Array::fromStrings(const std::vector<std::string>& strings) {
    Array array;
    array.reserve(strings.size());
    for (const auto& string : strings) array.append(string);
    return array;
}

Array::Array(const Array& other) noexcept : rep_(other.rep_) {
    if (rep_) rep_->retain();
}

Array::Array(Array&& other) noexcept : rep_(std::exchange(other.rep_, nullptr)) {}

Array& Array::operator=(const Array& other) noexcept {
    Array copy(other);
    std::swap(rep_, copy.rep_);
    return *this;
}

Array& Array::operator=(Array&& other) noexcept {
    Array taken(std::move(other));
    std::swap(rep_, taken.rep_);
    return *this;
}

Array::~Array() { detail::drop(rep_); }

std::size_t Array::size() const noexcept { return rep_ ? rep_->size : 0; }

const Value* Array::begin() const noexcept { return rep_ ? rep_->elements() : nullptr; }

const Value* Array::end() const noexcept { return rep_ ? rep_->elements() + rep_->size : nullptr; }

const Value& Array::at(std::size_t index) const {
    if (index >= size()) detail::throwRange(index, size());
    return rep_->elements()[index];
}

const Value& Array::get(std::size_t index) const noexcept {
    return index < size() ? rep_->elements()[index] : detail::kNil;
}

bool Array::contains(const Value& value) const { return std::find(begin(), end(), value) != end(); }

void Array::reserve(std::size_t count) {
    if (count > 0) detail::own(rep_, std::max(count, size()));
}

void Array::append(Value element) {
    element = detail::checked(std::move(element));
    auto& rep = detail::own(rep_, size() + 1);
    new (rep.elements() + rep.size) Value(std::move(element));
    ++rep.size;
}

void Array::appendAll(const Array& others) {
    const Array added = others;  // it may be this very array
    if (added.empty()) return;
    auto& rep = detail::own(rep_, size() + added.size());
    std::uninitialized_copy_n(added.begin(), added.size(), rep.elements() + rep.size);
    rep.size += added.size();
}

void Array::set(std::size_t index, Value element) {
    if (index >= size()) detail::throwRange(index, size());
    element = detail::checked(std::move(element));
    // The old element is destroyed last, with `element`, because its destructor may look at this
    // array.
    detail::own(rep_, size()).elements()[index].swap(element);
}

void Array::update(std::size_t index, const std::function<void(Value&)>& change) {
    if (index >= size()) detail::throwRange(index, size());
    // Take the element out meanwhile: then it has one owner, and a change that touches the array
    // finds it intact.
    Value element = Value::null();
    detail::own(rep_, size()).elements()[index].swap(element);
    auto putBack = [&] {
        if (element.isNil()) {
            remove(index);
        } else if (index < size()) {
            set(index, std::move(element));
        }
    };
    try {
        change(element);
    } catch (...) {
        putBack();
        throw;
    }
    putBack();
}

void Array::remove(std::size_t index) {
    if (index >= size()) detail::throwRange(index, size());
    auto& rep = detail::own(rep_, size());
    Value removed = std::move(rep.elements()[index]);
    std::memmove(static_cast<void*>(rep.elements() + index), rep.elements() + index + 1,
                 (rep.size - index - 1) * sizeof(Value));
    --rep.size;
}

void Array::removeAll(const Value& value) {
    if (!contains(value)) return;
    const Value wanted = value;  // it may be one of ours
    Array kept;
    for (const auto& element : *this) {
        if (!(element == wanted)) kept.append(element);
    }
    *this = std::move(kept);
}

void Array::clear() noexcept { detail::drop(std::exchange(rep_, nullptr)); }

std::vector<std::string> Array::strings() const {
    std::vector<std::string> strings;
    for (const auto& element : *this) {
        if (auto text = element.asStringView()) strings.emplace_back(*text);
    }
    return strings;
}

std::string Array::description() const { return Value(*this).description(); }

}  // namespace vexim
