#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VexIMLib/Foundation/Counted.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Value.h"

// The blocks behind the values, for Foundation's own sources: one allocation each, the contents right behind the head.
// Every block begins with its `Counted`, so a Value counts without knowing the kind.

namespace vexim::detail {

struct StringRep : Counted {
    std::size_t size = 0;

    static StringRep* make(std::string_view text);
    static void destroy(StringRep* rep) noexcept;
    char* text() noexcept { return reinterpret_cast<char*>(this + 1); }
    const char* text() const noexcept { return reinterpret_cast<const char*>(this + 1); }
    std::string_view view() const noexcept { return {text(), size}; }
};

struct DataRep : Counted {
    template <class Bytes>
    explicit DataRep(Bytes owned) : bytes(std::move(owned)) {}
    std::variant<std::string, std::vector<std::uint8_t>> bytes;  // as it was given, so that taking a buffer over copies nothing
};

struct ObjectRep : Counted {
    explicit ObjectRep(std::shared_ptr<Object> owned) noexcept : object(std::move(owned)) {}
    std::shared_ptr<Object> object;
};

/// An array's or dictionary's store. The last owner hands it to `bury`.
struct ContainerRep : Counted {
    explicit ContainerRep(bool dictionary) noexcept : isDictionary(dictionary) {}
    ContainerRep* nextDead = nullptr;
    const bool isDictionary;
};

/// Destroys a store that nobody owns any more, in place of recursion: a list nested a million deep must not exhaust the stack.
void bury(ContainerRep* rep) noexcept;
/// Runs `destroy` outside of any burial under way, so that an application's destructor sees its own values go at once.
void releaseObject(ObjectRep* rep) noexcept;

struct ArrayRep : ContainerRep {
    explicit ArrayRep(std::size_t room) noexcept : ContainerRep(false), capacity(room) {}
    std::size_t size = 0;
    std::size_t capacity;

    static ArrayRep* make(std::size_t capacity);
    /// Takes the `count` values at `values` over as they lie; what is left there counts as raw memory.
    static ArrayRep* adopt(Value* values, std::size_t count);
    static Array wrap(ArrayRep* rep) noexcept;
    /// The store of an array; nullptr when it is empty.
    static const ArrayRep* of(const Array& array) noexcept { return array.rep_; }
    static void destroy(ArrayRep* rep) noexcept;
    Value* elements() noexcept { return reinterpret_cast<Value*>(this + 1); }
    const Value* elements() const noexcept { return reinterpret_cast<const Value*>(this + 1); }
};

struct DictionaryItem {
    Value key;  // always a string
    Value value;

    std::string_view name() const noexcept { return key.textView(); }
};

/// Keyed once a process, so that whoever chooses the texts cannot make them collide.
std::uint32_t hashOfKey(std::string_view text) noexcept;

/// Finds items by key once there are many: open addressing, at most half full, seeded against chosen collisions.
class KeyIndex {
public:
    KeyIndex(const DictionaryItem* items, std::size_t count);
    /// The position of `key`, or `none`.
    std::size_t find(const DictionaryItem* items, std::string_view key) const noexcept;
    void insert(const DictionaryItem* items, std::size_t position);
    /// Forgets `position`; those behind it move up by one.
    void remove(std::size_t position) noexcept;
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

private:
    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t position = 0;  // plus one; 0 is a free slot
    };
    void place(std::uint32_t hash, std::size_t position) noexcept;
    std::vector<Slot> slots_;
    std::size_t used_ = 0;
};

struct DictionaryRep : ContainerRep {
    explicit DictionaryRep(std::size_t room) noexcept : ContainerRep(true), capacity(room) {}
    std::size_t size = 0;
    std::size_t capacity;
    std::unique_ptr<KeyIndex> index;  // from kIndexedSize items on

    /// Up to here comparing the keys one by one is as fast as hashing.
    static constexpr std::size_t kIndexedSize = 16;

    static DictionaryRep* make(std::size_t capacity);
    /// Takes `count` keys, each followed by its value, over as they lie. Of a repeated key the last value stays, in the first
    /// place.
    static DictionaryRep* adopt(Value* keysAndValues, std::size_t count);
    static Dictionary wrap(DictionaryRep* rep) noexcept;
    /// The store of a dictionary; nullptr when it is empty.
    static const DictionaryRep* of(const Dictionary& dictionary) noexcept { return dictionary.rep_; }
    static void destroy(DictionaryRep* rep) noexcept;
    DictionaryItem* items() noexcept { return reinterpret_cast<DictionaryItem*>(this + 1); }
    const DictionaryItem* items() const noexcept { return reinterpret_cast<const DictionaryItem*>(this + 1); }

    DictionaryItem* find(std::string_view key) noexcept;
    /// The same for a key that is a value already.
    DictionaryItem* findKey(const Value& key) noexcept;
    /// Appends; there must be room, and no item of that key.
    void append(Value key, Value value);
    void remove(DictionaryItem* item) noexcept;
};

}  // namespace vexim::detail
