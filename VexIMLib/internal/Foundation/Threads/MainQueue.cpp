#include "VexIMLib/Foundation/MainQueue.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <deque>
#include <exception>
#include <limits>
#include <queue>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/UntoldError.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim {

namespace {

using Function = MainQueue::Function;

using SteadyClock = std::chrono::steady_clock;
using Step = std::function<bool()>;

/// A function in line, or a step, which stays there until it is through. The number orders it among
/// all, so that a drain can tell what was there when it began.
struct Queued {
    std::uint64_t number = 0;
    Function function;
    std::shared_ptr<Step> step;

    explicit operator bool() const noexcept { return function || step; }
};

struct Delayed {
    Clock::TimePoint deadline;
    std::uint64_t number;
    mutable Function function;  // moved out of the heap's const top

    friend bool operator<(const Delayed& a, const Delayed& b) {  // the earliest is the heap's top
        return a.deadline != b.deadline ? a.deadline > b.deadline : a.number > b.number;
    }
};

/// A `sync` that is being waited for.
struct Waiter {
    enum class State { Waiting, Running, Done, Abandoned };
    State state = State::Waiting;
    std::exception_ptr failure;
};

/// What a polling host waits for: a pipe, which every system has, with a byte in it. Made once and
/// kept for good.
class WakePipe {
public:
    /// To be called with the queue's mutex; from then on `tell` writes.
    int open() {
        if (reading_ >= 0) return reading_;
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0)
            throw std::system_error(errno, std::generic_category(), "pipe");
        for (const int end : ends) {
            ::fcntl(end, F_SETFD, FD_CLOEXEC);
            ::fcntl(end, F_SETFL, O_NONBLOCK);
        }
        reading_ = ends[0];
        writing_ = ends[1];
        tell();  // the host drains once at its start
        return reading_;
    }
    /// Any thread. A full pipe needs no further byte.
    void tell() noexcept {
        const int end = writing_;
        if (end < 0) return;
        while (::write(end, "", 1) < 0 && errno == EINTR) continue;
        told_ = true;  // after the byte: whoever sees it finds one
    }
    /// To be called with the queue's mutex, so that no byte for what is queued later is taken
    /// along.
    void clear() noexcept {
        if (!told_.exchange(false)) return;
        std::array<char, 64> bytes;
        while (::read(reading_, bytes.data(), bytes.size()) > 0) continue;
    }

private:
    int reading_ = -1;
    std::atomic<int> writing_{-1};
    std::atomic<bool> told_{false};
};

