#include "VexIMLib/Foundation/NotificationCenter.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <memory_resource>
#include <unordered_map>
#include <utility>
#include <vector>

#include "VexIMLib/internal/Foundation/Objects/EmbeddedObservers.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim {

namespace {

struct Registration {
    std::uint64_t number;  // registration order
    std::weak_ptr<void> observer;
    const void* identity;  // the observer's address, which outlives it here
    std::string name;
    const Object* sender;
    NotificationCenter::Handler handler;
    std::atomic<bool> removed{false};
};

using RegistrationPtr = std::shared_ptr<Registration>;
/// In registration order. Removing is cheap.
using Ordered = std::map<std::uint64_t, RegistrationPtr>;

}  // namespace

struct NotificationCenter::Impl {
    Mutex mutex;  // never held while a handler runs or is destroyed
    std::uint64_t nextNumber VEXIM_GUARDED_BY(mutex) = 0;
    Ordered anyName VEXIM_GUARDED_BY(mutex);
    std::unordered_map<std::string, Ordered> byName VEXIM_GUARDED_BY(mutex);
    std::unordered_map<const void*, Ordered> byObserver VEXIM_GUARDED_BY(mutex);
    std::size_t count VEXIM_GUARDED_BY(mutex) = 0;  // of registrations
    std::size_t nextSweep VEXIM_GUARDED_BY(mutex) = kFirstSweep;
    detail::EmbeddedObservers embedded VEXIM_GUARDED_BY(mutex);

    static constexpr std::size_t kFirstSweep = 64;

    void add(RegistrationPtr registration) {
        std::vector<RegistrationPtr> expired;  // destroyed without the lock
        MutexLock lock(mutex);
        if (count++ >= nextSweep) sweep(expired);
        const auto number = registration->number = nextNumber++;
        byObserver[registration->identity].emplace(number, registration);
        auto& named = registration->name.empty() ? anyName : byName[registration->name];
        named.emplace(number, std::move(registration));
    }

    /// Removes it from the lists by name.
    void forget(const Registration& registration) VEXIM_REQUIRES(mutex) {
        if (registration.name.empty()) {
            anyName.erase(registration.number);
            return;
        }
        const auto found = byName.find(registration.name);
        if (found == byName.end()) return;
        found->second.erase(registration.number);
        if (found->second.empty()) byName.erase(found);
    }

    /// Moves the registrations of one observer that match `which` into `removed`, and marks them so
    /// that running posts skip them.
    template <class Which>
    void extract(Ordered& own, Which which, std::vector<RegistrationPtr>& removed)
        VEXIM_REQUIRES(mutex) {
        for (auto next = own.begin(); next != own.end();) {
            if (!which(*next->second)) {
                ++next;
                continue;
            }
            next->second->removed = true;
            --count;
            forget(*next->second);
            removed.push_back(std::move(next->second));
            next = own.erase(next);
        }
    }

    /// Removes the observer's registrations that match `which`. Destroys their handlers without the
    /// lock.
    template <class Which>
    void remove(const void* identity, Which which) {
        std::vector<RegistrationPtr> removed;
        MutexLock lock(mutex);
        const auto found = byObserver.find(identity);
        if (found == byObserver.end()) return;
        extract(found->second, which, removed);
        if (found->second.empty()) byObserver.erase(found);
    }

    void unsubscribe(const void* identity, std::string_view name) {
        MutexLock lock(mutex);
        embedded.unsubscribe(identity, name);
    }

    /// Drops registrations whose observers were destroyed without removing them. It runs whenever
    /// the number of registrations has doubled, so the cost per registration is constant.
    void sweep(std::vector<RegistrationPtr>& removed) VEXIM_REQUIRES(mutex) {
        for (auto next = byObserver.begin(); next != byObserver.end();) {
            extract(
                next->second, [](const Registration& each) { return each.observer.expired(); },
                removed);
            next = next->second.empty() ? byObserver.erase(next) : std::next(next);
        }
        nextSweep = std::max(kFirstSweep, count * 2);
    }

