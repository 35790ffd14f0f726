#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "VexIMLib/Foundation/Clock.h"

namespace vexim {

/// The one thread on which all network traffic runs: URL loading and every live connection. Nothing
/// on it blocks.
///
/// Made on first use and never destroyed; one exit hook, registered after OpenSSL's so that it runs
/// before it, stops the library's threads. After it, nothing posted runs any more.
class NetworkThread {
public:
    using Function = std::function<void()>;

    static NetworkThread& shared();
    NetworkThread(const NetworkThread&) = delete;
    NetworkThread& operator=(const NetworkThread&) = delete;

    /// Queues `function`; it runs on the network thread after everything posted before. What is
    /// posted while the thread is busy crosses in one batch. Call from any thread; `function` may
    /// not throw.
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
    ~NetworkTimer();  // a pending call does not come any more

    /// Calls `function` on the network thread once `delay` of real time has passed; replaces what
    /// was pending.
    void start(std::chrono::nanoseconds delay, NetworkThread::Function function);
    /// The same when the shared clock says `deadline`, which a hand-turned one may do at any
    /// moment.
    void startAt(Clock::TimePoint deadline, NetworkThread::Function function);
    /// After it returns, the pending call does not come any more.
    void cancel();
    bool isPending() const noexcept;

private:
    struct Impl;
    std::shared_ptr<Impl> impl_;
};

}  // namespace vexim
