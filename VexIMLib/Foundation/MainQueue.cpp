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

#include "VexIMLib/Foundation/ThreadSafety.h"
#include "VexIMLib/Foundation/UntoldError.h"

namespace vexim {

namespace {

using Function = MainQueue::Function;

/// A function in line. The number orders it among all, so that a drain can tell what was there when it began.
struct Queued {
    std::uint64_t number;
    Function function;
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

/// What a polling host waits for: a pipe, which every system has, with a byte in it. Made once and kept for good.
class WakePipe {
public:
    /// To be called with the queue's mutex; from then on `tell` writes.
    int open() {
        if (reading_ >= 0) return reading_;
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
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
    /// To be called with the queue's mutex, so that no byte for what is queued later is taken along.
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
    bool exitingOnMainThread VEXIM_GUARDED_BY(mutex) = false;  // what runs there now never comes back
    bool wakePending VEXIM_GUARDED_BY(mutex) = false;          // the host was told, and has not drained since

    WakePipe pipe;

    Mutex wakeMutex;  // held while the wake function runs, so that setWake returns only when the old one is at rest
    Function wake VEXIM_GUARDED_BY(wakeMutex);

    std::atomic<std::thread::id> mainThread{};  // none until a thread has run the queue

    void becomeMainThread() { mainThread.store(std::this_thread::get_id(), std::memory_order_relaxed); }

    void push(Function function) VEXIM_REQUIRES(mutex) { queue.push_back({nextNumber++, std::move(function)}); }

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

    /// The next function numbered below `end`, if any.
    Function take(std::uint64_t end) {
        MutexLock lock(mutex);
        if (queue.empty() || queue.front().number >= end) return nullptr;
        Function function = std::move(queue.front().function);
        queue.pop_front();
        return function;
    }
};

MainQueue::MainQueue() : impl_(std::make_unique<Impl>()) {}
MainQueue::~MainQueue() = default;

MainQueue& MainQueue::shared() {
    static MainQueue& queue = *new MainQueue;  // other threads may still post while the process exits
    return queue;
}

void MainQueue::async(Function function) {
    if (!function) return;
    bool someoneWaits = false;
    bool tellHost = false;
    {
        MutexLock lock(impl_->mutex);
        impl_->push(std::move(function));
        someoneWaits = impl_->waiting > 0;
        tellHost = !std::exchange(impl_->wakePending, true);
    }
    impl_->tellWaiters(someoneWaits, tellHost);
}

void MainQueue::after(std::chrono::nanoseconds delay, Function function) {
    if (!function) return;
    const auto now = Clock::shared()->now();
    const auto deadline = delay > Clock::TimePoint::max() - now ? Clock::TimePoint::max() : now + delay;
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
        impl_->push([this, waiter, &function] {  // the caller, and so `function`, stays until this has run or was abandoned
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
        if (impl_->exiting && (waiter->state == Waiter::State::Waiting || impl_->exitingOnMainThread)) {
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
    using SteadyClock = std::chrono::steady_clock;
    impl_->becomeMainThread();
    const UntoldError none(nullptr);  // what a callback turns here is not its own completion
    const auto began = SteadyClock::now();
    const auto end = timeout > SteadyClock::time_point::max() - began ? SteadyClock::time_point::max() : began + timeout;

    struct Level {  // leaves the depth right when a function throws
        explicit Level(Impl& owner) : impl(owner) {
            MutexLock lock(impl.mutex);
            ++impl.depth;
        }
        ~Level() {
            MutexLock lock(impl.mutex);
            --impl.depth;
        }
        Impl& impl;
    } level(*impl_);

    while (!predicate()) {
        Function function;
        {
            std::shared_ptr<Clock> clock;  // asked only when something waits for a time; let go without the lock
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
            function = std::move(impl_->queue.front().function);
            impl_->queue.pop_front();
        }
        function();
        function = nullptr;  // what it held goes before the predicate looks
        if (SteadyClock::now() >= end) return predicate();
    }
    return true;
}

std::size_t MainQueue::drain() {
    impl_->becomeMainThread();
    const UntoldError none(nullptr);
    std::uint64_t end = 0;
    {
        const auto now = Clock::shared()->now();
        MutexLock lock(impl_->mutex);
        impl_->wakePending = false;
        impl_->pipe.clear();
        impl_->lineUpDue(now);
        end = impl_->nextNumber;
    }
    std::size_t count = 0;
    try {
        while (auto function = impl_->take(end)) {
            ++count;
            function();
        }
    } catch (...) {
        bool rest = false;
        {
            MutexLock lock(impl_->mutex);
            rest = !impl_->queue.empty() && !std::exchange(impl_->wakePending, true);
        }
        impl_->tellWaiters(false, rest);  // a host that waits for the wake function comes back for what is left
        throw;
    }
    return count;
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
    impl_->wakePending = false;  // the new host has not been told of what is queued; it drains once at its start
}

bool MainQueue::isMainThread() const {
    const auto main = impl_->mainThread.load(std::memory_order_relaxed);
    return main == std::thread::id() ? isFirstThreadOfProcess() : main == std::this_thread::get_id();
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
