#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <list>
#include <memory>

#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim {

/// A few threads that read the bodies of uploads, by turns: at most `kReaders`, and one more for
/// each body that blocks the thread which reads it (a file on a stalled network disk, a pipe
/// without a writer), up to `kMostThreads`. A thread ends when it has had nothing to do for a
/// while.
///
/// All functions may be called from any thread. A pool is never destroyed.
class ReaderPool {
public:
    static constexpr std::size_t kReaders = 4;
    static constexpr std::size_t kMostThreads = 64;

    class Work {
    public:
        virtual ~Work() = default;
        /// Reads for as long as that makes sense in one go, on a thread of the pool.
        virtual void turn() noexcept = 0;
        /// The process ends: makes a turn that waits return soon.
        virtual void interrupt() = 0;
    };

    static ReaderPool& shared();
    /// A turn that takes longer than `patience` is taken for blocked.
    explicit ReaderPool(std::chrono::milliseconds patience) : patience_(patience) {}
    ReaderPool(const ReaderPool&) = delete;
    ReaderPool& operator=(const ReaderPool&) = delete;

    /// Queues one turn of `work`. False when there is no thread for it: the process is exiting, or
    /// the system has none to give.
    bool add(std::shared_ptr<Work> work);
    /// Nobody waits for `work` any more. A thread that is inside it is not counted from now on and
    /// ends with its turn: it may be stuck for ever.
    void giveUp(const Work& work);

    /// How many threads there are, without those that were given up. For tests.
    std::size_t threadCount();

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
    bool startWhatIsMissing();
    bool mayStartThread() VEXIM_REQUIRES(mutex_);
    void watchSoon() VEXIM_REQUIRES(mutex_);
    void look();
    /// At exit, of all threads at once: when the hook asks for the second one, its worker may be
    /// gone.
    void interrupt();
    void uncount(Place worker) VEXIM_REQUIRES(mutex_);

    const std::chrono::milliseconds patience_;
    Mutex mutex_;
    ConditionVariable added_;
    std::deque<std::shared_ptr<Work>> queue_ VEXIM_GUARDED_BY(mutex_);
    std::list<Worker> workers_ VEXIM_GUARDED_BY(mutex_);
    std::size_t threads_ VEXIM_GUARDED_BY(mutex_) = 0;  // without those that were given up
    std::size_t blocked_ VEXIM_GUARDED_BY(mutex_) = 0;  // of these
    std::size_t idle_ VEXIM_GUARDED_BY(mutex_) = 0;
    bool isWatched_ VEXIM_GUARDED_BY(mutex_) = false;
    bool isExiting_ VEXIM_GUARDED_BY(mutex_) = false;
};

}  // namespace vexim
