#include "VexIMLib/Foundation/Runtime/Selector.h"

#include <unordered_set>

#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim {

namespace {

struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
        return std::hash<std::string_view>()(text);
    }
};

struct SelectorTable {
    Mutex mutex;
    // nodes, so addresses never change
    std::unordered_set<std::string, TextHash, std::equal_to<>> texts VEXIM_GUARDED_BY(mutex);
};

SelectorTable& selectorTable() {
    // never destroyed, because static handles may be used at any time during exit
    static SelectorTable& table = *new SelectorTable;
    return table;
}

}  // namespace

Selector::Selector(std::string_view text) {
    SelectorTable& table = selectorTable();
    MutexLock lock(table.mutex);
    auto found = table.texts.find(text);
    if (found == table.texts.end()) found = table.texts.emplace(text).first;
    text_ = &*found;
}

const std::string& Selector::text() const noexcept {
    static const std::string& empty = *new std::string;
    return text_ ? *text_ : empty;
}

}  // namespace vexim
