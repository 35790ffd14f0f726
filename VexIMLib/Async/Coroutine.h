#pragma once

// Operations in C++20 coroutines:
//
//     vexim::Task<> greet(std::shared_ptr<VXIMClient> client) {
//         auto [loggedIn, error] = co_await vexim::call(&VXIMClient::loginWithUserId, client,
//         "alice").within(10s); if (!loggedIn) co_return; …
//     }
//     vexim::spawn(greet(client));
//
// `co_await` gives a `Result`, not an exception: a refused login or a lost connection is everyday
// life in a chat, and what goes wrong in the world is a value everywhere else in this library. Who
// prefers exceptions writes `.orThrow()` behind it.

#include <coroutine>
#include <exception>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "VexIMLib/Async/Call.h"
#include "VexIMLib/Async/TurnMainQueue.h"
#include "VexIMLib/Foundation/Exception.h"

namespace vexim {

namespace detail {

template <class T>
class CallAwaiter {
public:
    explicit CallAwaiter(Call<T> call) : call_(std::move(call)) {}
    CallAwaiter(const CallAwaiter&) = delete;
    CallAwaiter& operator=(const CallAwaiter&) = delete;
    ~CallAwaiter() {
        if (pending_) pending_->forget();
    }

    bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<> waiting) {
        // All in locals: once the call has been started, the main thread may go on with the
        // coroutine, and end it.
        Call<T> call = std::move(call_);
        const auto pending =
            std::make_shared<PendingCall<T>>([waiting](PendingCall<T>&) { waiting.resume(); });
        pending_ = pending;
        try {
            return !std::move(call).start(pending);
        } catch (...) {
            pending_ = nullptr;  // not waited for; still this thread's, because it was not started
            throw;
        }
    }
    Result<T> await_resume() { return pending_->take(); }

private:
    Call<T> call_;
    std::shared_ptr<PendingCall<T>> pending_;
};

/// What every task's promise holds, whatever it returns.
struct TaskPromiseBase {
    std::coroutine_handle<> continuation;  // the coroutine that awaits this one
    std::exception_ptr failure;
    bool ownsItself = false;   // spawned: the frame goes when it ends
    bool isWaitedFor = false;  // the failure has somebody to go to

    struct End {
        bool await_ready() const noexcept { return false; }
        template <class Promise>
        std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> ended) const noexcept {
            TaskPromiseBase& promise = ended.promise();
            if (promise.continuation) return promise.continuation;
            if (promise.failure && !promise.isWaitedFor) {
                MainQueue::shared().async(
                    [failure = promise.failure] { std::rethrow_exception(failure); });
            }
            if (promise.ownsItself) ended.destroy();
            return std::noop_coroutine();
        }
        void await_resume() const noexcept {}
    };

    std::suspend_always initial_suspend() const noexcept { return {}; }
    End final_suspend() const noexcept { return {}; }
    void unhandled_exception() noexcept { failure = std::current_exception(); }
};

template <class T>
struct TaskPromise : TaskPromiseBase {
    std::optional<T> value;
    template <class U = T>
    void return_value(U&& result) {
        value.emplace(std::forward<U>(result));
    }
    T take() {
        if (failure) std::rethrow_exception(failure);
        return *std::move(value);
    }
};
template <>
struct TaskPromise<void> : TaskPromiseBase {
    void return_void() const noexcept {}
    void take() const {
        if (failure) std::rethrow_exception(failure);
    }
};

}  // namespace detail

/// Awaits an operation: the coroutine goes on with a `Result<T>`, on the main queue. What the
/// operation raises at its start is thrown here.
template <class T>
detail::CallAwaiter<T> operator co_await(Call<T> call) {
    return detail::CallAwaiter<T>(std::move(call));
}

/// A coroutine of the application's, which awaits calls and other tasks. It begins when it is
/// awaited, spawned or started, on that thread, and goes on on the main queue after the first
/// operation that it has waited for.
///
/// Destroying an unfinished task ends it where it waits: what it holds is released, a transfer that
/// it waits for is cancelled, another operation's answer dropped. Do that on the main thread once
/// it has begun, and not from inside the task itself. Coroutines outlive their caller's arguments:
/// take parameters by value.
template <class T = void>
class [[nodiscard]] Task {
public:
    /// The coroutine machinery's side of a task; not for applications.
    struct promise_type : detail::TaskPromise<T> {
        /// For the compiler.
        Task get_return_object() {
            return Task(std::coroutine_handle<promise_type>::from_promise(*this));
        }
    };

    Task(Task&& other) noexcept : coroutine_(std::exchange(other.coroutine_, nullptr)) {}
    Task& operator=(Task&& other) noexcept {
        const Task former(std::exchange(coroutine_, std::exchange(other.coroutine_, nullptr)));
        return *this;
    }
    ~Task() {
        if (coroutine_) coroutine_.destroy();
    }

    /// Begins it without awaiting it; whoever keeps the task can end it by destroying it. Once
    /// only, and not for one that is awaited. An exception that leaves it is raised on the main
    /// queue, as a callback's would be.
    void start() { coroutine_.resume(); }
    /// Whether it has ended.
    bool isDone() const noexcept { return coroutine_.done(); }

    /// `co_await std::move(task)`, or of a call that returns one: gives what it returns, throws
    /// what it throws.
    auto operator co_await() && noexcept {
        struct Awaiter {
            std::coroutine_handle<promise_type> coroutine;
            bool await_ready() const noexcept { return false; }
            std::coroutine_handle<> await_suspend(std::coroutine_handle<> waiting) const noexcept {
                coroutine.promise().continuation = waiting;
                return coroutine;
            }
            T await_resume() const { return coroutine.promise().take(); }
        };
        return Awaiter{coroutine_};
    }

private:
    explicit Task(std::coroutine_handle<promise_type> coroutine) noexcept : coroutine_(coroutine) {}
    template <class U>
    friend void spawn(Task<U> task);
    template <class U>
    friend U wait(Task<U> task);

    std::coroutine_handle<promise_type> coroutine_;
};

/// Runs a task for its own sake: it begins here and owns itself until it ends. What it returns is
/// dropped; an exception that leaves it is raised on the main queue. Call from any thread.
template <class T>
void spawn(Task<T> task) {
    const auto coroutine = std::exchange(task.coroutine_, nullptr);
    coroutine.promise().ownsItself = true;
    coroutine.resume();
}

/// Runs a task and turns the main queue until it has ended; gives what it returns, throws what it
/// throws. Main thread only, anything else raises. A `quit()` meanwhile counts for the loop around
/// this one.
template <class T>
T wait(Task<T> task) {
    if (!MainQueue::shared().isMainThread()) {
        throw Exception(kInternalInconsistencyException,
                        "A task can be waited for on the main thread only.");
    }
    task.coroutine_.promise().isWaitedFor = true;
    task.coroutine_.resume();
    detail::turnMainQueueUntil([&] { return task.coroutine_.done(); });
    return task.coroutine_.promise().take();
}

}  // namespace vexim
