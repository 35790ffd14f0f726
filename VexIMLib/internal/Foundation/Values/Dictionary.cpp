#include "VexIMLib/Foundation/Dictionary.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/internal/Foundation/Values/Blocks.h"
#include "VexIMLib/internal/Foundation/Values/Nil.h"

namespace vexim {

using detail::DictionaryItem;
using detail::DictionaryRep;

namespace detail {

DictionaryRep* DictionaryRep::make(std::size_t capacity) {
    const Block block = Block::take(sizeof(DictionaryRep) + capacity * sizeof(DictionaryItem));
    return new (block.at) DictionaryRep(capacity, block.offset);
}

Dictionary DictionaryRep::wrap(DictionaryRep* rep) noexcept {
    Dictionary dictionary;
    dictionary.rep_ = rep;
    return dictionary;
}

void DictionaryRep::destroy(DictionaryRep* rep) noexcept {
    const Block block{rep, rep->offset};
    std::destroy_n(rep->items(), rep->size);
    rep->~DictionaryRep();
    block.deallocate();
}

namespace {

template <class T>
T load(const void* bytes) noexcept {
    T value;
    std::memcpy(&value, bytes, sizeof(value));
    return value;
}

struct KeyWords {
    std::uint64_t first;
    std::uint64_t second;
    friend bool operator==(const KeyWords&, const KeyWords&) = default;
};

}  // namespace

/// The sixteen bytes of a short string's value, put together in registers. If they were written to
/// memory byte by byte, the comparison would wait for these writes.
static KeyWords shortKey(std::string_view text) noexcept {
    if constexpr (std::endian::native != std::endian::little) {
        const Value value(text);
        return load<KeyWords>(&value);
    }
    const auto size = text.size();
    const auto* bytes = text.data();
    std::uint64_t low = 0;   // the text's first eight bytes
    std::uint64_t high = 0;  // and the rest
    if (size >= 8) {
        low = load<std::uint64_t>(bytes);
        if (size > 8) high = load<std::uint64_t>(bytes + size - 8) >> (8 * (16 - size));
    } else if (size >= 4) {  // the two halves overlap with equal bytes
        low = load<std::uint32_t>(bytes) |
              (std::uint64_t{load<std::uint32_t>(bytes + size - 4)} << (8 * (size - 4)));
    } else {
        for (std::size_t i = 0; i < size; ++i)
            low |= std::uint64_t{load<unsigned char>(bytes + i)} << (8 * i);
    }
    return {static_cast<std::uint64_t>(Value::Kind::String) | (size << 8) | (low << 16),
            (low >> 48) | (high << 16)};
}

DictionaryItem* DictionaryRep::find(std::string_view key) noexcept {
    if (index) {
        auto position = index->find(items(), key);
        return position == KeyIndex::none ? nullptr : items() + position;
    }
    if (key.size() > Value::kInlineCapacity) {
        for (auto *item = items(), *end = item + size; item != end; ++item) {
            if (item->key.isCounted() && item->key.sharedText() == key) return item;
        }
        return nullptr;
    }
    // A short key is stored in its value, so compare sixteen bytes.
    const KeyWords wanted = shortKey(key);
    for (auto *item = items(), *end = item + size; item != end; ++item) {
        if (load<KeyWords>(&item->key) == wanted) return item;
    }
    return nullptr;
}

DictionaryItem* DictionaryRep::findKey(const Value& key) noexcept {
    if (index || key.isCounted()) return find(key.textView());
    const auto wanted = load<KeyWords>(&key);
    for (auto *item = items(), *end = item + size; item != end; ++item) {
        if (load<KeyWords>(&item->key) == wanted) return item;
    }
    return nullptr;
}

void DictionaryRep::append(Value key, Value value) {
    auto* item = new (items() + size) DictionaryItem{std::move(key), std::move(value)};
    if (index) {
        try {
            index->insert(items(), size);
        } catch (...) {
            item->~DictionaryItem();
            throw;
        }
    } else if (size + 1 > kIndexedSize) {
        try {
            index = std::make_unique<KeyIndex>(items(), size + 1);
        } catch (...) {
            item->~DictionaryItem();
            throw;
        }
    }
    ++size;
}

void DictionaryRep::remove(DictionaryItem* item) noexcept {
    const auto position = static_cast<std::size_t>(item - items());
    DictionaryItem removed = std::move(*item);
    std::memmove(static_cast<void*>(item), item + 1,
                 (size - position - 1) * sizeof(DictionaryItem));
    --size;
    if (index) index->remove(position);
}

DictionaryRep* DictionaryRep::adopt(Value* keysAndValues, std::size_t count) {
    static_assert(sizeof(DictionaryItem) == 2 * sizeof(Value));
    if (count == 0) return nullptr;
    auto* rep = make(count);
    std::memcpy(static_cast<void*>(rep->items()), keysAndValues, count * sizeof(DictionaryItem));
    auto* items = rep->items();
    // Add each item only after searching the earlier ones for its key.
    for (std::size_t i = 0; i < count; ++i) {
        if (auto* first = rep->findKey(items[i].key)) {
            first->value = std::move(items[i].value);
            items[i].~DictionaryItem();
            continue;
        }
        if (i != rep->size) {  // an earlier key was repeated: close the gap
            std::memcpy(static_cast<void*>(items + rep->size), items + i, sizeof(DictionaryItem));
        }
        ++rep->size;
        if (rep->index) {
            rep->index->insert(items, rep->size - 1);
        } else if (rep->size > kIndexedSize) {
            rep->index = std::make_unique<KeyIndex>(items, rep->size);
        }
    }
    return rep;
}

namespace {

void drop(DictionaryRep* rep) noexcept {
    if (rep && rep->release()) destroyContainer(rep);
}

// Makes the storage ours alone, with room for `count` entries, and replaces what `rep` points to.
DictionaryRep& own(DictionaryRep*& rep, std::size_t count) {
    if (rep && !rep->isShared() && rep->capacity >= count) return *rep;
    const std::size_t size = rep ? rep->size : 0;
    const std::size_t room =
        count <= size ? size : std::max({count, size + size / 2, std::size_t{4}});
    auto* fresh = DictionaryRep::make(room);
    if (rep) {
        if (rep->isShared()) {
            try {
                if (rep->index) fresh->index = std::make_unique<KeyIndex>(*rep->index);
            } catch (...) {
                DictionaryRep::destroy(fresh);
                throw;
            }
            std::uninitialized_copy_n(rep->items(), size, fresh->items());
        } else {  // moves values by copying their bytes
            std::memcpy(static_cast<void*>(fresh->items()), rep->items(),
                        size * sizeof(DictionaryItem));
            fresh->index = std::move(rep->index);
            rep->size = 0;
        }
    }
    fresh->size = size;
    drop(std::exchange(rep, fresh));
    return *fresh;
}

}  // namespace
}  // namespace detail

Dictionary::Entry Dictionary::const_iterator::operator*() const noexcept {
    return {item_->name(), item_->value};
}

Dictionary::const_iterator& Dictionary::const_iterator::operator++() noexcept {
    ++item_;
    return *this;
}

Dictionary::const_iterator Dictionary::const_iterator::operator++(int) noexcept {
    return const_iterator(item_++);
}

Dictionary::Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries)
    : Dictionary() {
    reserve(entries.size());
    for (const auto& [key, value] : entries) {
        Value ownKey(key);
        if (value.isNil() || rep_->findKey(ownKey) != nullptr) {
            set(key, value);
        } else {
            rep_->append(std::move(ownKey), value);
        }
    }
}

