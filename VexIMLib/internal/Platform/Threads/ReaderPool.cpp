#include "VexIMLib/internal/Platform/Threads/ReaderPool.h"

#include <utility>
#include <vector>

#include "VexIMLib/internal/Platform/Threads/LibraryThreads.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"

namespace vexim {
namespace {

using SteadyClock = std::chrono::steady_clock;

// Reading from a disk takes about a millisecond. If a turn counts as blocked by mistake, that costs
// one more thread for a moment.
constexpr std::chrono::milliseconds kPatience{100};
constexpr std::chrono::seconds kMostIdle{2};

}  // namespace

ReaderPool& ReaderPool::shared() {
    static auto* const pool = new ReaderPool(kPatience);
    return *pool;
}

bool ReaderPool::add(std::shared_ptr<Work> work) {
    {
        const MutexLock lock(mutex_);
        if (isExiting_) return false;
        queue_.push_back(work);
        added_.notifyOne();
    }
    if (startMissingThreads()) return true;
    const MutexLock lock(mutex_);
    return std::erase(queue_, work) == 0;
}

void ReaderPool::giveUp(const Work& work) {
    {
        const MutexLock lock(mutex_);
        for (Place worker = workers_.begin(); worker != workers_.end(); ++worker) {
            if (worker->work.get() == &work && !std::exchange(worker->isGivenUp, true))
                stopCounting(worker);
        }
    }
    startMissingThreads();
}

bool ReaderPool::mayStartThread() {
    if (isExiting_ || queue_.size() <= idle_) return false;
    if (threads_ - blocked_ < kReaders && threads_ < kMostThreads) return true;
    checkBlockedSoon();
    return false;
}

/// False if there is no thread at all. Work that stays in line is tried again.
bool ReaderPool::startMissingThreads() {
    for (;;) {
        Place worker;
        {
            const MutexLock lock(mutex_);
            if (!mayStartThread()) return true;
            worker = workers_.insert(workers_.end(), Worker{});
            ++threads_;
            ++idle_;  // it is about to take something
        }
        const bool started = LibraryThreads::start(
            "vexim-body", LibraryThreads::AtExit::Leave, [this, worker] { run(worker); },
            [this] { interrupt(); });
        if (started) continue;
        const MutexLock lock(mutex_);
        workers_.erase(worker);
        --idle_;
        checkBlockedSoon();
        return --threads_ > 0;
    }
}

void ReaderPool::run(Place worker) {
    while (const auto work = next(worker)) work->turn();
}

/// Ends the worker's turn and waits for the next one. nullptr if its thread must end; the worker is
/// destroyed then.
std::shared_ptr<ReaderPool::Work> ReaderPool::next(Place worker) {
    std::shared_ptr<Work> last;  // released without the lock
    const MutexLock lock(mutex_);
    const bool isFirst = !worker->work;
    last = std::move(worker->work);
    if (worker->isBlocked) --blocked_;
    worker->isBlocked = false;
    if (!isFirst && !worker->isGivenUp) ++idle_;
    // others took its place while it was blocked
    const bool isSpare = threads_ - blocked_ > kReaders;
    const auto until = SteadyClock::now() + kMostIdle;
    while (queue_.empty() && !isExiting_ && !isSpare && !worker->isGivenUp &&
           added_.waitUntil(mutex_, until)) {
    }
    if (!worker->isGivenUp) --idle_;
    if (worker->isGivenUp || isSpare || isExiting_ || queue_.empty()) {
        if (!worker->isGivenUp) --threads_;
        workers_.erase(worker);
        return nullptr;
    }
    worker->work = std::move(queue_.front());
    worker->since = SteadyClock::now();
    queue_.pop_front();
    return worker->work;
}

void ReaderPool::stopCounting(Place worker) {
    --threads_;
    if (std::exchange(worker->isBlocked, false)) --blocked_;
}

void ReaderPool::checkBlockedSoon() {
    if (std::exchange(isWatched_, true)) return;
    // By real time, whatever clock is set, because the system makes a thread wait.
    NetworkThread::shared().post([this] {
        auto timer = std::make_shared<NetworkTimer>();
        auto& watch = *timer;
        watch.start(patience_, [this, timer = std::move(timer)] { checkBlocked(); });
    });
}

void ReaderPool::checkBlocked() {
    {
        const MutexLock lock(mutex_);
        isWatched_ = false;
        const auto latest = SteadyClock::now() - patience_;
        for (Worker& worker : workers_) {
            if (!worker.work || worker.isGivenUp || worker.since > latest) continue;
            if (!std::exchange(worker.isBlocked, true)) ++blocked_;
        }
    }
    startMissingThreads();
}

void ReaderPool::interrupt() {
    std::vector<std::shared_ptr<Work>> turns;
    {
        const MutexLock lock(mutex_);
        if (std::exchange(isExiting_, true)) return;
        for (const Worker& worker : workers_) {
            if (worker.work) turns.push_back(worker.work);
        }
        added_.notifyAll();
    }
    for (const auto& work : turns) work->interrupt();
}

}  // namespace vexim
