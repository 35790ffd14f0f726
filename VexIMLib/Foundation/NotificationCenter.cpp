#include "VexIMLib/Foundation/NotificationCenter.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <iterator>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/ThreadSafety.h"

namespace vexim {

namespace {

struct Registration {
    std::uint64_t number;  // registration order
    std::weak_ptr<void> observer;
    const void* identity;  // the observer's address, which outlives it here
    std::string name;
    const Object* sender;
    std::string key;  // empty: not keyed
    Value value;
    NotificationCenter::Handler handler;
    std::atomic<bool> removed{false};
};

using RegistrationPtr = std::shared_ptr<Registration>;
/// In registration order, and cheap to remove from.
using Ordered = std::map<std::uint64_t, RegistrationPtr>;

struct ValueHash {
    std::size_t operator()(const Value& value) const noexcept {
        if (const auto text = value.asStringView()) return std::hash<std::string_view>()(*text);
        if (value.kind() == Value::Kind::Integer) return std::hash<std::int64_t>()(value.integer());
        if (value.isNumber()) return std::hash<double>()(value.doubleValue());
        return static_cast<std::size_t>(value.kind());  // ids are texts or numbers; anything else may share a bucket
    }
};

struct Named {
    Ordered plain;
    std::unordered_map<std::string, std::unordered_map<Value, Ordered, ValueHash>> keyed;
};

}  // namespace

struct NotificationCenter::Impl {
    Mutex mutex;  // never held while a handler runs or is destroyed
    std::uint64_t nextNumber VEXIM_GUARDED_BY(mutex) = 0;
    Ordered anyName VEXIM_GUARDED_BY(mutex);
    std::unordered_map<std::string, Named> byName VEXIM_GUARDED_BY(mutex);
    std::unordered_map<const void*, Ordered> byObserver VEXIM_GUARDED_BY(mutex);
    std::size_t count VEXIM_GUARDED_BY(mutex) = 0;  // of registrations
    std::size_t nextSweep VEXIM_GUARDED_BY(mutex) = kFirstSweep;

    static constexpr std::size_t kFirstSweep = 64;

    void add(RegistrationPtr registration) {
        std::vector<RegistrationPtr> expired;  // destroyed without the lock
        MutexLock lock(mutex);
        if (count++ >= nextSweep) sweep(expired);
        const auto number = registration->number = nextNumber++;
        byObserver[registration->identity].emplace(number, registration);
        if (registration->name.empty()) {
            anyName.emplace(number, std::move(registration));
        } else if (auto& named = byName[registration->name]; registration->key.empty()) {
            named.plain.emplace(number, std::move(registration));
        } else {
            named.keyed[registration->key][registration->value].emplace(number, std::move(registration));
        }
    }

    /// Takes it out of the lists by name, and marks it for posts that are under way.
    void forget(const Registration& registration) VEXIM_REQUIRES(mutex) {
        if (registration.name.empty()) {
            anyName.erase(registration.number);
            return;
        }
        const auto found = byName.find(registration.name);
        if (found == byName.end()) return;
        auto& named = found->second;
        if (registration.key.empty()) {
            named.plain.erase(registration.number);
        } else if (const auto values = named.keyed.find(registration.key); values != named.keyed.end()) {
            if (const auto same = values->second.find(registration.value); same != values->second.end()) {
                same->second.erase(registration.number);
                if (same->second.empty()) values->second.erase(same);
            }
            if (values->second.empty()) named.keyed.erase(values);
        }
        if (named.plain.empty() && named.keyed.empty()) byName.erase(found);
    }

    /// Moves those of one observer's registrations that `which` picks into `removed`.
    template <class Which>
    void extract(Ordered& own, Which which, std::vector<RegistrationPtr>& removed) VEXIM_REQUIRES(mutex) {
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

    /// Removes the observer's registrations that `which` picks; their handlers are destroyed without the lock.
    template <class Which>
    void remove(const void* identity, Which which) {
        std::vector<RegistrationPtr> removed;
        MutexLock lock(mutex);
        const auto found = byObserver.find(identity);
        if (found == byObserver.end()) return;
        extract(found->second, which, removed);
        if (found->second.empty()) byObserver.erase(found);
    }

    /// Drops what observers left behind that went without a word and are not posted to. Done whenever the registrations have
    /// doubled, it costs each of them a constant.
    void sweep(std::vector<RegistrationPtr>& removed) VEXIM_REQUIRES(mutex) {
        for (auto next = byObserver.begin(); next != byObserver.end();) {
            extract(
                next->second, [](const Registration& each) { return each.observer.expired(); }, removed);
            next = next->second.empty() ? byObserver.erase(next) : std::next(next);
        }
        nextSweep = std::max(kFirstSweep, count * 2);
    }

    std::vector<RegistrationPtr> listeners(const Notification& notification) {
        std::vector<RegistrationPtr> found;
        const auto take = [&](const Ordered& registrations) {
            for (const auto& [number, registration] : registrations) {
                if (registration->sender == nullptr || registration->sender == notification.object.get()) {
                    found.push_back(registration);
                }
            }
        };
        MutexLock lock(mutex);
        take(anyName);
        if (const auto named = byName.find(notification.name); named != byName.end()) {
            take(named->second.plain);
            for (const auto& [key, values] : named->second.keyed) {
                const Value* value = notification.userInfo ? notification.userInfo->find(key) : nullptr;
                if (value == nullptr) continue;
                if (const auto same = values.find(*value); same != values.end()) take(same->second);
            }
        }
        std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a->number < b->number; });
        return found;
    }
};

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter& center = *new NotificationCenter;  // observers of static life remove themselves at exit
    return center;
}

NotificationCenter::NotificationCenter() : impl_(std::make_unique<Impl>()) {}
NotificationCenter::~NotificationCenter() = default;

void NotificationCenter::addObserver(const std::shared_ptr<void>& observer, std::string name, const Object* sender,
                                     Handler handler) {
    auto registration = std::make_shared<Registration>();
    registration->observer = observer;
    registration->identity = observer.get();
    registration->name = std::move(name);
    registration->sender = sender;
    registration->handler = std::move(handler);
    impl_->add(std::move(registration));
}

void NotificationCenter::addObserver(const std::shared_ptr<void>& observer, std::string name, std::string key, Value value,
                                     Handler handler) {
    if (value.isNil()) return;  // nil equals nothing: it would never be called
    auto registration = std::make_shared<Registration>();
    registration->observer = observer;
    registration->identity = observer.get();
    registration->name = std::move(name);
    registration->sender = nullptr;
    registration->key = std::move(key);
    registration->value = std::move(value);
    registration->handler = std::move(handler);
    impl_->add(std::move(registration));
}

void NotificationCenter::removeObserver(const void* observer) {
    impl_->remove(observer, [](const Registration&) { return true; });
}

void NotificationCenter::removeObserver(const void* observer, std::string_view name) {
    impl_->remove(observer, [name](const Registration& registration) { return registration.name == name; });
}

void NotificationCenter::post(const Notification& notification) {
    for (const auto& registration : impl_->listeners(notification)) {
        if (registration->removed) continue;
        if (const auto observer = registration->observer.lock()) {
            if (registration->handler) registration->handler(notification);
        } else {
            // Its owner went without a word. Its address may be another observer's by now, so only this one goes.
            impl_->remove(registration->identity, [&](const Registration& other) { return &other == registration.get(); });
        }
    }
}

void NotificationCenter::post(std::string name, std::shared_ptr<Object> object, std::optional<Dictionary> userInfo) {
    post(Notification{std::move(name), std::move(object), std::move(userInfo)});
}

}  // namespace vexim