Dictionary::Dictionary(const Dictionary& other) noexcept : rep_(other.rep_) {
    if (rep_) rep_->retain();
}

Dictionary::Dictionary(Dictionary&& other) noexcept : rep_(std::exchange(other.rep_, nullptr)) {}

Dictionary& Dictionary::operator=(const Dictionary& other) noexcept {
    Dictionary copy(other);
    std::swap(rep_, copy.rep_);
    return *this;
}

Dictionary& Dictionary::operator=(Dictionary&& other) noexcept {
    Dictionary taken(std::move(other));
    std::swap(rep_, taken.rep_);
    return *this;
}

Dictionary::~Dictionary() { detail::drop(rep_); }

std::size_t Dictionary::size() const noexcept { return rep_ ? rep_->size : 0; }

Dictionary::const_iterator Dictionary::begin() const noexcept {
    return const_iterator(rep_ ? rep_->items() : nullptr);
}

Dictionary::const_iterator Dictionary::end() const noexcept {
    return const_iterator(rep_ ? rep_->items() + rep_->size : nullptr);
}

std::vector<std::string> Dictionary::keys() const {
    std::vector<std::string> keys;
    keys.reserve(size());
    for (const auto& [key, value] : *this) keys.emplace_back(key);
    return keys;
}

const Value* Dictionary::find(std::string_view key) const noexcept {
    const auto* item = rep_ ? rep_->find(key) : nullptr;
    return item ? &item->value : nullptr;
}

const Value& Dictionary::get(std::string_view key) const noexcept {
    const auto* value = find(key);
    return value ? *value : detail::kNil;
}

void Dictionary::reserve(std::size_t count) {
    if (count > 0) detail::own(rep_, std::max(count, size()));
}

void Dictionary::set(std::string_view key, Value value) {
    if (value.isNil()) {
        throw Exception(kInvalidArgumentException,
                        "A dictionary cannot hold nil (key: " + std::string(key) + ").");
    }
    if (auto* item = rep_ ? rep_->find(key) : nullptr) {
        const auto position = item - rep_->items();
        if (rep_->isShared()) item = detail::own(rep_, size()).items() + position;
        // The old value is destroyed last, with `value`, because its destructor may look at this
        // dictionary.
        item->value.swap(value);
        return;
    }
    Value ownKey(key);  // before the storage moves, because `key` may be in it
    detail::own(rep_, size() + 1).append(std::move(ownKey), std::move(value));
}

void Dictionary::setOrRemove(std::string_view key, Value value) {
    if (value.isNil()) {
        remove(key);
    } else {
        set(key, std::move(value));
    }
}

void Dictionary::update(std::string_view key, const std::function<void(Value&)>& change) {
    const std::string name(key);  // `key` may be in the storage, which `change` may replace
    // Take the value out meanwhile, so that it has one owner; null keeps its place.
    Value value;
    if (contains(name)) {
        value = Value::null();
        detail::own(rep_, size()).find(name)->value.swap(value);
    }
    try {
        change(value);
    } catch (...) {
        setOrRemove(name, std::move(value));
        throw;
    }
    setOrRemove(name, std::move(value));
}

void Dictionary::addEntries(const Dictionary& others) {
    const Dictionary added = others;  // it may be this very dictionary
    if (empty()) {
        *this = added;
        return;
    }
    for (const auto& [key, value] : added) set(key, value);
}

bool Dictionary::remove(std::string_view key) {
    const auto* item = rep_ ? rep_->find(key) : nullptr;
    if (!item) return false;
    const auto position = item - rep_->items();
    auto& rep = detail::own(rep_, size());
    rep.remove(rep.items() + position);
    return true;
}

void Dictionary::clear() noexcept { detail::drop(std::exchange(rep_, nullptr)); }

std::string Dictionary::description() const { return Value(*this).description(); }

}  // namespace vexim
