#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <tuple>
#include <type_traits>
#include <utility>

#include "VexIMLib/Async/PendingCall.h"
#include "VexIMLib/Async/Result.h"
#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/FailureListener.h"
#include "VexIMLib/Foundation/UntoldError.h"
#include "VexIMLib/VXIMTransfer.h"

namespace vexim {

/// An operation that has been put together but not started: it is started by `co_await`
/// (Async/Coroutine.h), by `vexim::future` or by `vexim::wait` (Async/Future.h). Made by
/// `vexim::call`. T is what the completion receives besides the error.
///
/// It ends exactly once, on the main queue: with the completion's values; with "NSURLErrorDomain"
/// -1001 or -999 when its time is over or it was cancelled; with the cause when the library knows
/// why the completion will not run, as of a login over a connection that failed; or with
/// `CallErrorAbandoned` when the library let go of the completion unanswered. A transfer is ended
/// by time and cancellation; any other operation goes on unheard, and its answer is dropped.
template <class T>
class [[nodiscard]] Call {
public:
    /// The callback that ends the operation.
    using Completion = std::function<void(T, ErrorPtr)>;
    /// Starts the operation.
    using Start = std::function<void(Completion, std::shared_ptr<VXIMTransfer>)>;

    /// For `call`. `transfer` is passed to `start`; nullptr for an operation that takes none.
    explicit Call(Start start, std::shared_ptr<VXIMTransfer> transfer = nullptr)
        : start_(std::move(start)),
          transfer_(std::move(transfer)) {}

    /// Gives it `limit` from its start on, by `Clock::shared()`.
    Call within(std::chrono::nanoseconds limit) && {
        limit_ = limit;
        return std::move(*this);
    }
    /// Cancels it when a stop is requested, on whatever thread. When that has happened before its
    /// start, nothing is started.
    Call cancelledBy(std::stop_token stop) && {
        stop_ = std::move(stop);
        return std::move(*this);
    }

    /// Has `progress` hear of a transfer's bytes, on the main queue. What is no transfer reports
    /// nothing.
    Call reporting(VXIMTransferProgressBlock progress) && {
        if (transfer_) transfer_->setProgress(std::move(progress));
        return std::move(*this);
    }

    /// For the styles: starts it, on any thread. True when it ended in place, on the main thread:
    /// `pending` then holds the result and does not call its receiver. What the operation raises
    /// comes through.
    bool start(const std::shared_ptr<detail::PendingCall<T>>& pending) && {
        const auto transfer = std::move(transfer_);
        if (!pending->begin(transfer, std::move(stop_))) return pending->started();
        const FailureListener listener(pending->failure());
        // it may answer in place, from inside another one's completion
        const UntoldError none(nullptr);
        // Released as soon as it has run: what it holds must not keep the receiver alive while the
        // answer is awaited.
        std::exchange(start_, nullptr)(pending->completion(), transfer);
        if (limit_) pending->expireAfter(*limit_);
        return pending->started();
    }

private:
    Start start_;
    std::shared_ptr<VXIMTransfer> transfer_;
    std::optional<std::chrono::nanoseconds> limit_;
    std::stop_token stop_;
};

namespace detail {

template <class P>
inline constexpr bool isTransfer =
    std::is_same_v<std::remove_cvref_t<P>, std::shared_ptr<VXIMTransfer>>;

/// What a completion receives besides the error.
template <class P>
struct Completed {
    static_assert(
        !sizeof(P*),
        "not the place of a completion: give `call` exactly the arguments that stand before it");
};
template <class T>
struct Completed<std::function<void(T, ErrorPtr)>> {
    using Type = T;
};
template <class P>
using CompletedBy = typename Completed<std::remove_cvref_t<P>>::Type;

/// `operation` takes parameters P...: arguments, the completion, perhaps a transfer.
template <class... P>
struct Binder {
    template <class Operation, class... A>
    static auto bind(Operation operation, A&&... arguments) {
        static_assert(sizeof...(A) < sizeof...(P),
                      "the operation has no completion after so many arguments");
        return bindEach(std::make_index_sequence<sizeof...(A)>(), std::move(operation),
                        std::forward<A>(arguments)...);
    }

private:
    using All = std::tuple<std::remove_cvref_t<P>...>;

