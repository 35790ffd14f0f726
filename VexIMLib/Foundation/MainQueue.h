#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Export.h"

namespace vexim {

namespace detail {
/// For the library's exit hook: from here on `sync` answers false, also where it is being waited for.
VEXIM_EXPORT void endMainQueue() noexcept;
}  // namespace detail

/// The main queue: completions, progress, notifications and delegate calls arrive here, one at a time, in order.
///
/// The thread that runs it is the main thread; before any has, that is the process's first thread. Either let it run
/// (`run`, `runUntil`), or drive it from a host's loop: `VexIMLib/Loops/` has adapters for asio, GLib and Qt. Any other loop
/// polls `fileDescriptor()` for `pollTimeout()` at most and then calls `drain()`; one that does not poll sets a wake function.
///
///     vexim::MainQueue::shared().runUntil([&] { return done; }, std::chrono::seconds(10));
class VEXIM_EXPORT MainQueue {
public:
    /// What the queue runs; an empty one is passed over.
    using Function = std::function<void()>;

    /// The process's one main queue, never destroyed. Callable from any thread.
    static MainQueue& shared();
    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;

    /// Queues `function`; it runs on the main thread after everything queued before. Call from any thread.
    void async(Function function);
    /// Queues it once `delay` has passed by `Clock::shared()`; those of one deadline run in the order given.
    void after(std::chrono::nanoseconds delay, Function function);
    /// Runs `function` on the main thread and waits until it has run; on the main thread itself, in place.
    /// False, without running it, once the process is exiting. An exception from it is rethrown to the caller.
    bool sync(const Function& function);

    /// Runs what is queued and waits for more until `quit()`.
    void run();
    /// Makes the innermost `run` or `runUntil` return; does nothing when none is running. Call from any thread.
    void quit();
    /// Runs until `predicate` holds (asked after every function that ran), `quit()` was called or `timeout` (real
    /// time, whatever clock is set) has passed. Answers the predicate's last value.
    bool runUntil(const std::function<bool()>& predicate, std::chrono::nanoseconds timeout);
    /// Runs what is queued or due now, not what these add, and returns how many ran. An exception leaves it with the queue
    /// intact. May be called from inside a function that it runs.
    std::size_t drain();

    /// When the next delayed function is due: nullopt when none is; now when something is queued.
    std::optional<Clock::TimePoint> nextDeadline() const;
    /// `wake` is called, on any thread, when the queue gets something to run or an earlier deadline. It must be quick.
    void setWake(Function wake);
    /// A descriptor that polls readable when the queue gets something to run or an earlier deadline, until the next `drain()`.
    /// Made at the first call, of any thread; it is the queue's own, not to be read, written or closed. Throws
    /// `std::system_error` when the process has no descriptors left.
    int fileDescriptor();
    /// How long to poll at most, as `poll` takes it: milliseconds until `nextDeadline()`, rounded up, 0 when something is to
    /// run now, -1 when no time is known.
    int pollTimeout() const;
    /// Whether the calling thread is the main thread.
    bool isMainThread() const;

private:
    MainQueue();
    ~MainQueue();
    friend void detail::endMainQueue() noexcept;
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vexim
