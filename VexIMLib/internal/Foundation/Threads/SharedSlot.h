#pragma once

#include <memory>
#include <utility>

#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim::detail {

/// A shared pointer that any thread may read and replace. A static one is never destroyed.
template <class T>
class SharedSlot {
public:
    SharedSlot() = default;
    explicit SharedSlot(std::shared_ptr<T> value) : value_(std::move(value)) {}

    std::shared_ptr<T> get() const {
        MutexLock lock(mutex_);
        return value_;
    }
    void set(std::shared_ptr<T> value) {
        // Destroy the old value outside the lock, because its destructor may read this slot.
        MutexLock lock(mutex_);
        value_.swap(value);
    }

private:
    mutable Mutex mutex_;
    std::shared_ptr<T> value_ VEXIM_GUARDED_BY(mutex_);
};

}  // namespace vexim::detail