    template <std::size_t... I, class Operation, class... A>
    static auto bindEach(std::index_sequence<I...>, Operation operation, A&&... arguments) {
        using T = CompletedBy<std::tuple_element_t<sizeof...(A), All>>;
        constexpr bool takesTransfer = sizeof...(P) > sizeof...(A) + 1;
        // Converted now, not when it starts: what a pointer points to may be gone by then.
        using Bound = std::tuple<std::tuple_element_t<I, All>...>;
        auto start = [operation = std::move(operation),
                      bound = Bound(std::forward<A>(arguments)...)](
                         typename Call<T>::Completion completion,
                         std::shared_ptr<VXIMTransfer> transfer) mutable {
            std::apply(
                [&](auto&&... each) {
                    if constexpr (takesTransfer) {
                        static_assert(isTransfer<std::tuple_element_t<sizeof...(P) - 1, All>> &&
                                          sizeof...(P) == sizeof...(A) + 2,
                                      "behind the completion only a transfer may stand");
                        operation(std::move(each)..., std::move(completion), std::move(transfer));
                    } else {
                        operation(std::move(each)..., std::move(completion));
                    }
                },
                std::move(bound));
        };
        return Call<T>(std::move(start), takesTransfer ? VXIMTransfer::transfer() : nullptr);
    }
};

template <class C, class Object>
std::shared_ptr<Object> requireReceiver(std::shared_ptr<Object> receiver) {
    static_assert(std::is_base_of_v<C, Object>, "the operation is none of this object's class");
    if (!receiver)
        throw Exception(kInvalidArgumentException, "There is no object to call the operation of.");
    return receiver;
}

template <class F, class R, class... P>
auto callOf(F operation, R (F::*)(P...)) {
    return Binder<P...>::bind(std::move(operation));
}
template <class F, class R, class... P>
auto callOf(F operation, R (F::*)(P...) const) {
    return Binder<P...>::bind(std::move(operation));
}

}  // namespace detail

/// Puts an operation together: its name, the object, and the arguments that stand before the
/// completion.
///
///     vexim::call(&VXIMClient::loginWithUserId, client, "alice")
///     vexim::call(&VXIMMessage::downloadAttachment, message, "photo.png",
///     showPercent).within(1min)
///
/// The object is held until the operation has started. nullptr raises NSInvalidArgumentException.
template <class C, class... P, class Object, class... A>
auto call(void (C::*operation)(P...), std::shared_ptr<Object> receiver, A&&... arguments) {
    return detail::Binder<P...>::bind(
        [operation, receiver = detail::requireReceiver<C>(std::move(receiver))](auto&&... all) {
            ((*receiver).*operation)(std::forward<decltype(all)>(all)...);
        },
        std::forward<A>(arguments)...);
}
template <class C, class... P, class Object, class... A>
auto call(void (C::*operation)(P...) const, std::shared_ptr<Object> receiver, A&&... arguments) {
    return detail::Binder<P...>::bind(
        [operation, receiver = detail::requireReceiver<C>(std::move(receiver))](auto&&... all) {
            ((*receiver).*operation)(std::forward<decltype(all)>(all)...);
        },
        std::forward<A>(arguments)...);
}
/// A static operation:
///
///     vexim::call(&VXIMPassenger::createOrUpdatePassengerWithAttributes,
///     vexim::Dictionary{{"name", "guest"}})
template <class... P, class... A>
auto call(void (*operation)(P...), A&&... arguments) {
    return detail::Binder<P...>::bind(operation, std::forward<A>(arguments)...);
}

/// An operation whose name is overloaded, or one of the application's own: a lambda that names the
/// completion's shape, and a transfer behind it if it wants one.
///
///     vexim::call([&](VXIMBooleanCompletion done) { client->sendMessage(message, std::move(done));
///     })
///
/// The lambda runs once, where the call is started.
template <class F>
requires requires { &F::operator(); }
auto call(F operation) { return detail::callOf(std::move(operation), &F::operator()); }

/// As it is, so that what takes a call also takes what makes one.
template <class T>
Call<T> call(Call<T> made) {
    return made;
}

}  // namespace vexim
