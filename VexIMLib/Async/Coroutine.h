#pragma once

// Operations in C++20 coroutines:
//
//     vexim::Task<> greet(std::shared_ptr<VXIMClient> client) {
//         auto [loggedIn, error] =
//             co_await vexim::call(&VXIMClient::loginWithUserId, client, "alice").within(10s);
//         if (!loggedIn) co_return;
//         …
//     }
//     vexim::spawn(greet(client));
//
// `co_await` returns a `Result` and does not throw: refused logins and lost connections are normal
// in a chat, and the rest of this library returns errors as values, too. If you prefer exceptions,
// append `.orThrow()`:
//
//     auto friends = (co_await vexim::call(…)).orThrow();  // throws vexim::Failure
//
// A task may await other tasks, and return a value:
//
//     vexim::Task<bool> greetTwice(std::shared_ptr<VXIMClient> client) {
//         co_await greet(client);
//         co_await greet(client);
//         co_return true;
//     }
//
// Coroutines bring no threads and need no locks: after its first `co_await` of an operation a task
// runs on the main queue, like the callbacks of this library. So somebody must run that queue.

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

/// What `co_await` of a call uses. It starts the operation when the coroutine stops, and continues
/// the coroutine on the main thread. If the coroutine is destroyed meanwhile, a transfer is
/// cancelled; any other operation continues, and its result is dropped.
template <class T>
class CallAwaiter {
public:
    /// Keeps the call. It starts only when the coroutine stops to wait for it.
    explicit CallAwaiter(Call<T> call) : call_(std::move(call)) {}
    CallAwaiter(const CallAwaiter&) = delete;
    CallAwaiter& operator=(const CallAwaiter&) = delete;
    /// The awaiter lies in the coroutine's frame, so this also runs if a waiting task is destroyed.
    /// Then there is no coroutine left to continue.
    ~CallAwaiter() {
        if (pending_) pending_->forget();
    }

    // The compiler calls these three, in this order (see [expr.await] of the C++ standard).

    /// Never ready: the operation has not begun yet.
    bool await_ready() const noexcept { return false; }
    /// Returns false if the operation has ended at once: the coroutine then simply continues.
    bool await_suspend(std::coroutine_handle<> waiting) {
        // From here on use locals only: once the call has started, the main thread may continue the
        // coroutine, and destroy it.
        Call<T> call = std::move(call_);
        const auto pending =
            std::make_shared<PendingCall<T>>([waiting](PendingCall<T>&) { waiting.resume(); });
        pending_ = pending;
        try {
            return !std::move(call).start(pending);
        } catch (...) {
            pending_ = nullptr;  // it ended at once, so this thread still owns it
            throw;
        }
    }
    /// What the completion received; `co_await` returns it. Runs on the thread that continues the
    /// coroutine.
    Result<T> await_resume() { return pending_->take(); }

private:
    Call<T> call_;  // empty after the start
    // shared with the operation's completion, which may come after this awaiter is destroyed
    std::shared_ptr<PendingCall<T>> pending_;
};

/// The part of a task's promise that does not depend on its type.
struct TaskPromiseBase {
    /// The coroutine that awaits this one; none for a task that was spawned or started.
    std::coroutine_handle<> continuation;
    /// The exception that left the coroutine, for whoever takes the result.
    std::exception_ptr failure;
    /// Spawned: nobody holds a `Task` for it, so the frame is destroyed when it ends.
    bool ownsItself = false;
    /// `wait` gets the failure, so it is not raised on the main queue as well.
    bool isWaitedFor = false;

    /// What happens at the end of a coroutine: the one that awaits it continues at once, on the
    /// same thread. If none does, nobody would see an exception, so it is raised on the main queue.
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

    /// A task does nothing until it is awaited, spawned or started.
    std::suspend_always initial_suspend() const noexcept { return {}; }
    /// The frame stays after the end, because it holds the result. The `Task` destroys it, or `End`
    /// does if it was spawned.
    End final_suspend() const noexcept { return {}; }
    /// Keeps the exception. `take` throws it again.
    void unhandled_exception() noexcept { failure = std::current_exception(); }
};

