#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim::detail {

/// One object's observers, by key.
class KeyValueObservers {
public:
    struct Registration {
        std::weak_ptr<void> observer;
        const void* identity;
        std::string key;
        Object::ChangeHandler handler;
        std::atomic<bool> isRemoved{false};
    };

    void add(const std::shared_ptr<void>& observer, std::string key, Object::ChangeHandler handler);
    void remove(const void* observer, std::string_view key);
    /// The observers of `key`, in order of registration.
    std::vector<std::shared_ptr<Registration>> of(std::string_view key);

private:
    Mutex mutex_;  // never held while a handler runs or is destroyed
    std::vector<std::shared_ptr<Registration>> registrations_ VEXIM_GUARDED_BY(mutex_);
};

}  // namespace vexim::detail
