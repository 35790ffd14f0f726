#include "VexIMLib/Foundation/Object.h"

#include <cstdio>
#include <utility>

#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/internal/Foundation/Objects/KeyValueObservers.h"

namespace vexim {

Object::Object(Creation) noexcept {}

Object::~Object() { delete observers_.load(std::memory_order_acquire); }

std::string Object::description() const {
    char address[2 + 2 * sizeof(void*) + 1];
    std::snprintf(address, sizeof(address), "%p", static_cast<const void*>(this));
    return "<" + runtimeClass().name() + ": " + address + ">";
}

bool Object::isEqual(const Object& other) const { return this == &other; }

std::shared_ptr<Object> Object::copy() const { doesNotRecognizeSelector("copyWithZone:"); }

Value Object::valueForKey(std::string_view) const { return {}; }

void Object::addObserver(const std::shared_ptr<void>& observer, std::string key,
                         ChangeHandler handler) {
    auto* observers = observers_.load(std::memory_order_acquire);
    if (!observers) {
        auto fresh = std::make_unique<detail::KeyValueObservers>();
        // If another thread was first, use its list.
        if (observers_.compare_exchange_strong(observers, fresh.get(), std::memory_order_acq_rel))
            observers = fresh.release();
    }
    observers->add(observer, std::move(key), std::move(handler));
}

void Object::removeObserver(const void* observer, std::string_view key) {
    if (auto* observers = observers_.load(std::memory_order_acquire))
        observers->remove(observer, key);
}

void Object::willChangeValueForKey(std::string_view) {
    // Observers are called after the change, with the new value only. So there is nothing to do
    // before it.
}

void Object::didChangeValueForKey(std::string_view key) {
    auto* observers = observers_.load(std::memory_order_acquire);
    if (!observers) return;
    auto registrations = observers->of(key);
    if (registrations.empty()) return;
    const auto self = weak_from_this().lock();  // a handler may release the last other reference
    const KeyValueChange change{std::string(key), valueForKey(key)};
    for (const auto& registration : registrations) {
        auto observer = registration->observer.lock();  // kept while it is called
        if (observer && !registration->isRemoved && registration->handler)
            registration->handler(*this, change);
    }
}

}  // namespace vexim
