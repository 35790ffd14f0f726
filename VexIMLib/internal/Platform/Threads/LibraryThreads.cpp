#include "VexIMLib/internal/Platform/Threads/LibraryThreads.h"

#include <curl/curl.h>
#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <list>
#include <system_error>
#include <thread>
#include <vector>

#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Foundation/Threads/SignalsBlocked.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim::LibraryThreads {
namespace {

constexpr std::chrono::milliseconds patienceWith(AtExit atExit) {
    switch (atExit) {
        case AtExit::Leave: return std::chrono::milliseconds(50);
        // give up after a while: a process that cannot exit is worse
        case AtExit::Await: return std::chrono::seconds(3);
    }
    return {};
}

struct Running {
    std::thread::id id;
    AtExit atExit;
    std::function<void()> interrupt;
};

struct Registry {
    Mutex mutex;
    ConditionVariable ended;
    std::list<Running> running VEXIM_GUARDED_BY(mutex);
    std::atomic<bool> exiting{false};
    const pid_t process = ::getpid();
};

void exitHook();

Registry& registry() {
    static auto* const instance = [] {
        OPENSSL_init_ssl(0, nullptr);
        curl_global_init(CURL_GLOBAL_ALL);
        std::atexit(exitHook);
        return new Registry;  // never destroyed: threads that run longer than the exit hook still
                              // use it
    }();
    return *instance;
}

void exitHook() {
    Registry& shared = registry();
    // a forked child has none of the threads, and may have locks that nobody unlocks
    if (shared.process != ::getpid()) return;
    std::vector<std::function<void()>> interrupts;
    {
        const MutexLock lock(shared.mutex);
        shared.exiting = true;
        for (const Running& thread : shared.running) interrupts.push_back(thread.interrupt);
    }
    detail::endMainQueue();  // nobody runs the queue any more, so nobody may wait for it
    for (const auto& interrupt : interrupts) interrupt();

    const auto patience = [&shared]() VEXIM_REQUIRES(shared.mutex) {
        std::chrono::milliseconds most{0};
        for (const Running& thread : shared.running) {
            // If an application's callback on one of our threads calls exit, that thread must not
            // wait for itself.
            if (thread.id != std::this_thread::get_id())
                most = std::max(most, patienceWith(thread.atExit));
        }
        return most;
    };
    const auto begin = std::chrono::steady_clock::now();
    const MutexLock lock(shared.mutex);
    while (shared.ended.waitUntil(shared.mutex, begin + patience())) {
    }
}

bool spawn(const std::string& name, std::function<void()> body) {
    const SignalsBlocked blocked;  // a new thread inherits the mask
    try {
        std::thread([name = name.substr(0, 15), body = std::move(body)]() mutable {
            ::pthread_setname_np(::pthread_self(), name.c_str());
            body();
            body = nullptr;
        }).detach();
        return true;
    } catch (const std::system_error& failure) {
        log(LogLevel::Error,
            std::string("Cannot start the thread for ") + name + ": " + failure.what());
        return false;
    }
}

}  // namespace

bool start(const std::string& name, AtExit atExit, std::function<void()> body,
           std::function<void()> interrupt) {
    Registry& shared = registry();
    std::list<Running>::iterator entry;
    {
        const MutexLock lock(shared.mutex);
        if (shared.exiting) return false;
        entry =
            shared.running.insert(shared.running.end(), Running{{}, atExit, std::move(interrupt)});
    }
    const bool spawned = spawn(name, [&shared, entry, body = std::move(body)]() mutable {
        {
            const MutexLock lock(shared.mutex);
            entry->id = std::this_thread::get_id();
        }
        body();
        body = nullptr;
        // Do it now, not when the thread itself ends: once the hook sees that it has ended, OpenSSL
        // may be cleaned up.
        OPENSSL_thread_stop();
        const MutexLock lock(shared.mutex);
        shared.running.erase(entry);
        shared.ended.notifyAll();
    });
    if (!spawned) {
        const MutexLock lock(shared.mutex);
        shared.running.erase(entry);
    }
    return spawned;
}

bool startUninterruptible(const std::string& name, std::function<void()> body) {
    return !registry().exiting && spawn(name, std::move(body));
}

}  // namespace vexim::LibraryThreads
