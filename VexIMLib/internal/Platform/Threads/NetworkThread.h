#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "VexIMLib/Foundation/Clock.h"

namespace vexim {

/// The one thread on which all network traffic runs: URL loading and every live connection. Nothing
/// on it blocks.
///
/// Made on first use and never destroyed. One exit hook, registered after OpenSSL's so that it runs
/// first, stops the library's threads. Nothing posted afterwards runs.
class NetworkThread {
public:
    using Function = std::function<void()>;

    static NetworkThread& shared();
    NetworkThread(const NetworkThread&) = delete;
    NetworkThread& operator=(const NetworkThread&) = delete;

    /// Queues `function`, which runs on the network thread after everything posted before.
    /// Functions posted while the thread is busy are passed on in one batch. Call from any thread;
    /// `function` must not throw.
    void post(Function function);
    bool isCurrent() const noexcept;

private:
    NetworkThread();
    ~NetworkThread();
    friend class NetworkThreadAsio;
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// A one-shot timer on the network thread; made, used and destroyed on that thread.
class NetworkTimer {
public:
    NetworkTimer();
    NetworkTimer(const NetworkTimer&) = delete;
    NetworkTimer& operator=(const NetworkTimer&) = delete;
    ~NetworkTimer();  // cancels the pending call

    /// Calls `function` on the network thread after `delay` of real time. Replaces the pending
    /// call.
    void start(std::chrono::nanoseconds delay, NetworkThread::Function function);
    /// The same, at `deadline` by the shared clock, which a test can move forward at any moment.
    void startAt(Clock::TimePoint deadline, NetworkThread::Function function);
    /// Cancels the pending call.
    void cancel();
    bool isPending() const noexcept;

private:
    struct Impl;
    std::shared_ptr<Impl> impl_;
};

}  // namespace vexim
