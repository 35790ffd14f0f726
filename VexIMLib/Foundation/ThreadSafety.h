#pragma once

#include <mutex>

// A mutex that clang's -Wthread-safety can check (libstdc++'s std::mutex carries no annotations).

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
    bool try_lock() VEXIM_THREAD_ANNOTATION(try_acquire_capability(true)) { return mutex_.try_lock(); }

private:
    std::mutex mutex_;
};

/// Holds a Mutex for a scope. Wait on it with std::condition_variable_any.
class VEXIM_THREAD_ANNOTATION(scoped_lockable) MutexLock {
public:
    explicit MutexLock(Mutex& mutex) VEXIM_THREAD_ANNOTATION(acquire_capability(mutex)) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() VEXIM_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& mutex_;
};

}  // namespace vexim
