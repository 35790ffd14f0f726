#include "VexIMLib/internal/Platform/Threads/OperationQueue.h"

#include <utility>

#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/Platform/Threads/LibraryThreads.h"

namespace vexim {

struct OperationQueue::State : std::enable_shared_from_this<OperationQueue::State> {
    explicit State(std::string threadName) : name(std::move(threadName)) {}
    const std::string name;

    Mutex mutex;
    ConditionVariable arrived;
    std::vector<Operation> pending VEXIM_GUARDED_BY(mutex);
    bool threadRuns VEXIM_GUARDED_BY(mutex) = false;
    bool threadWaits VEXIM_GUARDED_BY(mutex) = false;
    // an operation runs, on the queue's thread or on another one
    bool isRunning VEXIM_GUARDED_BY(mutex) = false;
    bool closed VEXIM_GUARDED_BY(mutex) = false;  // no more operations will come
    bool stopped VEXIM_GUARDED_BY(mutex) =
        false;  // the process exits: remaining operations do not run

    /// What to do for the thread after the lock is released.
    struct Call {
        bool starts = false;
        bool wakes = false;
    };
    Call callForThread() VEXIM_REQUIRES(mutex) {
        if (isRunning) return {};  // whoever runs it checks for more
        return {.starts = !pending.empty() && !std::exchange(threadRuns, true),
                .wakes = std::exchange(threadWaits, false)};
    }

    void make(Call call) {
        if (call.wakes) arrived.notifyOne();
        if (!call.starts) return;
        LibraryThreads::start(
            name, LibraryThreads::AtExit::Leave, [self = shared_from_this()] { self->run(); },
            [self = shared_from_this()] { self->stop(); });
    }

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
            // Its own last batch is done; an operation on another thread reports its end itself.
            if (!batch.empty()) isRunning = false;
            batch.clear();
            while ((isRunning || (pending.empty() && !closed)) && !stopped) {
                threadWaits = true;
                arrived.wait(mutex);
            }
            if (stopped || pending.empty()) return;
            batch.swap(pending);
            isRunning = true;
        }
        for (auto& operation : batch) {
            if (isStopped()) return;
            operation();
            operation = nullptr;
        }
    }
}

std::shared_ptr<OperationQueue> OperationQueue::create(std::string name) {
    return std::shared_ptr<OperationQueue>(new OperationQueue(std::move(name)));
}

OperationQueue::OperationQueue(std::string name)
    : state_(std::make_shared<State>(std::move(name))) {}

OperationQueue::~OperationQueue() {
    const MutexLock lock(state_->mutex);
    state_->closed = true;
    state_->arrived.notifyOne();
}

void OperationQueue::addOperation(Operation operation) {
    // the operation may release the queue before this function returns
    const auto state = state_;
    State::Call call;
    {
        const MutexLock lock(state->mutex);
        state->pending.push_back(std::move(operation));
        call = state->callForThread();
    }
    state->make(call);
}

void OperationQueue::runOrAdd(Operation operation) {
    const auto state = state_;  // as above
    {
        const MutexLock lock(state->mutex);
        if (state->isRunning || !state->pending.empty() || state->stopped) {
            state->pending.push_back(std::move(operation));
            return;  // it runs after the earlier ones
        }
        state->isRunning = true;
    }
    const auto* const outer = std::exchange(currentQueue, state.get());
    operation();
    operation = nullptr;
    currentQueue = outer;
    State::Call call;
    {
        const MutexLock lock(state->mutex);
        state->isRunning = false;
        if (!state->pending.empty() || state->closed) call = state->callForThread();
    }
    state->make(call);
}

bool OperationQueue::isCurrent() const noexcept { return currentQueue == state_.get(); }

}  // namespace vexim
