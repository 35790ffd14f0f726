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

/// An ordered list of values. It is itself a value: a copy shares the storage until one of the two
/// is written. Elements are never nil: adding nil raises NSInvalidArgumentException. JSON null is a
/// normal element. You may use a copy on another thread, but do not write an array while another
/// thread uses it.
///
///     vexim::Array userIds{"alice", "bob"};
///     userIds.append("carol");
///     userIds.get(7).isNil();  // true; at(7) raises
class VEXIM_EXPORT Array {
public:
    Array() noexcept = default;
    /// An array with these elements. A nil element raises NSInvalidArgumentException. For an array
    /// of one array write `Array{Value(inner)}`: with `Array{inner}` some compilers make a copy of
    /// `inner` (CWG 2137).
    Array(std::initializer_list<Value> elements);
    /// The same with elements that are only known at run time.
    explicit Array(std::vector<Value> elements);
    /// Makes an array of string values.
    static Array fromStrings(const std::vector<std::string>& strings);

    // A copy shares the storage until one of the two is written. A moved-from array is empty.
    Array(const Array& other) noexcept;
    Array(Array&& other) noexcept;
    Array& operator=(const Array& other) noexcept;
    Array& operator=(Array&& other) noexcept;
    ~Array();

    // As in a standard container. Writing to the array invalidates iterators.
    std::size_t size() const noexcept;
    bool empty() const noexcept { return size() == 0; }
    const Value* begin() const noexcept;
    const Value* end() const noexcept;

    /// The element at `index`. Raises NSRangeException beyond the end.
    const Value& at(std::size_t index) const;
    /// The element at `index`, or nil beyond the end. Writing to the array invalidates the
    /// reference.
    const Value& get(std::size_t index) const noexcept;
    /// Whether an element equals `value`. Takes linear time.
    bool contains(const Value& value) const;

    // The functions below change the array. A nil element raises NSInvalidArgumentException, an
    // index beyond the end raises NSRangeException, and the array does not change then.

    /// Reserves memory for `count` elements in all. Only saves time; the size stays.
    void reserve(std::size_t count);
    void append(Value element);
    /// Appends each element of `others`, which may be this array.
    void appendAll(const Array& others);
    /// Replaces the element at `index`.
    void set(std::size_t index, Value element);
    /// Calls `change` with the element in place, so that it can change a container without a copy.
    /// If the element is nil afterwards, it is removed.
    void update(std::size_t index, const std::function<void(Value&)>& change);
    /// Removes the element at `index`. Those behind it move up.
    void remove(std::size_t index);

    /// Removes every element equal to `value`.
    void removeAll(const Value& value);
    /// Removes all elements. Copies keep theirs.
    void clear() noexcept;

    /// The elements that are strings, in order. Others are left out.
    std::vector<std::string> strings() const;
    /// "[a, b]", with each element as `%@` prints it.
    std::string description() const;

    /// Whether both have equal elements in the same order.
    friend VEXIM_EXPORT bool operator==(const Array& a, const Array& b) noexcept;

private:
    friend class Value;
    friend struct detail::ArrayRep;
    detail::ArrayRep* rep_ = nullptr;  // nullptr is the empty array
};

}  // namespace vexim
