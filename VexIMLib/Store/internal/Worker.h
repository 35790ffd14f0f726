#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <vector>

#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim::store {

/// What a store's thread does, one after the other.
class Job {
public:
    virtual ~Job() = default;
};

/// A queue of jobs with a thread of its own. The thread ends by itself after `finish`, and holds
/// what it works on until then. At the process's exit all are finished, and awaited for three
/// seconds at most: what was asked for is done, but a process that cannot exit is worse.
class Worker {
public:
    using Jobs = std::vector<std::unique_ptr<Job>>;
    /// Runs on the thread with all that is queued; after the last call it is let go of, there.
    using Work = std::function<void(Jobs jobs)>;

    /// Throws std::system_error when the system has no thread to give.
    static std::shared_ptr<Worker> start(Work work);

    /// False, with the job untouched, after `finish`, and in a forked child, which has no such
    /// thread.
    bool add(std::unique_ptr<Job>& job);
    /// No job after this one, which may be nullptr. False, with it untouched, as above.
    bool finish(std::unique_ptr<Job>& last);

private:
    Worker();
    void run(Work work);
    bool put(std::unique_ptr<Job>& job, bool isLast);

    const pid_t process_;
    Mutex mutex_;  // never held while a job runs
    ConditionVariable changed_;
    Jobs jobs_ VEXIM_GUARDED_BY(mutex_);
    bool isFinished_ VEXIM_GUARDED_BY(mutex_) = false;
};

}  // namespace vexim::store
