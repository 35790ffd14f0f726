#include "VexIMLib/Store/internal/Worker.h"

#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <thread>
#include <utility>

#include "VexIMLib/internal/Foundation/Threads/SignalsBlocked.h"

namespace vexim::store {
namespace {

constexpr std::chrono::seconds kPatienceAtExit(3);

/// All running workers, for the exit hook.
struct Running {
    const pid_t process = ::getpid();
    Mutex mutex;
    ConditionVariable ended;
    std::vector<std::weak_ptr<Worker>> workers VEXIM_GUARDED_BY(mutex);
    std::size_t count VEXIM_GUARDED_BY(mutex) = 0;
};

void exitHook();

Running& running() {
    static auto* const instance = [] {
        std::atexit(exitHook);
        return new Running;  // never destroyed: threads that run longer than the hook still use it
    }();
    return *instance;
}

void exitHook() {
    Running& all = running();
    if (all.process != ::getpid()) return;  // a forked child has none of the threads
    std::vector<std::weak_ptr<Worker>> workers;
    {
        const MutexLock lock(all.mutex);
        workers.swap(all.workers);
    }
    for (const auto& each : workers) {
        std::unique_ptr<Job> none;
        if (const auto worker = each.lock()) worker->finish(none);
    }
    const auto until = std::chrono::steady_clock::now() + kPatienceAtExit;
    const MutexLock lock(all.mutex);
    while (all.count > 0 && all.ended.waitUntil(all.mutex, until)) {
    }
}

}  // namespace

Worker::Worker() : process_(::getpid()) {}

std::shared_ptr<Worker> Worker::start(Work work) {
    Running& all = running();
    std::shared_ptr<Worker> worker(new Worker);
    {
        const MutexLock lock(all.mutex);
        std::erase_if(all.workers, [](const auto& each) { return each.expired(); });
        all.workers.push_back(worker);
        ++all.count;
    }
    const auto ended = [&all] {
        const MutexLock lock(all.mutex);
        --all.count;
        all.ended.notifyAll();
    };
    const SignalsBlocked blocked;  // a new thread inherits the mask
    try {
        std::thread([worker, work = std::move(work), ended]() mutable {
            ::pthread_setname_np(::pthread_self(), "vexim store");
            worker->run(std::move(work));
            worker = nullptr;
            ended();
        }).detach();
    } catch (...) {
        ended();
        throw;
    }
    return worker;
}

void Worker::run(Work work) {
    for (bool isLast = false; !isLast;) {
        Jobs jobs;
        {
            const MutexLock lock(mutex_);
            while (jobs_.empty() && !isFinished_) changed_.wait(mutex_);
            jobs.swap(jobs_);
            isLast = isFinished_;
        }
        if (!jobs.empty()) work(std::move(jobs));
    }
}

bool Worker::put(std::unique_ptr<Job>& job, bool isLast) {
    // before the lock, which may have been held when the process was forked
    if (process_ != ::getpid()) return false;
    const MutexLock lock(mutex_);
    if (isFinished_) return false;
    if (job) jobs_.push_back(std::move(job));
    isFinished_ = isLast;
    changed_.notifyOne();
    return true;
}

bool Worker::add(std::unique_ptr<Job>& job) { return put(job, false); }
bool Worker::finish(std::unique_ptr<Job>& last) { return put(last, true); }

}  // namespace vexim::store
