#include "VexIMLib/internal/Foundation/Values/Blocks.h"

#include <cstring>
#include <new>
#include <utility>

namespace vexim::detail {

static_assert(sizeof(Slab) % alignof(Value) == 0 && sizeof(ArrayRep) % alignof(Value) == 0 &&
                  sizeof(DictionaryRep) % alignof(Value) == 0,
              "the contents after a header are aligned, also with 32-bit pointers");

namespace {

// The slab for this thread's blocks.
thread_local constinit Slab* openSlab = nullptr;

}  // namespace

Slab::Scope::Scope(std::size_t bytes) {
    openSlab = new (::operator new(sizeof(Slab) + bytes)) Slab(bytes);
}

Slab::Scope::~Scope() { std::exchange(openSlab, nullptr)->release(); }

void Slab::release() noexcept {
    // The last owner needs no read-modify-write.
    if (owners_.load(std::memory_order_acquire) != 1 &&
        owners_.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    this->~Slab();
    ::operator delete(this);
}

Block Block::take(std::size_t bytes) {
    constexpr std::size_t kAlignment = alignof(Value);
    Slab* const slab = openSlab;
    const std::size_t rounded = (bytes + kAlignment - 1) / kAlignment * kAlignment;
    if (slab == nullptr || rounded > slab->size_ - slab->used_) return {::operator new(bytes), 0};
    const std::size_t offset = std::exchange(slab->used_, slab->used_ + rounded);
    // Until the scope ends no other thread has a block of it, so a plain store is enough.
    slab->owners_.store(slab->owners_.load(std::memory_order_relaxed) + 1,
                        std::memory_order_relaxed);
    return {reinterpret_cast<std::byte*>(slab) + offset, static_cast<std::uint16_t>(offset)};
}

void Block::deallocate() const noexcept {
    if (offset == 0) return ::operator delete(at);
    std::launder(reinterpret_cast<Slab*>(static_cast<std::byte*>(at) - offset))->release();
}

StringRep* StringRep::make(std::string_view text) {
    const Block block = Block::take(sizeof(StringRep) + text.size());
    auto* rep = new (block.at) StringRep(block.offset, text.size());
    std::memcpy(rep->text(), text.data(), text.size());
    return rep;
}

void StringRep::destroy(StringRep* rep) noexcept {
    const Block block{rep, static_cast<std::uint16_t>(rep->offset)};
    rep->~StringRep();
    block.deallocate();
}

namespace {

// Storage that this thread still has to destroy. Plain data, so that it works until the very end of
// the thread.
struct Destructions {
    ContainerRep* pending = nullptr;
    bool isRunning = false;
};
thread_local constinit Destructions destructions;

void destroy(ContainerRep* rep) noexcept {
    if (rep->isDictionary) {
        DictionaryRep::destroy(static_cast<DictionaryRep*>(rep));
    } else {
        ArrayRep::destroy(static_cast<ArrayRep*>(rep));
    }
}

}  // namespace

void destroyContainer(ContainerRep* rep) noexcept {
    auto& mine = destructions;
    if (mine.isRunning) {  // another destruction is running and handles this one next
        rep->nextToDestroy = std::exchange(mine.pending, rep);
        return;
    }
    mine.isRunning = true;
    destroy(rep);
    while (auto* next = mine.pending) {
        mine.pending = next->nextToDestroy;
        destroy(next);
    }
    mine.isRunning = false;
}

void destroyObject(ObjectRep* rep) noexcept {
    auto outer = std::exchange(destructions, Destructions{});
    delete rep;
    destructions = outer;
}

}  // namespace vexim::detail
