#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

class Value;

namespace detail {
struct ArrayRep;
}

/// An ordered list of values, itself a value: copying shares the store, writing to a shared one
/// unshares it first. Elements are never nil: adding nil raises NSInvalidArgumentException; JSON
/// null is an element like any other. A copy may be used from another thread; one object may not be
/// written while another thread uses it.
class VEXIM_EXPORT Array {
public:
    Array() noexcept = default;
    /// With these elements; a nil among them raises. An array of one array is
    /// `Array{Value(inner)}`: compilers do not agree on `Array{inner}`, which for some is a copy of
    /// `inner` (CWG 2137).
    Array(std::initializer_list<Value> elements);
    explicit Array(std::vector<Value> elements);
    /// The strings as an array of string values.
    static Array fromStrings(const std::vector<std::string>& strings);

    Array(const Array& other) noexcept;
    Array(Array&& other) noexcept;
    Array& operator=(const Array& other) noexcept;
    Array& operator=(Array&& other) noexcept;
    ~Array();

    // As a standard container's. Iterators live as long as this array is not written.
    std::size_t size() const noexcept;
    bool empty() const noexcept { return size() == 0; }
    const Value* begin() const noexcept;
    const Value* end() const noexcept;

    /// The element at `index`; raises NSRangeException beyond the end.
    const Value& at(std::size_t index) const;
    /// The element at `index`, nil beyond the end. The reference lives as long as this array is not
    /// written.
    const Value& get(std::size_t index) const noexcept;
    /// Whether an element equals `value`; takes time by the length.
    bool contains(const Value& value) const;

    // A nil element raises NSInvalidArgumentException, an index beyond the end NSRangeException.
    // Nothing has changed then.
    void reserve(std::size_t count);
    void append(Value element);
    void appendAll(const Array& others);
    void set(std::size_t index, Value element);
    /// Calls `change` with the element in place, so that a container inside it is changed without a
    /// copy. What is nil afterwards is removed.
    void update(std::size_t index, const std::function<void(Value&)>& change);
    void remove(std::size_t index);

    /// Removes every element equal to `value`.
    void removeAll(const Value& value);
    /// Leaves it empty; copies keep their elements.
    void clear() noexcept;

    /// Elements that are strings, in order; others are left out.
    std::vector<std::string> strings() const;
    /// "[a, b]" with each element as `%@` would print it.
    std::string description() const;

    /// Element by element, in order.
    friend VEXIM_EXPORT bool operator==(const Array& a, const Array& b) noexcept;

private:
    friend class Value;
    friend struct detail::ArrayRep;
    detail::ArrayRep* rep_ = nullptr;  // nullptr is the empty array
};

}  // namespace vexim
