#include "VexIMLib/Foundation/Stores.h"

#include <cstring>
#include <new>
#include <utility>

namespace vexim::detail {

StringRep* StringRep::make(std::string_view text) {
    auto* rep = new (::operator new(sizeof(StringRep) + text.size())) StringRep;
    rep->size = text.size();
    std::memcpy(rep->text(), text.data(), text.size());
    return rep;
}

void StringRep::destroy(StringRep* rep) noexcept {
    rep->~StringRep();
    ::operator delete(rep);
}

namespace {

// Stores that this thread has still to destroy. Plain words: they work until the thread's very end.
struct Burials {
    ContainerRep* pending = nullptr;
    bool underWay = false;
};
thread_local constinit Burials burials;

void destroy(ContainerRep* rep) noexcept {
    if (rep->isDictionary) {
        DictionaryRep::destroy(static_cast<DictionaryRep*>(rep));
    } else {
        ArrayRep::destroy(static_cast<ArrayRep*>(rep));
    }
}

}  // namespace

void bury(ContainerRep* rep) noexcept {
    auto& mine = burials;
    if (mine.underWay) {  // we are inside another store's destruction, which sees to this one next
        rep->nextDead = std::exchange(mine.pending, rep);
        return;
    }
    mine.underWay = true;
    destroy(rep);
    while (auto* next = mine.pending) {
        mine.pending = next->nextDead;
        destroy(next);
    }
    mine.underWay = false;
}

void releaseObject(ObjectRep* rep) noexcept {
    auto outer = std::exchange(burials, Burials{});
    delete rep;
    burials = outer;
}

}  // namespace vexim::detail