bool isFirstThreadOfProcess() { return static_cast<pid_t>(syscall(SYS_gettid)) == getpid(); }

}  // namespace

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
    // what runs there now never comes back
    bool exitingOnMainThread VEXIM_GUARDED_BY(mutex) = false;
    // the host was told, and has not drained since
    bool wakePending VEXIM_GUARDED_BY(mutex) = false;

    WakePipe pipe;

    // held while the wake function runs, so that setWake returns only when the old one is at rest
    Mutex wakeMutex;
    Function wake VEXIM_GUARDED_BY(wakeMutex);

    std::atomic<std::thread::id> mainThread{};  // none until a thread has run the queue

    // Main thread only.
    std::chrono::nanoseconds turnLimit = std::chrono::milliseconds(4);
    SteadyClock::time_point turnEnd = SteadyClock::time_point::max();  // of the innermost turn

    void becomeMainThread() {
        mainThread.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }

    void push(Function function) VEXIM_REQUIRES(mutex) {
        queue.push_back({nextNumber++, std::move(function), nullptr});
    }

    /// Lines up the delayed functions whose time has come.
    void lineUpDue(Clock::TimePoint now) VEXIM_REQUIRES(mutex) {
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

    /// To be called without the mutex after something was added.
    void tellWaiters(bool someoneWaits, bool tellHost) {
        if (someoneWaits) changed.notifyAll();
        if (!tellHost) return;
        pipe.tell();
        MutexLock lock(wakeMutex);
        if (wake) wake();
    }

    void append(Queued queued) {
        bool someoneWaits = false;
        bool tellHost = false;
        {
            MutexLock lock(mutex);
            queued.number = nextNumber++;
            queue.push_back(std::move(queued));
            someoneWaits = waiting > 0;
            tellHost = !std::exchange(wakePending, true);
        }
        tellWaiters(someoneWaits, tellHost);
    }

    /// The first in line.
    Queued takeFront() VEXIM_REQUIRES(mutex) {
        if (queue.front().step) return queue.front();
        Queued next = std::move(queue.front());
        queue.pop_front();
        return next;
    }

    /// The next one numbered below `end`, if any.
    Queued take(std::uint64_t end) {
        MutexLock lock(mutex);
        if (queue.empty() || queue.front().number >= end) return {};
        return takeFront();
    }

    void call(const Queued& next) {
        if (next.function) return next.function();
        if ((*next.step)()) return;
        MutexLock lock(mutex);
        // A loop that ran inside it may have found it through.
        if (!queue.empty() && queue.front().number == next.number) queue.pop_front();
    }

    /// Runs what is queued or due now, and answers how many that were; none begins after `until`.
    std::size_t runTurn(SteadyClock::time_point until, bool& isRestLeft) {
        struct Turn {  // also when a function throws
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
            lineUpDue(now);
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
            tellRest();
            throw;
        }
        isRestLeft = tellRest();
        return count;
    }

    /// Answers whether something is left.
    bool tellRest() {
        bool isLeft = false;
        bool tellHost = false;
        {
            MutexLock lock(mutex);
            isLeft = !queue.empty();
            tellHost = isLeft && !std::exchange(wakePending, true);
        }
        tellWaiters(false, tellHost);
        return isLeft;
    }

    SteadyClock::time_point endOfTurn() const {
        const auto now = SteadyClock::now();
        return turnLimit > SteadyClock::time_point::max() - now ? SteadyClock::time_point::max()
                                                                : now + turnLimit;
    }
};

MainQueue::MainQueue() : impl_(std::make_unique<Impl>()) {}
MainQueue::~MainQueue() = default;

MainQueue& MainQueue::shared() {
    // other threads may still post while the process exits
    static MainQueue& queue = *new MainQueue;
    return queue;
}

void MainQueue::async(Function function) {
    if (function) impl_->append({0, std::move(function), nullptr});
}

void detail::asyncSteps(std::function<bool()> step) {
    MainQueue::shared().impl_->append({0, nullptr, std::make_shared<Step>(std::move(step))});
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
    if (earlier) impl_->tellWaiters(true, true);
}

bool MainQueue::sync(const Function& function) {
    if (isMainThread()) {
        function();
        return true;
    }
    auto waiter = std::make_shared<Waiter>();
    bool tellHost = false;
    {
        MutexLock lock(impl_->mutex);
        if (impl_->exiting) return false;
        // the caller, and so `function`, stays until this has run or was abandoned
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
        tellHost = !std::exchange(impl_->wakePending, true);
    }
    impl_->tellWaiters(true, tellHost);

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
    const UntoldError none(nullptr);  // what a callback turns here is not its own completion
    const auto began = SteadyClock::now();
    const auto end = timeout > SteadyClock::time_point::max() - began
                         ? SteadyClock::time_point::max()
                         : began + timeout;

    struct Level {  // leaves the depth right when a function throws
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
            // asked only when something waits for a time; let go without the lock
            std::shared_ptr<Clock> clock;
            MutexLock lock(impl_->mutex);
            if (std::exchange(impl_->quitting, false)) return predicate();
            impl_->wakePending = false;
            if (!impl_->delayed.empty()) {
                clock = Clock::shared();
                impl_->lineUpDue(clock->now());
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
        next = {};  // what it held goes before the predicate looks
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
    return impl_->pipe.open();
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
    // the new host has not been told of what is queued; it drains once at its start
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
