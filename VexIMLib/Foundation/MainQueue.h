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
/// For the library's exit hook: from here on `sync` answers false, also where it is being waited
/// for.
VEXIM_EXPORT void endMainQueue() noexcept;
/// For the library's long deliveries: queues `step`, which runs again and again until it answers
/// false and keeps its place in line meanwhile: nothing that was queued later overtakes it. A step
/// should end when `isTurnOver()`. One that runs the queue itself is called from inside itself.
/// Call from any thread.
VEXIM_EXPORT void asyncSteps(std::function<bool()> step);
/// Whether the running step has had its time. Main thread.
VEXIM_EXPORT bool isTurnOver() noexcept;
}  // namespace detail

/// The main queue: completions, progress, notifications and delegate calls arrive here, one at a
/// time, in order.
///
/// The thread that runs it is the main thread; before any has, that is the process's first thread.
/// Either let it run (`run`, `runUntil`), or drive it from a host's loop: `VexIMLib/Loops/` has
/// adapters for asio, GLib and Qt. Any other loop polls `fileDescriptor()` for `pollTimeout()` at
/// most and then calls `turn()`; one that does not poll sets a wake function.
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

    /// Queues `function`; it runs on the main thread after everything queued before. Call from any
    /// thread.
    void async(Function function);
    /// Queues it once `delay` has passed by `Clock::shared()`; those of one deadline run in the
    /// order given.
    void after(std::chrono::nanoseconds delay, Function function);
    /// Runs `function` on the main thread and waits until it has run; on the main thread itself, in
    /// place. False, without running it, once the process is exiting. An exception from it is
    /// rethrown to the caller.
    bool sync(const Function& function);

    /// Runs what is queued and waits for more until `quit()`.
    void run();
    /// Makes the innermost `run` or `runUntil` return; does nothing when none is running. Call from
    /// any thread.
    void quit();
    /// Runs until `predicate` holds (asked after every function that ran), `quit()` was called or
    /// `timeout` (real time, whatever clock is set) has passed. Answers the predicate's last value.
    bool runUntil(const std::function<bool()>& predicate, std::chrono::nanoseconds timeout);
    /// Runs what is queued or due now, not what these add, and returns how many ran, however long
    /// that takes. An exception leaves it with the queue intact. May be called from inside a
    /// function that it runs.
    std::size_t drain();
    /// What a host's loop calls: as `drain`, but what has not begun when `turnLimit()` has passed
    /// stays in line, in its order, and the host is told again, so that its loop can draw and
    /// answer in between. Answers whether something is left.
    bool turn();
    /// How long one turn goes on: 4 ms unless set. Of a flood of events `run` and `runUntil`
    /// deliver as much in one go, too. One function that takes longer is not cut short. 0 is one
    /// function a turn. Set it on the main thread.
    std::chrono::nanoseconds turnLimit() const;
    void setTurnLimit(std::chrono::nanoseconds limit);

    /// When the next delayed function is due: nullopt when none is; now when something is queued.
    std::optional<Clock::TimePoint> nextDeadline() const;
    /// `wake` is called, on any thread, when the queue gets something to run or an earlier
    /// deadline. It must be quick.
    void setWake(Function wake);
    /// A descriptor that polls readable when the queue gets something to run or an earlier
    /// deadline, until the next `turn()`. Made at the first call, of any thread; it is the queue's
    /// own, not to be read, written or closed. Throws `std::system_error` when the process has no
    /// descriptors left.
    int fileDescriptor();
    /// How long to poll at most, as `poll` takes it: milliseconds until `nextDeadline()`, rounded
    /// up, 0 when something is to run now, -1 when no time is known.
    int pollTimeout() const;
    /// Whether the calling thread is the main thread.
    bool isMainThread() const;

private:
    MainQueue();
    ~MainQueue();
    friend void detail::endMainQueue() noexcept;
    friend void detail::asyncSteps(std::function<bool()>);
    friend bool detail::isTurnOver() noexcept;
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vexim
