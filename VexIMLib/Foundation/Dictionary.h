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

/// A map from strings to values. It is itself a value: a copy shares the storage until one of the
/// two is written. It iterates in insertion order (overwriting keeps the place), finds a key in
/// constant expected time, and ignores the order when it compares. Values are never nil: setting
/// nil raises NSInvalidArgumentException (use `remove` or `setOrRemove`). You may use a copy on
/// another thread, but do not write a dictionary while another thread uses it.
///
///     vexim::Dictionary attributes{{"color", "green"}, {"size", 5}};
///     attributes.set("color", "blue");
///     attributes.get("size").intValue();  // 5
///     attributes.get("weight").isNil();   // true
///     for (const auto& [key, value] : attributes) …
///
/// Keys are compared byte by byte: case counts, and an empty key is a key. A dictionary in a
/// dictionary is changed in place with `update`:
///
///     attributes.update("address", [](vexim::Value& address) {
///         if (!address.isDictionary()) address = vexim::Dictionary();
///         address.mutableDictionary().set("city", "Rome");
///     });
class VEXIM_EXPORT Dictionary {
public:
    /// An entry during iteration. Writing to the dictionary invalidates it.
    struct Entry {
        /// It lies in the dictionary.
        std::string_view key;
        /// Never nil; JSON null is possible.
        const Value& value;
    };
    /// Iterates forward, in insertion order.
    class VEXIM_EXPORT const_iterator {
    public:
        // As in a standard input iterator.
        using iterator_category = std::input_iterator_tag;
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        using reference = Entry;
        using pointer = void;

        const_iterator() noexcept = default;
        // As in a standard input iterator.
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
    /// A dictionary with these entries. If a key is repeated, the last one wins. A nil value raises
    /// NSInvalidArgumentException.
    Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries);

    // A copy shares the storage until one of the two is written. A moved-from dictionary is empty.
    Dictionary(const Dictionary& other) noexcept;
    Dictionary(Dictionary&& other) noexcept;
    Dictionary& operator=(const Dictionary& other) noexcept;
    Dictionary& operator=(Dictionary&& other) noexcept;
    ~Dictionary();

    // As in a standard container. Writing to the dictionary invalidates iterators.
    std::size_t size() const noexcept;
    bool empty() const noexcept { return size() == 0; }
    const_iterator begin() const noexcept;
    const_iterator end() const noexcept;
    /// Copies of all keys, in insertion order.
    std::vector<std::string> keys() const;

    /// The value under `key`, or nullptr. Writing to the dictionary invalidates the pointer.
    const Value* find(std::string_view key) const noexcept;
    /// Whether there is a value under `key`, JSON null included.
    bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
    /// The value under `key`, or nil if there is none. Writing to the dictionary invalidates the
    /// reference.
    const Value& get(std::string_view key) const noexcept;

    // The functions below change the dictionary. Copies do not change with it: if the storage is
    // shared, it is copied first, which takes linear time.

    /// Reserves memory for `count` entries in all. Only saves time; the size stays.
    void reserve(std::size_t count);
    /// Adds the value, or overwrites the one under `key` in its place. nil raises
    /// NSInvalidArgumentException.
    void set(std::string_view key, Value value);
    /// Like `set`, but nil removes the key.
    void setOrRemove(std::string_view key, Value value);
    /// Calls `change` with the value in place (nil if there is none), so that it can change a
    /// container without a copy. If the value is nil afterwards, the key is removed.
    void update(std::string_view key, const std::function<void(Value&)>& change);
    /// Copies every entry of `others`, overwriting entries with the same key.
    void addEntries(const Dictionary& others);
    /// Removes a key. Returns whether it was there.
    bool remove(std::string_view key);
    /// Removes all entries. Copies keep theirs.
    void clear() noexcept;

    /// "{key = value; …}", with each value as `%@` prints it.
    std::string description() const;

    /// Whether both have the same keys with equal values, in whatever order.
    friend VEXIM_EXPORT bool operator==(const Dictionary& a, const Dictionary& b) noexcept;

private:
    friend class Value;
    friend struct detail::DictionaryRep;
    detail::DictionaryRep* rep_ = nullptr;  // nullptr is the empty dictionary
};

}  // namespace vexim
