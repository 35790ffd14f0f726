#pragma once

#include <functional>
#include <string>

namespace vexim {

/// The library's own threads and how they end with the process.
///
/// The first thread registers the process's one exit hook, after OpenSSL has registered its own, so
/// that no thread is inside OpenSSL when it is cleaned up. The hook wakes threads that wait for the
/// main queue, interrupts the library's threads, and waits for them.
namespace LibraryThreads {

/// How long the hook waits for a thread that was interrupted.
enum class AtExit {
    // only briefly: it may be stuck in the application's code, which must not delay the exit
    Leave,
    // until it has ended: it never blocks, but it computes inside OpenSSL, which takes long on a
    // slow or busy machine
    Await,
};

/// Runs `body` on a detached thread called `name`, with signals blocked. `interrupt` is called at
/// exit, on the exiting thread; it must be quick and make `body` return soon. Returns false if no
/// thread was started: the process is exiting, or the system has no more threads.
bool start(const std::string& name, AtExit atExit, std::function<void()> body,
           std::function<void()> interrupt);

/// The same for a thread that cannot be interrupted; the exit does not wait for it.
bool startUninterruptible(const std::string& name, std::function<void()> body);

}  // namespace LibraryThreads
}  // namespace vexim