/// The promise of a task that returns a T. The result stays here until it is taken, once.
template <class T>
struct TaskPromise : TaskPromiseBase {
    /// What the coroutine returned; nullopt until then, and after an exception. T needs no default
    /// constructor.
    std::optional<T> value;
    /// For `co_return`: accepts whatever a T can be made from.
    template <class U = T>
    void return_value(U&& result) {
        value.emplace(std::forward<U>(result));
    }
    /// Moves the result out, or throws the exception that left the coroutine.
    T take() {
        if (failure) std::rethrow_exception(failure);
        return *std::move(value);
    }
};
/// The promise of a task that returns nothing. It can still fail.
template <>
struct TaskPromise<void> : TaskPromiseBase {
    void return_void() const noexcept {}
    /// Throws the exception that left the coroutine, if there is one.
    void take() const {
        if (failure) std::rethrow_exception(failure);
    }
};

}  // namespace detail

/// Awaits an operation. The coroutine continues on the main queue, with a `Result<T>`. What the
/// operation raises at its start is thrown here.
template <class T>
detail::CallAwaiter<T> operator co_await(Call<T> call) {
    return detail::CallAwaiter<T>(std::move(call));
}

/// A coroutine of the application, which can await calls and other tasks. It begins when it is
/// awaited, spawned or started, on that thread. After the first operation that it awaits, it
/// continues on the main queue.
///
/// Destroying an unfinished task ends it where it waits. What it holds is released, and a transfer
/// that it waits for is cancelled; the result of any other operation is dropped. Once it has begun,
/// destroy it on the main thread only, and not from inside the task. A coroutine outlives its
/// caller's arguments, so take parameters by value.
template <class T = void>
class [[nodiscard]] Task {
public:
    /// The compiler uses this; applications do not.
    struct promise_type : detail::TaskPromise<T> {
        /// For the compiler.
        Task get_return_object() {
            return Task(std::coroutine_handle<promise_type>::from_promise(*this));
        }
    };

    /// Takes over the coroutine, which goes on as before. A moved-from task may only be destroyed
    /// or assigned to.
    Task(Task&& other) noexcept : coroutine_(std::exchange(other.coroutine_, nullptr)) {}
    /// Like the constructor. An unfinished task that was here is destroyed, and so ended.
    Task& operator=(Task&& other) noexcept {
        const Task former(std::exchange(coroutine_, std::exchange(other.coroutine_, nullptr)));
        return *this;
    }
    /// Ends the coroutine where it waits; see above.
    ~Task() {
        if (coroutine_) coroutine_.destroy();
    }

    /// Starts it without awaiting it. Destroy the task to end it early. Call this once only, and
    /// not for a task that is awaited. An exception that leaves it is raised on the main queue,
    /// like one from a callback.
    void start() { coroutine_.resume(); }
    /// Whether it has ended, by its return or by an exception. Main thread.
    bool isDone() const noexcept { return coroutine_.done(); }

    /// For `co_await std::move(task)`, or `co_await` of a function that returns a task. Returns
    /// what the task returns, and throws what it throws.
    auto operator co_await() && noexcept {
        // The awaited task begins at once, on this thread. Its end continues the waiting one.
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
    // Both take over the coroutine, and mark in its promise who gets a failure.
    template <class U>
    friend void spawn(Task<U> task);
    template <class U>
    friend U wait(Task<U> task);

    std::coroutine_handle<promise_type> coroutine_;
};

/// Starts a task that nobody waits for. It keeps itself alive until it ends. Its result is dropped;
/// an exception that leaves it is raised on the main queue, where `MainQueue::run` passes it on. A
/// `Failure` is such an exception, too: a spawned task should handle what it expects. Call from any
/// thread; until its first operation the task runs on that one.
///
///     vexim::spawn(greet(client));
template <class T>
void spawn(Task<T> task) {
    const auto coroutine = std::exchange(task.coroutine_, nullptr);
    coroutine.promise().ownsItself = true;
    coroutine.resume();
}

/// Runs a task, and the main queue, until the task has ended. Returns what it returns, and throws
/// what it throws. There is no time limit: set one with `within` for the operations inside
/// it. Useful in `main` and in tests:
///
///     const bool greeted = vexim::wait(greetTwice(client));
///
/// Main thread only; on any other it raises NSInternalInconsistencyException. A
/// `quit()` meanwhile ends the surrounding loop.
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
