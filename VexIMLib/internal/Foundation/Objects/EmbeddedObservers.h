#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/EmbeddedObserver.h"

namespace vexim::detail {

/// A notification centre's table of observers that contain their own entries. Call it with the
/// centre's lock held.
///
/// New observers stay in a separate chain until a search, or until there are many. Most live for
/// one delegate call only and are never hashed.
class EmbeddedObservers {
public:
    /// An observer to call, if it is still alive then.
    struct Listener {
        std::uint64_t number;
        std::weak_ptr<Object> object;
        const EmbeddedObserver* observer;  // lies in the object
        std::uint8_t name;                 // the bit of the notification's name

        /// Calls it, unless it is gone or was removed. Call this without the lock.
        void notify(const Notification& notification) const;
    };

    void add(EmbeddedObserver& observer, std::uint64_t number);
    void remove(EmbeddedObserver& observer) noexcept;
    /// For an application that removes an observer: the one in the object at `identity` (if any) no
    /// longer receives `name`. If `name` is empty, it no longer receives anything.
    void unsubscribe(const void* identity, std::string_view name) noexcept;
    /// The observers to call for the notification, in order of their numbers.
    std::vector<Listener> listeners(const Notification& notification);

private:
    using Link = EmbeddedObserver::Link;

    static constexpr std::size_t kMostNew = 64;

    template <Link EmbeddedObserver::*link>
    static void push(EmbeddedObserver*& head, EmbeddedObserver& observer) noexcept {
        observer.*link = {head, &head};
        if (head != nullptr) (head->*link).at = &(observer.*link).next;
        head = &observer;
    }
    template <Link EmbeddedObserver::*link>
    static void take(EmbeddedObserver& observer) noexcept {
        const Link mine = std::exchange(observer.*link, {});
        *mine.at = mine.next;
        if (mine.next != nullptr) (mine.next->*link).at = mine.at;
    }

    /// Buckets of chains. Their number is a power of two and at least the number of entries.
    template <Link EmbeddedObserver::*link, auto hashOf>
    class Chains {
    public:
        /// Makes room for `count` more entries.
        void makeRoom(std::size_t count) {
            if (count_ + count <= heads_.size()) return;
            std::vector<EmbeddedObserver*> former(std::max(kMostNew, heads_.size() * 2));
            former.swap(heads_);
            count_ = 0;
            for (auto* observer : former) {
                while (observer != nullptr) {
                    auto* next = (observer->*link).next;
                    add(*observer);
                    observer = next;
                }
            }
        }
        void add(EmbeddedObserver& observer) noexcept {
            push<link>(heads_[hashOf(observer) & (heads_.size() - 1)], observer);
            ++count_;
        }
        void remove(EmbeddedObserver& observer) noexcept {
            take<link>(observer);
            --count_;
        }
        /// The first entry that may have this hash.
        EmbeddedObserver* chain(std::size_t hash) const noexcept {
            return heads_.empty() ? nullptr : heads_[hash & (heads_.size() - 1)];
        }

    private:
        std::vector<EmbeddedObserver*> heads_;
        std::size_t count_ = 0;
    };

    /// Moves the new entries into their buckets; there must be room.
    void moveNewToBuckets() noexcept;

    static std::size_t valueHash(const EmbeddedObserver& observer) noexcept {
        return observer.hash_;
    }
    static std::size_t addressHash(const EmbeddedObserver& observer) noexcept;

    std::vector<const EmbeddedObserver::Kind*> kinds_;  // all that have ever joined
    // chained by `byValue_`; their `byAddress_` is not set
    EmbeddedObserver* newest_ = nullptr;
    std::size_t newCount_ = 0;
    Chains<&EmbeddedObserver::byValue_, &valueHash> byValue_;
    Chains<&EmbeddedObserver::byAddress_, &addressHash> byAddress_;
};

}  // namespace vexim::detail
