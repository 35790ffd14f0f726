#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// A mutex that clang's -Wthread-safety can check (libstdc++'s std::mutex has no annotations), and a
// condition variable for it.

#if defined(__clang__)
#define VEXIM_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VEXIM_THREAD_ANNOTATION(x)
#endif
#define VEXIM_GUARDED_BY(x) VEXIM_THREAD_ANNOTATION(guarded_by(x))
#define VEXIM_REQUIRES(...) VEXIM_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))

namespace vexim {

class VEXIM_THREAD_ANNOTATION(capability("mutex")) Mutex {
public:
    void lock() VEXIM_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
    void unlock() VEXIM_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
    bool try_lock() VEXIM_THREAD_ANNOTATION(try_acquire_capability(true)) {
        return mutex_.try_lock();
    }

private:
    friend class ConditionVariable;
    std::mutex mutex_;
};

/// Holds a Mutex for a scope.
class VEXIM_THREAD_ANNOTATION(scoped_lockable) MutexLock {
public:
    explicit MutexLock(Mutex& mutex) VEXIM_THREAD_ANNOTATION(acquire_capability(mutex))
        : mutex_(mutex) {
        mutex_.lock();
    }
    ~MutexLock() VEXIM_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& mutex_;
};

/// Waits on a Mutex that the caller holds. (std::condition_variable_any has an internal mutex, on
/// which a woken thread waits again. That costs two more system calls for each switch between
/// threads.)
class ConditionVariable {
public:
    void wait(Mutex& mutex) VEXIM_REQUIRES(mutex) {
        Adopted lock(mutex.mutex_);
        condition_.wait(lock.held);
    }
    /// False if the time has passed.
    bool waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point until)
        VEXIM_REQUIRES(mutex) {
        Adopted lock(mutex.mutex_);
        return condition_.wait_until(lock.held, until) == std::cv_status::no_timeout;
    }
    void notifyOne() noexcept { condition_.notify_one(); }
    void notifyAll() noexcept { condition_.notify_all(); }

private:
    /// Lends a locked mutex to the wait, and takes it back afterwards.
    struct Adopted {
        explicit Adopted(std::mutex& mutex) : held(mutex, std::adopt_lock) {}
        ~Adopted() { held.release(); }
        std::unique_lock<std::mutex> held;
    };
    std::condition_variable condition_;
};

}  // namespace vexim
