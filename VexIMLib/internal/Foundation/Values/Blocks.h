#pragma once

#include <atomic>
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

// The memory blocks of values, for Foundation's own sources. Each is one allocation, with the
// contents right after the header, which has the alignment that they need (more than a 32-bit
// pointer's). Every block begins with its `Counted`, so a Value can count references without
// knowing the kind.

namespace vexim::detail {

/// A slab: one piece of memory for all strings and containers of a short JSON text, which are
/// mostly made and destroyed together. Many small blocks are expensive if one thread allocates them
/// and another frees them. The slab is freed with its last block, so keeping a part of the text
/// keeps all its memory.
class alignas(Value) Slab {
public:
    /// While it lives, this thread's blocks are made in a slab of `bytes`, until it is full.
    class Scope {
    public:
        explicit Scope(std::size_t bytes);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
    };
    static constexpr std::size_t kMostBytes = 4096;  // of a scope

    void release() noexcept;

private:
    friend struct Block;
    explicit Slab(std::size_t bytes) noexcept : size_(sizeof(Slab) + bytes) {}
    std::atomic<std::size_t> owners_{1};  // the blocks, and the scope
    const std::size_t size_;
    std::size_t used_ = sizeof(Slab);
};

/// Memory for a block: from the heap or from a slab.
struct Block {
    void* at;
    std::uint16_t offset;  // offset in the slab; 0 if from the heap

    static Block take(std::size_t bytes);
    void deallocate() const noexcept;
};

struct StringRep : Counted {
    StringRep(std::uint16_t blockOffset, std::size_t length) noexcept
        : size(length & kMostSize),
          offset(blockOffset) {}
    // larger than the address space
    static constexpr std::uint64_t kMostSize = (std::uint64_t{1} << 48) - 1;
    const std::uint64_t size : 48;
    const std::uint64_t offset : 16;  // the block's

    static StringRep* make(std::string_view text);
    static void destroy(StringRep* rep) noexcept;
    char* text() noexcept { return reinterpret_cast<char*>(this + 1); }
    const char* text() const noexcept { return reinterpret_cast<const char*>(this + 1); }
    std::string_view view() const noexcept { return {text(), static_cast<std::size_t>(size)}; }
};

struct DataRep : Counted {
    template <class Bytes>
    explicit DataRep(Bytes owned) : bytes(std::move(owned)) {}
    // kept as given, so that taking over a buffer copies nothing
    std::variant<std::string, std::vector<std::uint8_t>> bytes;
};

struct ObjectRep : Counted {
    explicit ObjectRep(std::shared_ptr<Object> owned) noexcept : object(std::move(owned)) {}
    std::shared_ptr<Object> object;
};

/// The storage of an array or a dictionary. The last owner passes it to `destroyContainer`.
struct ContainerRep : Counted {
    ContainerRep(bool dictionary, std::uint16_t blockOffset) noexcept
        : isDictionary(dictionary),
          offset(blockOffset) {}
    ContainerRep* nextToDestroy = nullptr;
    const bool isDictionary;
    const std::uint16_t offset;  // the block's
};

/// Destroys storage that has no owner any more, without recursion: a list nested a million levels
/// deep must not exhaust the stack.
void destroyContainer(ContainerRep* rep) noexcept;
/// Destroys `rep` independently of a `destroyContainer` that is running, so that values that an
/// application's destructor drops are destroyed at once.
void destroyObject(ObjectRep* rep) noexcept;

struct alignas(Value) ArrayRep : ContainerRep {
    ArrayRep(std::size_t room, std::uint16_t blockOffset) noexcept
        : ContainerRep(false, blockOffset),
          capacity(room) {}
    std::size_t size = 0;
    std::size_t capacity;

    static ArrayRep* make(std::size_t capacity);
    /// Takes over the `count` values at `values` by copying their bytes. The old place is raw
    /// memory afterwards.
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

/// With a random key per process, so that chosen texts cannot collide.
std::uint32_t hashOfKey(std::string_view text) noexcept;

/// Finds items by key when there are many. Open addressing, at most half full, with a random seed.
class KeyIndex {
public:
    KeyIndex(const DictionaryItem* items, std::size_t count);
    /// The position of `key`, or `none`.
    std::size_t find(const DictionaryItem* items, std::string_view key) const noexcept;
    void insert(const DictionaryItem* items, std::size_t position);
    /// Removes `position`. Every later position becomes one less.
    void remove(std::size_t position) noexcept;
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

private:
    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t position = 0;  // position plus one; 0 is a free slot
    };
    void place(std::uint32_t hash, std::size_t position) noexcept;
    std::vector<Slot> slots_;
    std::size_t used_ = 0;
};

struct alignas(Value) DictionaryRep : ContainerRep {
    DictionaryRep(std::size_t room, std::uint16_t blockOffset) noexcept
        : ContainerRep(true, blockOffset),
          capacity(room) {}
    std::size_t size = 0;
    std::size_t capacity;
    std::unique_ptr<KeyIndex> index;  // with more than kIndexedSize items

    /// Up to here comparing the keys one by one is as fast as hashing.
    static constexpr std::size_t kIndexedSize = 16;

    static DictionaryRep* make(std::size_t capacity);
    /// Takes over `count` keys, each followed by its value, by copying their bytes. If a key is
    /// repeated, the last value is kept, at the first place.
    static DictionaryRep* adopt(Value* keysAndValues, std::size_t count);
    static Dictionary wrap(DictionaryRep* rep) noexcept;
    /// The store of a dictionary; nullptr when it is empty.
    static const DictionaryRep* of(const Dictionary& dictionary) noexcept {
        return dictionary.rep_;
    }
    static void destroy(DictionaryRep* rep) noexcept;
    DictionaryItem* items() noexcept { return reinterpret_cast<DictionaryItem*>(this + 1); }
    const DictionaryItem* items() const noexcept {
        return reinterpret_cast<const DictionaryItem*>(this + 1);
    }

    DictionaryItem* find(std::string_view key) noexcept;
    /// The same for a key that is a value already.
    DictionaryItem* findKey(const Value& key) noexcept;
    /// Appends an item. There must be room, and no item with this key.
    void append(Value key, Value value);
    void remove(DictionaryItem* item) noexcept;
};

}  // namespace vexim::detail
