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
/// For the library's exit hook: from now on `sync` returns false, and calls of it that are waiting
/// return false as well.
VEXIM_EXPORT void endMainQueue() noexcept;
/// For the library's long deliveries: queues `step`, which runs again and again until it returns
/// false. It keeps its place in the queue: nothing that was queued later runs before it is done. A
/// step should end when `isTurnOver()` is true. A step that runs the queue is called recursively.
/// Call from any thread.
VEXIM_EXPORT void asyncSteps(std::function<bool()> step);
/// Whether the current turn has used up its time. Main thread only.
VEXIM_EXPORT bool isTurnOver() noexcept;
}  // namespace detail

/// The main queue. Completions, progress, notifications and delegate calls run here, one at a time,
/// in order.
///
/// The thread that runs it is the main thread. Until a thread has run it, that is the first thread
/// of the process. Run it with `run` or `runUntil`, or from another event loop: `VexIMLib/Loops/`
/// has adapters for asio, GLib and Qt. Any other loop polls `fileDescriptor()` for at most
/// `pollTimeout()` and then calls `turn()`. A loop that cannot poll sets a wake function.
///
///     vexim::MainQueue::shared().runUntil([&] { return done; }, std::chrono::seconds(10));
class VEXIM_EXPORT MainQueue {
public:
    /// A function for the queue; an empty one is skipped.
    using Function = std::function<void()>;

    /// The main queue of the process. It is never destroyed. Call from any thread.
    static MainQueue& shared();
    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;

    /// Queues `function`. It runs on the main thread, after everything queued before it. Call from
    /// any thread.
    void async(Function function);
    /// Queues `function` when `delay` has passed by `Clock::shared()`. Functions that are due at
    /// the same time run in the order of the calls. Call from any thread.
    void after(std::chrono::nanoseconds delay, Function function);
    /// Runs `function` on the main thread and waits until it has run. On the main thread it runs at
    /// once. Returns false, without running it, once the process is exiting. An exception from
    /// `function` is rethrown here.
    bool sync(const Function& function);

    /// Runs the queue until `quit()`. The calling thread becomes the main thread.
    void run();
    /// Makes the innermost `run` or `runUntil` return. Does nothing if none is running. Call from
    /// any thread.
    void quit();
    /// Runs the queue until `predicate` is true (checked after every function), `quit()` is called
    /// or `timeout` has passed. The timeout is in real time, whatever clock is set. Returns the
    /// last value of the predicate.
    bool runUntil(const std::function<bool()>& predicate, std::chrono::nanoseconds timeout);
    /// Runs the functions that are queued or due now, however long that takes, but not those that
    /// they add. Returns how many ran. An exception from a function passes through, and the queue
    /// stays intact. It may be called from inside a function that it runs.
    std::size_t drain();
    /// For an event loop: like `drain`, but functions that have not started when `turnLimit()` has
    /// passed stay in the queue, in order. The loop is then woken again, so it can draw and handle
    /// input in between. Returns whether something is left.
    bool turn();
    /// How long one turn may take: 4 ms unless set. `run` and `runUntil` use the same limit when
    /// many events arrive. A function that takes longer is not interrupted. 0 means one function
    /// per turn. Set it on the main thread.
    std::chrono::nanoseconds turnLimit() const;
    void setTurnLimit(std::chrono::nanoseconds limit);

    /// When the next delayed function is due; nullopt if there is none, and now if something is
    /// queued.
    std::optional<Clock::TimePoint> nextDeadline() const;
    /// Sets a function that is called, on any thread, when the queue gets something to run or an
    /// earlier deadline. It must be quick. An empty one removes it.
    void setWake(Function wake);
    /// A descriptor that becomes readable when the queue gets something to run or an earlier
    /// deadline, until the next `turn()`. It is made by the first call, on any thread. It belongs
    /// to the queue: do not read, write or close it. Throws `std::system_error` if the process has
    /// no descriptors left.
    int fileDescriptor();
    /// The timeout for `poll`: milliseconds until `nextDeadline()`, rounded up; 0 if something can
    /// run now, -1 if there is no deadline.
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
