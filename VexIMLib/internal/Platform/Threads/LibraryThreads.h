#pragma once

#include <functional>
#include <string>

namespace vexim {

/// The library's own threads and how they end with the process.
///
/// The first thread registers the process's one exit hook, after OpenSSL has registered its own, so
/// that no thread is inside OpenSSL when that goes away. The hook wakes whoever waits for the main
/// queue, interrupts the threads, and waits for them.
namespace LibraryThreads {

/// How long the hook waits for a thread that was interrupted.
enum class AtExit {
    // only briefly: it may be stuck in an application's code, which must not hold up the exit
    Leave,
    // until it has ended: it blocks on nothing, but computes inside OpenSSL, for long where the
    // machine is slow or busy
    Await,
};

/// Runs `body` on a detached thread called `name` that takes no signals. `interrupt` is called at
/// exit, on the exiting thread; it must be quick and make `body` return soon. False when nothing
/// was started: the process is exiting, or the system has no thread to give.
bool start(const std::string& name, AtExit atExit, std::function<void()> body,
           std::function<void()> interrupt);

/// The same for a thread that nobody can interrupt; exit does not wait for it. False as above.
bool startForgotten(const std::string& name, std::function<void()> body);

bool processIsExiting() noexcept;

}  // namespace LibraryThreads
}  // namespace vexim
