#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <vector>

#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim::store {

/// A job for a store's thread. Jobs run one after the other.
class Job {
public:
    virtual ~Job() = default;
};

/// A queue of jobs with its own thread. The thread ends by itself after `finish`, and keeps its
/// data until then. When the process exits, all workers do their pending jobs and end. The exit
/// waits for this, but for three seconds at most.
class Worker {
public:
    using Jobs = std::vector<std::unique_ptr<Job>>;
    /// Runs on the thread with all queued jobs. After the last call it is released there.
    using Work = std::function<void(Jobs jobs)>;

    /// Throws std::system_error if the system has no more threads.
    static std::shared_ptr<Worker> start(Work work);

    /// Returns false, and does not take the job, if `finish` was called or in a forked child, which
    /// does not have the thread.
    bool add(std::unique_ptr<Job>& job);
    /// Adds the last job, which may be nullptr. Returns false as above.
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
