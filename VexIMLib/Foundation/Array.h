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

/// An ordered list of values, itself a value: copying shares the store, writing to a shared one unshares it first.
/// Elements are never nil: adding nil raises NSInvalidArgumentException; JSON null is an element like any other.
/// A copy may be used from another thread; one object may not be written while another thread uses it.
class VEXIM_EXPORT Array {
public:
    Array() noexcept = default;
    Array(std::initializer_list<Value> elements);
    explicit Array(std::vector<Value> elements);
    /// The strings as an array of string values.
    static Array fromStrings(const std::vector<std::string>& strings);

    Array(const Array& other) noexcept;
    Array(Array&& other) noexcept;
    Array& operator=(const Array& other) noexcept;
    Array& operator=(Array&& other) noexcept;
    ~Array();

    std::size_t size() const noexcept;
    bool empty() const noexcept { return size() == 0; }
    const Value* begin() const noexcept;
    const Value* end() const noexcept;
    /// The element at `index`; raises NSRangeException beyond the end.
    const Value& at(std::size_t index) const;
    /// The element at `index`, nil beyond the end. The reference lives as long as this array is not written.
    const Value& get(std::size_t index) const noexcept;
    bool contains(const Value& value) const;

    void reserve(std::size_t count);
    void append(Value element);
    void appendAll(const Array& others);
    void set(std::size_t index, Value element);
    /// Calls `change` with the element in place, so that a container inside it is changed without a copy.
    void update(std::size_t index, const std::function<void(Value&)>& change);
    void remove(std::size_t index);
    /// Removes every element equal to `value`.
    void removeAll(const Value& value);
    void clear() noexcept;

    /// Elements that are strings, in order; others are left out.
    std::vector<std::string> strings() const;
    /// "[a, b]" with each element as `%@` would print it.
    std::string description() const;

    friend VEXIM_EXPORT bool operator==(const Array& a, const Array& b) noexcept;

private:
    friend class Value;
    friend struct detail::ArrayRep;
    detail::ArrayRep* rep_ = nullptr;  // nullptr is the empty array
};

}  // namespace vexim
