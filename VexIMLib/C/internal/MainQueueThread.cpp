#include "VexIMLib/C/internal/MainQueueThread.h"

#include <openssl/crypto.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <system_error>
#include <thread>

#include "VexIMLib/C/internal/Session.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Foundation/Threads/SignalsBlocked.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim::c {

namespace {

std::atomic<bool> forkedChild{false};

/// The thread that runs the main queue. It runs until the process exits, and the exit waits for its
/// current function.
class MainQueueThread {
public:
    static MainQueueThread& shared() {
        static MainQueueThread& thread = *new MainQueueThread;
        return thread;
    }

    bool start() {
        const MutexLock lock(mutex_);
        if (exiting_) return false;
        if (running_) return true;
        // Start OpenSSL before we register our exit hook: hooks run in reverse order, so our thread
        // has stopped when OpenSSL is cleaned up.
        ::OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr);  // with no option it does nothing
        if (!prepared_) {
            observeNotifications();
            if (std::atexit([] { shared().stop(); }) != 0) return false;
            ::pthread_atfork(nullptr, nullptr, [] { forkedChild = true; });
            prepared_ = true;
        }
        const SignalsBlocked blocked;  // a new thread inherits the mask
        try {
            std::thread([this] { run(); }).detach();
            running_ = true;
        } catch (const std::system_error&) {
        }
        return running_;
    }

private:
    void run() {
        ::pthread_setname_np(::pthread_self(), "vexim-main");
        while (!isExiting()) {
            try {
                MainQueue::shared().runUntil([this] { return isExiting(); },
                                             std::chrono::nanoseconds::max());
            } catch (const std::exception&) {  // our functions never throw, but the host's may
            }
        }
        // Do it now, not when the thread itself ends: once it counts as ended, OpenSSL may be
        // cleaned up.
        ::OPENSSL_thread_stop();
        const MutexLock lock(mutex_);
        running_ = false;
        ended_.notifyAll();
    }

    bool isExiting() const noexcept { return exiting_; }

    void stop() {
        if (forkedChild) return;  // the thread belongs to the parent, and so may the locks
        exiting_ = true;
        MainQueue::shared().async([] {});  // wakes the thread, which then checks `exiting_`
        const auto until =
            // it runs no code of the program that could delay it
            std::chrono::steady_clock::now() + std::chrono::seconds(10);
        const MutexLock lock(mutex_);
        while (running_ && ended_.waitUntil(mutex_, until)) continue;
    }

    Mutex mutex_;
    ConditionVariable ended_;
    std::atomic<bool> exiting_{false};
    bool prepared_ VEXIM_GUARDED_BY(mutex_) = false;
    bool running_ VEXIM_GUARDED_BY(mutex_) = false;
};

}  // namespace

bool isForkedChild() noexcept { return forkedChild; }

bool startMainQueueThread() { return MainQueueThread::shared().start(); }

}  // namespace vexim::c
