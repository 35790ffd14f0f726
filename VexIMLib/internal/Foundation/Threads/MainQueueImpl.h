#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <exception>
#include <queue>
#include <thread>
#include <utility>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Foundation/Threads/MainQueueEntries.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/Foundation/Threads/WakePipe.h"

namespace vexim {

using SteadyClock = std::chrono::steady_clock;

/// The queue's state, and how a turn works.
struct MainQueue::Impl {
    // Never held while a queued function, a predicate or the wake function runs.
    Mutex mutex;
    ConditionVariable changed;
    std::deque<Queued> queue VEXIM_GUARDED_BY(mutex);
    std::priority_queue<Delayed> delayed VEXIM_GUARDED_BY(mutex);
    std::uint64_t nextNumber VEXIM_GUARDED_BY(mutex) = 0;
    int depth VEXIM_GUARDED_BY(mutex) = 0;  // of nested run and runUntil
    bool quitting VEXIM_GUARDED_BY(mutex) = false;
    int waiting VEXIM_GUARDED_BY(mutex) = 0;  // threads that wait for `changed`
    bool exiting VEXIM_GUARDED_BY(mutex) = false;
    // the main thread itself exits, so what it is running never returns
    bool exitingOnMainThread VEXIM_GUARDED_BY(mutex) = false;
    // the host was woken and has not drained since
    bool wakePending VEXIM_GUARDED_BY(mutex) = false;

    WakePipe pipe;

    // held while the wake function runs, so that setWake returns only when the old one has finished
    Mutex wakeMutex;
    Function wake VEXIM_GUARDED_BY(wakeMutex);

    std::atomic<std::thread::id> mainThread{};  // the default until a thread has run the queue

    // Main thread only.
    std::chrono::nanoseconds turnLimit = std::chrono::milliseconds(4);
    SteadyClock::time_point turnEnd = SteadyClock::time_point::max();  // of the innermost turn

    void becomeMainThread() {
        mainThread.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }

    void push(Function function) VEXIM_REQUIRES(mutex) {
        queue.push_back({nextNumber++, std::move(function), nullptr});
    }

    /// Moves delayed functions that are due into the queue.
    void queueDue(Clock::TimePoint now) VEXIM_REQUIRES(mutex) {
        while (!delayed.empty() && delayed.top().deadline <= now) {
            push(std::move(delayed.top().function));
            delayed.pop();
        }
    }

    /// Waits until something changed, or until a time.
    void wait(std::chrono::steady_clock::time_point until) VEXIM_REQUIRES(mutex) {
        ++waiting;
        if (until == std::chrono::steady_clock::time_point::max()) {
            changed.wait(mutex);
        } else {
            changed.waitUntil(mutex, until);
        }
        --waiting;
    }

    /// Call it without the mutex, after something was added.
    void wakeWaiters(bool someoneWaits, bool wakesHost) {
        if (someoneWaits) changed.notifyAll();
        if (!wakesHost) return;
        pipe.notify();
        MutexLock lock(wakeMutex);
        if (wake) wake();
    }

    void append(Queued queued) {
        bool someoneWaits = false;
        bool wakesHost = false;
        {
            MutexLock lock(mutex);
            queued.number = nextNumber++;
            queue.push_back(std::move(queued));
            someoneWaits = waiting > 0;
            wakesHost = !std::exchange(wakePending, true);
        }
        wakeWaiters(someoneWaits, wakesHost);
    }

    /// Removes the first function of the queue.
    Queued takeFront() VEXIM_REQUIRES(mutex) {
        if (queue.front().step) return queue.front();
        Queued next = std::move(queue.front());
        queue.pop_front();
        return next;
    }

    /// The next function with a number below `end`, if any.
    Queued take(std::uint64_t end) {
        MutexLock lock(mutex);
        if (queue.empty() || queue.front().number >= end) return {};
        return takeFront();
    }

    void call(const Queued& next) {
        if (next.function) return next.function();
        if ((*next.step)()) return;
        MutexLock lock(mutex);
        // A nested loop may have finished this step.
        if (!queue.empty() && queue.front().number == next.number) queue.pop_front();
    }

    /// Runs the functions that are queued or due now, and returns their number. None starts after
    /// `until`.
    std::size_t runTurn(SteadyClock::time_point until, bool& isRestLeft) {
        struct Turn {  // even if a function throws
            Turn(Impl& owner, SteadyClock::time_point end)
                : impl(owner),
                  outer(std::exchange(owner.turnEnd, end)) {}
            ~Turn() { impl.turnEnd = outer; }
            Impl& impl;
            const SteadyClock::time_point outer;
        } turn(*this, until);
        std::uint64_t end = 0;
        {
            const auto now = Clock::shared()->now();
            MutexLock lock(mutex);
            wakePending = false;
            pipe.clear();
            queueDue(now);
            end = nextNumber;
        }
        std::size_t count = 0;
        try {
            while (const auto next = take(end)) {
                ++count;
                call(next);
                if (until != SteadyClock::time_point::max() && SteadyClock::now() >= until) break;
            }
        } catch (...) {
            wakeHostForRest();
            throw;
        }
        isRestLeft = wakeHostForRest();
        return count;
    }

    /// Wakes the host again if something is left, and returns whether it is.
    bool wakeHostForRest() {
        bool isLeft = false;
        bool wakesHost = false;
        {
            MutexLock lock(mutex);
            isLeft = !queue.empty();
            wakesHost = isLeft && !std::exchange(wakePending, true);
        }
        wakeWaiters(false, wakesHost);
        return isLeft;
    }

    SteadyClock::time_point endOfTurn() const {
        const auto now = SteadyClock::now();
        return turnLimit > SteadyClock::time_point::max() - now ? SteadyClock::time_point::max()
                                                                : now + turnLimit;
    }
};

}  // namespace vexim
