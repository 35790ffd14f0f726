#include "VexIMLib/Foundation/MainQueue.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>
#include <utility>

#include "VexIMLib/Foundation/UntoldError.h"
#include "VexIMLib/internal/Foundation/Threads/MainQueueImpl.h"
#include "VexIMLib/internal/Foundation/Threads/MainQueueLength.h"

namespace vexim {

namespace {

/// A `sync` that is being waited for.
struct Waiter {
    enum class State { Waiting, Running, Done, Abandoned };
    State state = State::Waiting;
    std::exception_ptr failure;
};

// Only the metrics ask for it, so it is not part of the public class.
std::size_t (*lengthOfShared)() = nullptr;

bool isFirstThreadOfProcess() { return static_cast<pid_t>(syscall(SYS_gettid)) == getpid(); }

}  // namespace

MainQueue::MainQueue() : impl_(std::make_unique<Impl>()) {
    lengthOfShared = [] {
        auto& impl = *shared().impl_;
        const MutexLock lock(impl.mutex);
        return impl.queue.size();
    };
}
MainQueue::~MainQueue() = default;

MainQueue& MainQueue::shared() {
    // other threads may still post while the process exits
    static MainQueue& queue = *new MainQueue;
    return queue;
}

void MainQueue::async(Function function) {
    if (function) impl_->append({0, std::move(function), nullptr});
}

std::size_t detail::mainQueueLength() {
    MainQueue::shared();  // sets `lengthOfShared`
    return lengthOfShared();
}

void detail::asyncSteps(std::function<bool()> step) {
    MainQueue::shared().impl_->append(
        {0, nullptr, std::make_shared<std::function<bool()>>(std::move(step))});
}

bool detail::isTurnOver() noexcept {
    const auto end = MainQueue::shared().impl_->turnEnd;
    return end != SteadyClock::time_point::max() && SteadyClock::now() >= end;
}

void MainQueue::after(std::chrono::nanoseconds delay, Function function) {
    if (!function) return;
    const auto now = Clock::shared()->now();
    const auto deadline =
        delay > Clock::TimePoint::max() - now ? Clock::TimePoint::max() : now + delay;
    bool earlier = false;
    {
        MutexLock lock(impl_->mutex);
        earlier = impl_->delayed.empty() || deadline < impl_->delayed.top().deadline;
        impl_->delayed.push({deadline, impl_->nextNumber++, std::move(function)});
    }
    if (earlier) impl_->wakeWaiters(true, true);
}

bool MainQueue::sync(const Function& function) {
    if (isMainThread()) {
        function();
        return true;
    }
    auto waiter = std::make_shared<Waiter>();
    bool wakesHost = false;
    {
        MutexLock lock(impl_->mutex);
        if (impl_->exiting) return false;
        // `function` stays valid: the caller waits until this has run or was abandoned
        impl_->push([this, waiter, &function] {
            {
                MutexLock started(impl_->mutex);
                if (waiter->state == Waiter::State::Abandoned) return;
                waiter->state = Waiter::State::Running;
            }
            try {
                function();
            } catch (...) {
                waiter->failure = std::current_exception();
            }
            {
                MutexLock finished(impl_->mutex);
                waiter->state = Waiter::State::Done;
            }
            impl_->changed.notifyAll();
        });
        wakesHost = !std::exchange(impl_->wakePending, true);
    }
    impl_->wakeWaiters(true, wakesHost);

    MutexLock lock(impl_->mutex);
    while (waiter->state != Waiter::State::Done) {
        if (impl_->exiting &&
            (waiter->state == Waiter::State::Waiting || impl_->exitingOnMainThread)) {
            waiter->state = Waiter::State::Abandoned;
            return false;
        }
        impl_->wait(std::chrono::steady_clock::time_point::max());
    }
    if (waiter->failure) std::rethrow_exception(waiter->failure);
    return true;
}

void MainQueue::run() {
    runUntil([] { return false; }, std::chrono::nanoseconds::max());
}

void MainQueue::quit() {
    {
        MutexLock lock(impl_->mutex);
        if (impl_->depth == 0) return;
        impl_->quitting = true;
    }
    impl_->changed.notifyAll();
}

bool MainQueue::runUntil(const std::function<bool()>& predicate, std::chrono::nanoseconds timeout) {
    impl_->becomeMainThread();
    const UntoldError none(nullptr);  // callbacks that run here do not inherit the caller's error
    const auto began = SteadyClock::now();
    const auto end = timeout > SteadyClock::time_point::max() - began
                         ? SteadyClock::time_point::max()
                         : began + timeout;

    struct Level {  // restores the depth even if a function throws
        explicit Level(Impl& owner) : impl(owner), outerEnd(owner.turnEnd) {
            MutexLock lock(impl.mutex);
            ++impl.depth;
        }
        ~Level() {
            impl.turnEnd = outerEnd;
            MutexLock lock(impl.mutex);
            --impl.depth;
        }
        Impl& impl;
        const SteadyClock::time_point outerEnd;
    } level(*impl_);

    while (!predicate()) {
        Queued next;
        {
            // fetched only if something is delayed; released without the lock
            std::shared_ptr<Clock> clock;
            MutexLock lock(impl_->mutex);
            if (std::exchange(impl_->quitting, false)) return predicate();
            impl_->wakePending = false;
            if (!impl_->delayed.empty()) {
                clock = Clock::shared();
                impl_->queueDue(clock->now());
            }
            if (impl_->queue.empty()) {
                const auto now = SteadyClock::now();
                if (now >= end) return false;
                auto until = end;
                if (!impl_->delayed.empty()) {
                    const auto wait = impl_->delayed.top().deadline - clock->now();
                    if (wait < until - now) until = now + wait;
                }
                impl_->wait(until);
                continue;
            }
            next = impl_->takeFront();
        }
        if (next.step) impl_->turnEnd = impl_->endOfTurn();
        impl_->call(next);
        next = {};  // destroys what it held, before the predicate is checked
        if (SteadyClock::now() >= end) return predicate();
    }
    return true;
}

std::size_t MainQueue::drain() {
    impl_->becomeMainThread();
    const UntoldError none(nullptr);
    bool isRestLeft = false;
    return impl_->runTurn(SteadyClock::time_point::max(), isRestLeft);
}

bool MainQueue::turn() {
    impl_->becomeMainThread();
    const UntoldError none(nullptr);
    bool isRestLeft = false;
    impl_->runTurn(impl_->endOfTurn(), isRestLeft);
    return isRestLeft;
}

std::chrono::nanoseconds MainQueue::turnLimit() const { return impl_->turnLimit; }

void MainQueue::setTurnLimit(std::chrono::nanoseconds limit) {
    impl_->turnLimit = std::max(limit, std::chrono::nanoseconds(0));
}

std::optional<Clock::TimePoint> MainQueue::nextDeadline() const {
    const auto now = Clock::shared()->now();
    MutexLock lock(impl_->mutex);
    if (!impl_->queue.empty()) return now;
    if (impl_->delayed.empty()) return std::nullopt;
    return impl_->delayed.top().deadline;
}

int MainQueue::fileDescriptor() {
    MutexLock lock(impl_->mutex);
    const bool isFirst = !impl_->pipe.isOpen();
    const auto descriptor = impl_->pipe.open();
    if (!descriptor) throw std::system_error(errno, std::generic_category(), "pipe");
    if (isFirst) impl_->pipe.notify();  // the host drains once at its start
    return *descriptor;
}

int MainQueue::pollTimeout() const {
    const auto deadline = nextDeadline();
    if (!deadline) return -1;
    const auto now = Clock::shared()->now();
    if (*deadline <= now) return 0;
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(*deadline - now).count();
    return static_cast<int>(std::min<std::int64_t>(wait, std::numeric_limits<int>::max()));
}

void MainQueue::setWake(Function wake) {
    {
        MutexLock lock(impl_->wakeMutex);
        impl_->wake.swap(wake);
    }
    MutexLock lock(impl_->mutex);
    // nobody has told the new host what is queued; it drains once at its start
    impl_->wakePending = false;
}

bool MainQueue::isMainThread() const {
    const auto main = impl_->mainThread.load(std::memory_order_relaxed);
    return main == std::thread::id() ? isFirstThreadOfProcess()
                                     : main == std::this_thread::get_id();
}

namespace detail {

void endMainQueue() noexcept {
    auto& impl = *MainQueue::shared().impl_;
    const bool isMain = MainQueue::shared().isMainThread();
    {
        MutexLock lock(impl.mutex);
        impl.exiting = true;
        impl.exitingOnMainThread = isMain;
    }
    impl.changed.notifyAll();
}

}  // namespace detail

}  // namespace vexim
