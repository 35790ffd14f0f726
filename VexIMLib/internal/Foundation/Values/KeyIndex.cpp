#include <bit>
#include <cstring>
#include <random>
#include <utility>

#include "VexIMLib/internal/Foundation/Values/Blocks.h"

namespace vexim::detail {

namespace {

// SipHash-1-3 (Aumasson and Bernstein), with a random key per process, so that nobody can choose
// dictionary keys that collide.
struct HashKey {
    std::uint64_t first;
    std::uint64_t second;
};

HashKey makeHashKey() {
    std::random_device device;
    auto draw = [&] { return (std::uint64_t{device()} << 32) | device(); };
    auto first = draw();
    return {first, draw()};
}

struct SipState {
    std::uint64_t v0, v1, v2, v3;

    void round() noexcept {
        v0 += v1;
        v1 = std::rotl(v1, 13) ^ v0;
        v0 = std::rotl(v0, 32);
        v2 += v3;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 += v3;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 += v1;
        v1 = std::rotl(v1, 17) ^ v2;
        v2 = std::rotl(v2, 32);
    }
    void absorb(std::uint64_t word) noexcept {
        v3 ^= word;
        round();
        v0 ^= word;
    }
};

}  // namespace

std::uint32_t hashOfKey(std::string_view text) noexcept {
    static const HashKey key = makeHashKey();
    SipState state{key.first ^ 0x736f6d6570736575, key.second ^ 0x646f72616e646f6d,
                   key.first ^ 0x6c7967656e657261, key.second ^ 0x7465646279746573};
    auto rest = text;
    for (; rest.size() >= 8; rest.remove_prefix(8)) {
        std::uint64_t word;
        std::memcpy(&word, rest.data(), 8);
        state.absorb(word);
    }
    std::uint64_t last = std::uint64_t{text.size()} << 56;
    for (std::size_t i = 0; i < rest.size(); ++i)
        last |= std::uint64_t{static_cast<unsigned char>(rest[i])} << (8 * i);
    state.absorb(last);
    state.v2 ^= 0xff;
    for (int i = 0; i < 3; ++i) state.round();
    return static_cast<std::uint32_t>(state.v0 ^ state.v1 ^ state.v2 ^ state.v3);
}

KeyIndex::KeyIndex(const DictionaryItem* items, std::size_t count)
    : slots_(std::bit_ceil(count * 4)) {
    for (; used_ < count; ++used_) place(hashOfKey(items[used_].name()), used_);
}

void KeyIndex::insert(const DictionaryItem* items, std::size_t position) {
    if ((used_ + 1) * 2 > slots_.size()) {
        auto old = std::exchange(slots_, std::vector<Slot>(slots_.size() * 2));
        for (const auto& slot : old) {
            if (slot.position != 0) place(slot.hash, slot.position - 1);
        }
    }
    place(hashOfKey(items[position].name()), position);
    ++used_;
}

void KeyIndex::remove(std::size_t position) noexcept {
    // All later positions change anyway, so visit all slots. Close the hole that the entry leaves
    // by moving back the entries that probing pushed past it.
    const auto gone = static_cast<std::uint32_t>(position + 1);
    const std::size_t mask = slots_.size() - 1;
    std::size_t hole = 0;
    for (std::size_t at = 0; at < slots_.size(); ++at) {
        if (slots_[at].position == gone) hole = at;
        if (slots_[at].position > gone) --slots_[at].position;
    }
    slots_[hole] = {};
    for (std::size_t at = (hole + 1) & mask; slots_[at].position != 0; at = (at + 1) & mask) {
        const std::size_t home = slots_[at].hash & mask;
        if (((at - home) & mask) >= ((at - hole) & mask)) {
            slots_[hole] = std::exchange(slots_[at], Slot{});
            hole = at;
        }
    }
    --used_;
}

void KeyIndex::place(std::uint32_t hashed, std::size_t position) noexcept {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = hashed & mask;
    while (slots_[at].position != 0) at = (at + 1) & mask;
    slots_[at] = {hashed, static_cast<std::uint32_t>(position + 1)};
}

std::size_t KeyIndex::find(const DictionaryItem* items, std::string_view key) const noexcept {
    const std::uint32_t hashed = hashOfKey(key);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t at = hashed & mask; slots_[at].position != 0; at = (at + 1) & mask) {
        const std::size_t position = slots_[at].position - 1;
        if (slots_[at].hash == hashed && items[position].name() == key) return position;
    }
    return none;
}

}  // namespace vexim::detail
