#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "VexIMLib/Store/VXIMStoreTypes.h"
#include "VexIMLib/Store/internal/Messages.h"

namespace vexim::store {

/// The positions that are only in one list or have moved; `changed` lists those to reload. As few
/// as possible are moved.
struct Difference {
    std::vector<std::size_t> removed, inserted, changed;
    bool isEmpty() const { return removed.empty() && inserted.empty() && changed.empty(); }
};
Difference differenceOf(const std::vector<std::int64_t>& before,
                        const std::vector<std::int64_t>& now,
                        const std::set<std::int64_t>& touched);

/// An observer. Its `VXIMStoreObservation` owns it, so it is released there, on the application's
/// thread.
struct Listener {
    std::variant<VXIMConversationsObserver, VXIMMessagesObserver, VXIMStoreDamageObserver> observer;
    const std::shared_ptr<std::atomic<std::int32_t>> limit =
        std::make_shared<std::atomic<std::int32_t>>(0);
};

/// The observed lists, as last reported. For the store's thread.
class Observers {
public:
    enum class Kind { Conversations, Messages, Damage };
    struct List {
        Kind kind = Kind::Damage;
        // never locked here, because it must not be released on this thread
        std::weak_ptr<Listener> listener = {};
        std::shared_ptr<const std::atomic<std::int32_t>> limit = {};
        VXIMConversationId conversation = {};  // of a list of messages
        bool isNew = true;
        std::int32_t toldLimit = 0;
        std::vector<std::int64_t> shown = {};  // rows of conversations or ids of messages
    };

    void add(List list);
    /// Calls the observers whose lists have changed. `all`: check all lists, not only the changed
    /// tables.
    void refresh(Tables& tables, const Touched& touched, bool all);
    void tell(const VXIMStoreDamage& damage);

private:
    static void refresh(Tables& tables, const Touched& touched, bool all, List& list);

    std::vector<List> lists_ = {};
};

}  // namespace vexim::store
