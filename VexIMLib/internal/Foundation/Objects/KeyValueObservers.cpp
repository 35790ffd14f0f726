#include "VexIMLib/internal/Foundation/Objects/KeyValueObservers.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace vexim::detail {

namespace {

using Registrations = std::vector<std::shared_ptr<KeyValueObservers::Registration>>;

// Moves the observers that match `isGone` into `removed`. The caller destroys them after it has
// released the lock.
template <class Predicate>
void extract(Registrations& registrations, Registrations& removed, Predicate isGone) {
    auto kept = std::stable_partition(registrations.begin(), registrations.end(),
                                      [&](const auto& each) { return !isGone(*each); });
    removed.assign(std::make_move_iterator(kept), std::make_move_iterator(registrations.end()));
    registrations.erase(kept, registrations.end());
}

}  // namespace

void KeyValueObservers::add(const std::shared_ptr<void>& observer, std::string key,
                            Object::ChangeHandler handler) {
    auto added = std::make_shared<Registration>();
    added->observer = observer;
    added->identity = observer.get();
    added->key = std::move(key);
    added->handler = std::move(handler);
    Registrations expired;
    MutexLock lock(mutex_);
    extract(registrations_, expired,
            [](const Registration& each) { return each.observer.expired(); });
    registrations_.push_back(std::move(added));
}

void KeyValueObservers::remove(const void* observer, std::string_view key) {
    Registrations removed;
    MutexLock lock(mutex_);
    extract(registrations_, removed,
            [&](const Registration& each) { return each.identity == observer && each.key == key; });
    for (auto& each : removed) each->isRemoved = true;
}

Registrations KeyValueObservers::of(std::string_view key) {
    Registrations found;
    MutexLock lock(mutex_);
    for (const auto& each : registrations_) {
        if (each->key == key) found.push_back(each);
    }
    return found;
}

}  // namespace vexim::detail
