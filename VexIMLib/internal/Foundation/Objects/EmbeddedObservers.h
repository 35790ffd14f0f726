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

/// A notification centre's table of the observers that bring their own entries. To be called with
/// the centre's lock.
///
/// The newest wait in a chain of their own until they are searched for or are many: most live for
/// one call of a delegate, and need no hashing at all.
class EmbeddedObservers {
public:
    /// One that is to hear a notification, if it still lives by then.
    struct Listener {
        std::uint64_t number;
        std::weak_ptr<Object> object;
        const EmbeddedObserver* observer;  // lies in the object
        std::uint8_t name;                 // the bit of the notification's name

        /// Without the lock: calls it, unless it has gone or was removed.
        void hear(const Notification& notification) const;
    };

    void add(EmbeddedObserver& observer, std::uint64_t number);
    void remove(EmbeddedObserver& observer) noexcept;
    /// For an application that removes an observer: the one in the object at `identity`, if any,
    /// hears that name no more, or when it is empty, nothing.
    void silence(const void* identity, std::string_view name) noexcept;
    /// Those that are to hear the notification, by number.
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

    /// Buckets of chains: a power of two, and at least as many as there are entries.
    template <Link EmbeddedObserver::*link, auto hashOf>
    class Chains {
    public:
        /// For so many more.
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
        /// The first of those whose hash may be this one.
        EmbeddedObserver* chain(std::size_t hash) const noexcept {
            return heads_.empty() ? nullptr : heads_[hash & (heads_.size() - 1)];
        }

    private:
        std::vector<EmbeddedObserver*> heads_;
        std::size_t count_ = 0;
    };

    /// Brings the newest into their places, for which there is room.
    void settle() noexcept;

    static std::size_t valueHash(const EmbeddedObserver& observer) noexcept {
        return observer.hash_;
    }
    static std::size_t addressHash(const EmbeddedObserver& observer) noexcept;

    std::vector<const EmbeddedObserver::Kind*> kinds_;  // that have ever joined
    // chained by `byValue_`; their `byAddress_` is not set
    EmbeddedObserver* newest_ = nullptr;
    std::size_t newCount_ = 0;
    Chains<&EmbeddedObserver::byValue_, &valueHash> byValue_;
    Chains<&EmbeddedObserver::byAddress_, &addressHash> byAddress_;
};

}  // namespace vexim::detail
