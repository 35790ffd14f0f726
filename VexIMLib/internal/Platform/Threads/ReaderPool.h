#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <list>
#include <memory>

#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim {

/// A few threads that take turns reading the bodies of uploads: at most `kReaders`, and one more
/// for each body that blocks its thread (a file on a stalled network disk, a pipe without a
/// writer), up to `kMostThreads`. A thread ends after some idle time.
///
/// All functions may be called from any thread. A pool is never destroyed.
class ReaderPool {
public:
    static constexpr std::size_t kReaders = 4;
    static constexpr std::size_t kMostThreads = 64;

    class Work {
    public:
        virtual ~Work() = default;
        /// Reads as much as makes sense at once, on a thread of the pool.
        virtual void turn() noexcept = 0;
        /// The process is exiting: makes a waiting turn return soon.
        virtual void interrupt() = 0;
    };

    static ReaderPool& shared();
    /// A turn that takes longer than `patience` counts as blocked.
    explicit ReaderPool(std::chrono::milliseconds patience) : patience_(patience) {}
    ReaderPool(const ReaderPool&) = delete;
    ReaderPool& operator=(const ReaderPool&) = delete;

    /// Queues one turn of `work`. Returns false if there is no thread for it: the process is
    /// exiting, or the system has no more threads.
    bool add(std::shared_ptr<Work> work);
    /// Nobody waits for `work` any more. A thread that runs it may be stuck forever, so it is no
    /// longer counted and ends with its turn.
    void giveUp(const Work& work);

protected:
    Mutex mutex_;
    std::size_t threads_ VEXIM_GUARDED_BY(mutex_) = 0;  // without abandoned ones

private:
    struct Worker {
        std::shared_ptr<Work> work;
        std::chrono::steady_clock::time_point since;  // when its turn began
        bool isBlocked = false;
        bool isGivenUp = false;
    };
    using Place = std::list<Worker>::iterator;

    void run(Place worker);
    std::shared_ptr<Work> next(Place worker);
    bool startMissingThreads();
    bool mayStartThread() VEXIM_REQUIRES(mutex_);
    void checkBlockedSoon() VEXIM_REQUIRES(mutex_);
    void checkBlocked();
    /// At exit it interrupts all threads at once, because the second thread's worker may be gone
    /// when the hook calls it.
    void interrupt();
    void stopCounting(Place worker) VEXIM_REQUIRES(mutex_);

    const std::chrono::milliseconds patience_;
    ConditionVariable added_;
    std::deque<std::shared_ptr<Work>> queue_ VEXIM_GUARDED_BY(mutex_);
    std::list<Worker> workers_ VEXIM_GUARDED_BY(mutex_);
    std::size_t blocked_ VEXIM_GUARDED_BY(mutex_) = 0;  // of `threads_`
    std::size_t idle_ VEXIM_GUARDED_BY(mutex_) = 0;
    bool isWatched_ VEXIM_GUARDED_BY(mutex_) = false;
    bool isExiting_ VEXIM_GUARDED_BY(mutex_) = false;
};

}  // namespace vexim
