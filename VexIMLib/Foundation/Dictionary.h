#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

class Value;

namespace detail {
struct DictionaryRep;
struct DictionaryItem;
}  // namespace detail

/// Values by string key, itself a value: copying shares the store, writing to a shared one unshares
/// it first. Iterates in insertion order (overwriting keeps the place), finds in constant expected
/// time, compares without order. Values are never nil: setting nil raises
/// NSInvalidArgumentException (use `remove`, or `setOrRemove`). A copy may be used from another
/// thread; one object may not be written while another thread uses it.
class VEXIM_EXPORT Dictionary {
public:
    /// What iteration yields; valid while the dictionary is not written.
    struct Entry {
        std::string_view key;  // lies in the dictionary
        const Value& value;    // never nil
    };
    /// Goes forward, in insertion order.
    class VEXIM_EXPORT const_iterator {
    public:
        // As of a standard input iterator.
        using iterator_category = std::input_iterator_tag;
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        using reference = Entry;
        using pointer = void;

        const_iterator() noexcept = default;
        // As of a standard input iterator.
        Entry operator*() const noexcept;
        const_iterator& operator++() noexcept;
        const_iterator operator++(int) noexcept;
        friend bool operator==(const const_iterator&, const const_iterator&) noexcept = default;

    private:
        friend class Dictionary;
        explicit const_iterator(const detail::DictionaryItem* item) noexcept : item_(item) {}
        const detail::DictionaryItem* item_ = nullptr;
    };

    Dictionary() noexcept = default;
    /// With these entries; of a repeated key the last one wins, and a nil value raises.
    Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries);

    Dictionary(const Dictionary& other) noexcept;
    Dictionary(Dictionary&& other) noexcept;
    Dictionary& operator=(const Dictionary& other) noexcept;
    Dictionary& operator=(Dictionary&& other) noexcept;
    ~Dictionary();

    // As a standard container's. Iterators live as long as this dictionary is not written.
    std::size_t size() const noexcept;
    bool empty() const noexcept { return size() == 0; }
    const_iterator begin() const noexcept;
    const_iterator end() const noexcept;
    /// In insertion order.
    std::vector<std::string> keys() const;

    /// The value under `key`, or nullptr. The pointer lives as long as this dictionary is not
    /// written.
    const Value* find(std::string_view key) const noexcept;
    /// Whether there is a value under `key`, JSON null included.
    bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
    /// The value under `key`, nil when there is none. The reference lives as long as this
    /// dictionary is not written.
    const Value& get(std::string_view key) const noexcept;

    /// Makes room for `count` entries in all.
    void reserve(std::size_t count);
    /// Adds the value, or overwrites the one under `key` in its place. nil raises.
    void set(std::string_view key, Value value);
    /// As `set`; nil removes the key.
    void setOrRemove(std::string_view key, Value value);
    /// Calls `change` with the value in place (nil when there is none), so that a container inside
    /// it is changed without a copy. What is nil afterwards is removed.
    void update(std::string_view key, const std::function<void(Value&)>& change);
    /// Copies every entry of `others`; they win over entries of the same key.
    void addEntries(const Dictionary& others);
    /// Answers whether there was one.
    bool remove(std::string_view key);
    /// Leaves it empty; copies keep their entries.
    void clear() noexcept;

    /// "{key = value; …}" with each value as `%@` would print it.
    std::string description() const;

    /// The same keys with equal values, in whatever order.
    friend VEXIM_EXPORT bool operator==(const Dictionary& a, const Dictionary& b) noexcept;

private:
    friend class Value;
    friend struct detail::DictionaryRep;
    detail::DictionaryRep* rep_ = nullptr;  // nullptr is the empty dictionary
};

}  // namespace vexim
