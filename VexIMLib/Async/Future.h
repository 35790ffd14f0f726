#pragma once

// Operations as `std::future`:
//
//     std::future<bool> login = vexim::future(&VXIMClient::loginWithUserId, client, "alice");
//     …
//     bool loggedIn = vexim::wait(login);
//
// Errors arrive as `vexim::Failure`, which holds the domain and the code:
//
//     try {
//         vexim::wait(login);
//     } catch (const vexim::Failure& failure) {
//         std::cerr << failure.what() << ' ' << failure.error()->code();
//     }
//
// A future becomes ready on the main queue. So on the main thread `get()` would block forever: use
// `wait` there, which runs the queue meanwhile. On any other thread use `get()`.

#include <chrono>
#include <exception>
#include <future>
#include <memory>
#include <utility>

#include "VexIMLib/Async/Call.h"
#include "VexIMLib/Async/TurnMainQueue.h"

namespace vexim {

namespace detail {

/// Starts `call`. The future becomes ready on the main queue, or here if the call ends at once. The
/// promise is shared with the call, so the future may be destroyed earlier.
template <class T>
std::future<T> futureOf(Call<T> call) {
    auto promise = std::make_shared<std::promise<T>>();
    auto future = promise->get_future();
    const auto fulfil = [promise](PendingCall<T>& pending) {
        Result<T> result = pending.take();
        if (result.error) {
            promise->set_exception(std::make_exception_ptr(Failure(std::move(result.error))));
        } else {
            promise->set_value(std::move(result.value));
        }
    };
    const auto pending = std::make_shared<PendingCall<T>>(fulfil);
    if (std::move(call).start(pending)) fulfil(*pending);
    return future;
}

}  // namespace detail

/// Starts an operation. Pass a call, or the arguments of `vexim::call`. `get()` returns the
/// completion's value, or throws `Failure` with its error. If the operation fails without an error,
/// `get()` returns false, nullptr or nullopt. Call from any thread. Besides the operation's own
/// errors there are those of `Call`: "NSURLErrorDomain" -1001 and -999, "VXIMCallErrorDomain" 1. A
/// future may be destroyed early: the operation continues, and its result is dropped.
///
///     vexim::future(vexim::call(&VXIMClient::loginWithUserId, client, "alice").within(10s))
template <class... A>
auto future(A&&... arguments) {
    return detail::futureOf(call(std::forward<A>(arguments)...));
}

/// Like `get()`, but works on any thread: on the main thread it runs the main queue until the
/// future is ready. Use it only for futures that the main queue makes ready, such as those of
/// `vexim::future`. If something calls `quit()` meanwhile, the loop around this call ends. Throws
/// `Failure` with the operation's error, and `std::future_error` for a future without a state.
template <class T>
T wait(std::future<T>& future) {
    if (MainQueue::shared().isMainThread()) {
        detail::turnMainQueueUntil(
            [&] { return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
    }
    return future.get();
}
/// The same for a future that nobody needs afterwards.
template <class T>
T wait(std::future<T>&& future) {
    return wait(future);
}
/// Starts an operation and waits for its result:
/// `vexim::wait(vexim::call(&VXIMClient::loginWithUserId, client, "alice"))`.
template <class T>
T wait(Call<T> call) {
    return wait(detail::futureOf(std::move(call)));
}

}  // namespace vexim
