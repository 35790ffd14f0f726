#include "VexIMLib/internal/Platform/OperationQueue.h"

#include <utility>

#include "VexIMLib/Foundation/ThreadSafety.h"
#include "VexIMLib/internal/Platform/LibraryThreads.h"

namespace vexim {

struct OperationQueue::State {
    explicit State(std::string threadName) : name(std::move(threadName)) {}
    const std::string name;

    Mutex mutex;
    ConditionVariable arrived;
    std::vector<Operation> pending VEXIM_GUARDED_BY(mutex);
    bool threadRuns VEXIM_GUARDED_BY(mutex) = false;
    bool threadWaits VEXIM_GUARDED_BY(mutex) = false;
    bool closed VEXIM_GUARDED_BY(mutex) = false;   // no more operations will come
    bool stopped VEXIM_GUARDED_BY(mutex) = false;  // the process exits: what is left is not run

    void run();
    void stop() {
        const MutexLock lock(mutex);
        stopped = true;
        arrived.notifyOne();
    }
    bool isStopped() {
        const MutexLock lock(mutex);
        return stopped;
    }
};

namespace {
thread_local const OperationQueue::State* currentQueue = nullptr;
}

void OperationQueue::State::run() {
    currentQueue = this;
    std::vector<Operation> batch;
    for (;;) {
        {
            const MutexLock lock(mutex);
            while (pending.empty() && !closed && !stopped) {
                threadWaits = true;
                arrived.wait(mutex);
            }
            if (stopped || pending.empty()) return;
            batch.swap(pending);
        }
        for (auto& operation : batch) {
            if (isStopped()) return;
            operation();
            operation = nullptr;
        }
        batch.clear();
    }
}

std::shared_ptr<OperationQueue> OperationQueue::create(std::string name) {
    return std::shared_ptr<OperationQueue>(new OperationQueue(std::move(name)));
}

OperationQueue::OperationQueue(std::string name) : state_(std::make_shared<State>(std::move(name))) {}

OperationQueue::~OperationQueue() {
    const MutexLock lock(state_->mutex);
    state_->closed = true;
    state_->arrived.notifyOne();
}

void OperationQueue::addOperation(Operation operation) {
    bool startThread = false;
    bool wake = false;
    {
        const MutexLock lock(state_->mutex);
        state_->pending.push_back(std::move(operation));
        startThread = !std::exchange(state_->threadRuns, true);
        wake = std::exchange(state_->threadWaits, false);
    }
    if (wake) state_->arrived.notifyOne();
    if (startThread)
        LibraryThreads::start(
            state_->name, LibraryThreads::AtExit::Leave, [state = state_] { state->run(); }, [state = state_] { state->stop(); });
}

bool OperationQueue::isCurrent() const noexcept { return currentQueue == state_.get(); }

}  // namespace vexim