    /// The observers to call, each kind in order of registration.
    struct Listeners {
        std::array<std::byte, 128> memory;  // usually there are only a few
        std::pmr::monotonic_buffer_resource resource{memory.data(), memory.size()};
        std::pmr::vector<RegistrationPtr> registrations{&resource};
        std::vector<detail::EmbeddedObservers::Listener> embedded;
    };

    void find(const Notification& notification, Listeners& found) {
        auto& registrations = found.registrations;
        const auto take = [&](const Ordered& those) {
            for (const auto& [number, registration] : those) {
                if (registration->sender == nullptr ||
                    registration->sender == notification.object.get()) {
                    registrations.push_back(registration);
                }
            }
        };
        MutexLock lock(mutex);
        take(anyName);
        const auto middle = static_cast<std::ptrdiff_t>(registrations.size());
        if (const auto named = byName.find(notification.name); named != byName.end())
            take(named->second);
        std::inplace_merge(registrations.begin(), registrations.begin() + middle,
                           registrations.end(),
                           [](const auto& a, const auto& b) { return a->number < b->number; });
        found.embedded = embedded.listeners(notification);
    }

    void call(const Registration& registration, const Notification& notification) {
        if (registration.removed) return;
        if (const auto observer = registration.observer.lock()) {
            if (registration.handler) registration.handler(notification);
        } else {
            // Its owner was destroyed without removing it. Another observer may have the same
            // address by now, so remove only this one.
            remove(registration.identity,
                   [&](const Registration& other) { return &other == &registration; });
        }
    }
};

NotificationCenter& NotificationCenter::defaultCenter() {
    // never destroyed, because static observers remove themselves at exit
    static NotificationCenter& center = *new NotificationCenter;
    return center;
}

NotificationCenter::NotificationCenter() : impl_(std::make_unique<Impl>()) {}
NotificationCenter::~NotificationCenter() = default;

void NotificationCenter::addObserver(const std::shared_ptr<void>& observer, std::string name,
                                     const Object* sender, Handler handler) {
    auto registration = std::make_shared<Registration>();
    registration->observer = observer;
    registration->identity = observer.get();
    registration->name = std::move(name);
    registration->sender = sender;
    registration->handler = std::move(handler);
    impl_->add(std::move(registration));
}

void NotificationCenter::removeObserver(const void* observer) {
    impl_->remove(observer, [](const Registration&) { return true; });
    impl_->unsubscribe(observer, {});
}

void NotificationCenter::removeObserver(const void* observer, std::string_view name) {
    impl_->remove(observer,
                  [name](const Registration& registration) { return registration.name == name; });
    if (!name.empty()) impl_->unsubscribe(observer, name);
}

void NotificationCenter::add(detail::EmbeddedObserver& observer) {
    MutexLock lock(impl_->mutex);
    impl_->embedded.add(observer, impl_->nextNumber++);
}

void NotificationCenter::remove(detail::EmbeddedObserver& observer) noexcept {
    MutexLock lock(impl_->mutex);
    impl_->embedded.remove(observer);
}

void NotificationCenter::post(const Notification& notification) {
    Impl::Listeners listeners;
    impl_->find(notification, listeners);
    auto next = listeners.embedded.begin();
    for (const auto& registration : listeners.registrations) {
        while (next != listeners.embedded.end() && next->number < registration->number)
            (next++)->notify(notification);
        impl_->call(*registration, notification);
    }
    while (next != listeners.embedded.end()) (next++)->notify(notification);
}

void NotificationCenter::post(std::string name, std::shared_ptr<Object> object,
                              std::optional<Dictionary> userInfo) {
    post(Notification{std::move(name), std::move(object), std::move(userInfo)});
}

}  // namespace vexim
