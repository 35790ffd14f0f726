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

/// An operation that is ready to start. `vexim::call` makes one; `co_await` (Async/Coroutine.h),
/// `vexim::future` or `vexim::wait` (Async/Future.h) start it. T is what the completion receives
/// besides the error.
///
/// It ends exactly once, on the main queue, in one of these ways: with the completion's values;
/// with "NSURLErrorDomain" -1001 when its time is up, or -999 when it is cancelled; with the cause,
/// if the library knows that the completion will not run (the connection of a login failed, for
/// example); or with "VXIMCallErrorDomain" 1 (`CallErrorAbandoned`), if the library released the
/// completion without calling it. A timeout or a cancellation also stops a transfer. Any other
/// operation continues, and its result is dropped.
///
///     auto [fetched, error] =
///         co_await vexim::call(&VXIMUser::fetchFriendsWithDetail, user, true)
///             .within(10s)                       // at most ten seconds
///             .cancelledBy(window.stopToken());  // and only while the window is open
///
/// An upload or a download also reports its bytes:
///
///     auto file = co_await vexim::call(&VXIMMessage::downloadAttachment, message, path, nullptr)
///                     .reporting([](VXIMTransferProgress progress) { … });
///
/// A call is used up by its start: move it, and start it once. Prepare it on any thread; one call
/// must not be used by two threads at the same time.
template <class T>
class [[nodiscard]] Call {
public:
    /// The callback that ends the operation. The first argument is false, nil, nullptr or nullopt
    /// if the second is an error. It may be called on any thread; only the first call counts.
    using Completion = std::function<void(T, ErrorPtr)>;
    /// Starts the operation: calls it with this completion and, if it is a transfer, with the
    /// object that can cancel it (otherwise nullptr). Runs once, on the thread that starts the
    /// call.
    using Start = std::function<void(Completion, std::shared_ptr<VXIMTransfer>)>;

    /// For `call`. `transfer` is passed to `start`; nullptr if the operation takes none.
    explicit Call(Start start, std::shared_ptr<VXIMTransfer> transfer = nullptr)
        : start_(std::move(start)),
          transfer_(std::move(transfer)) {}

    /// Limits its time, counted from its start by `Clock::shared()`. When the time is up, the error
    /// is "NSURLErrorDomain" -1001. A limit of 0 or less ends it at the main queue's next turn. The
    /// last limit that was set applies.
    Call within(std::chrono::nanoseconds limit) && {
        limit_ = limit;
        return std::move(*this);
    }
    /// Cancels it when a stop is requested; the error is "NSURLErrorDomain" -999. Any thread may
    /// request the stop. After a stop request it does not start at all. A token without a source
    /// never cancels. The last token that was set applies.
    Call cancelledBy(std::stop_token stop) && {
        stop_ = std::move(stop);
        return std::move(*this);
    }

    /// Reports a transfer's bytes to `progress`, on the main queue, any number of times before the
    /// call ends. It replaces a function that was set before. An operation that is not a transfer
    /// reports nothing. An empty function reports nothing either.
    Call reporting(VXIMTransferProgressBlock progress) && {
        if (transfer_) transfer_->setProgress(std::move(progress));
        return std::move(*this);
    }

    /// For the async styles: starts it, on any thread. Returns true if it ended at once, on the
    /// main thread; `pending` then holds the result and does not call its receiver. Exceptions of
    /// the operation pass through.
    bool start(const std::shared_ptr<detail::PendingCall<T>>& pending) && {
        const auto transfer = std::move(transfer_);
        // A stop that was requested before the start means that nothing is sent.
        if (!pending->begin(transfer, std::move(stop_))) return pending->started();
        // for operations that find out why their completion will not run
        const FailureListener listener(pending->failure());
        // It may answer at once, inside another operation's completion, whose error is not its own.
        const UntoldError none(nullptr);
        // Release it as soon as it has run: what it holds must not keep the receiver alive until
        // the answer comes.
        std::exchange(start_, nullptr)(pending->completion(), transfer);
        if (limit_) pending->expireAfter(*limit_);
        return pending->started();
    }

private:
    // `start` uses these up.

    /// The bound operation; empty after the start.
    Start start_;
    /// nullptr if the operation cannot be cancelled.
    std::shared_ptr<VXIMTransfer> transfer_;
    /// Counted from the start; nullopt means no limit.
    std::optional<std::chrono::nanoseconds> limit_;
    /// Without a source it never asks to stop.
    std::stop_token stop_;
};

namespace detail {

/// Whether an operation's last parameter is the object that can cancel it.
template <class P>
inline constexpr bool isTransfer =
    std::is_same_v<std::remove_cvref_t<P>, std::shared_ptr<VXIMTransfer>>;

/// What a completion receives besides the error: the T of a `std::function<void(T, ErrorPtr)>`. Any
/// other parameter in its place does not compile.
template <class P>
struct Completed {
    static_assert(!sizeof(P*), "pass `call` exactly the arguments that come before the completion");
};
template <class T>
struct Completed<std::function<void(T, ErrorPtr)>> {
    using Type = T;
};
/// The same for a parameter as it is declared, which may be a reference.
template <class P>
using CompletedBy = typename Completed<std::remove_cvref_t<P>>::Type;

/// Makes a call of an operation with the parameters P...: arguments, the completion, perhaps a
/// transfer. For example, `loginWithUserId` has two, an id and the completion, so it needs one
/// argument. The number of arguments given decides which parameter is the completion. Arguments
/// that do not fit do not compile, and the message says why.
template <class... P>
struct Binder {
    /// Makes the call. `operation` takes all parameters P, in their order.
    template <class Operation, class... A>
    static auto bind(Operation operation, A&&... arguments) {
        // A function's address has no default arguments, so none can be left out.
        static_assert(sizeof...(A) < sizeof...(P),
                      "too many arguments: the operation has no completion after them");
        return bindEach(std::make_index_sequence<sizeof...(A)>(), std::move(operation),
                        std::forward<A>(arguments)...);
    }

private:
    /// All parameters without references, so that they can be stored.
    using All = std::tuple<std::remove_cvref_t<P>...>;

    /// `I` counts the arguments given; the parameter after them is the completion. A transfer that
    /// the operation can take is always made, so that a deadline can cancel it.
    template <std::size_t... I, class Operation, class... A>
    static auto bindEach(std::index_sequence<I...>, Operation operation, A&&... arguments) {
        using T = CompletedBy<std::tuple_element_t<sizeof...(A), All>>;
        constexpr bool takesTransfer = sizeof...(P) > sizeof...(A) + 1;
        // Convert now, not at the start: a pointer may dangle by then.
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
                                      "only a transfer may follow the completion");
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

/// Returns `receiver`. Raises NSInvalidArgumentException if it is nullptr, which would otherwise be
/// noticed only when the call starts, far from the mistake.
template <class C, class Object>
std::shared_ptr<Object> requireReceiver(std::shared_ptr<Object> receiver) {
    static_assert(std::is_base_of_v<C, Object>,
                  "the operation does not belong to this object's class");
    if (!receiver)
        throw Exception(kInvalidArgumentException, "The object to call the operation on is nil.");
    return receiver;
}

// Makes a call from a lambda, whose parameters are those of its function call operator. The second
// form is for lambdas that are not `mutable`, which is nearly all of them.
template <class F, class R, class... P>
auto callOf(F operation, R (F::*)(P...)) {
    return Binder<P...>::bind(std::move(operation));
}
template <class F, class R, class... P>
auto callOf(F operation, R (F::*)(P...) const) {
    return Binder<P...>::bind(std::move(operation));
}

}  // namespace detail

/// Prepares an operation: its name, the object, and the arguments before the completion.
///
///     vexim::call(&VXIMClient::loginWithUserId, client, "alice")
///     vexim::call(&VXIMMessage::downloadAttachment, message, path, showPercent).within(1min)
///
/// The object is kept alive until the operation has started. nullptr raises
/// NSInvalidArgumentException, on the calling thread and before anything else happens. Arguments
/// are copied (or moved) into the call and converted to the operation's types at once. Nothing is
/// sent until the call is started; a call that is never started does nothing.
template <class C, class... P, class Object, class... A>
auto call(void (C::*operation)(P...), std::shared_ptr<Object> receiver, A&&... arguments) {
    return detail::Binder<P...>::bind(
        [operation, receiver = detail::requireReceiver<C>(std::move(receiver))](auto&&... all) {
            ((*receiver).*operation)(std::forward<decltype(all)>(all)...);
        },
        std::forward<A>(arguments)...);
}
/// The same for an operation that does not change the object.
template <class C, class... P, class Object, class... A>
auto call(void (C::*operation)(P...) const, std::shared_ptr<Object> receiver, A&&... arguments) {
    return detail::Binder<P...>::bind(
        [operation, receiver = detail::requireReceiver<C>(std::move(receiver))](auto&&... all) {
            ((*receiver).*operation)(std::forward<decltype(all)>(all)...);
        },
        std::forward<A>(arguments)...);
}
/// Prepares a static operation:
///
///     const vexim::Dictionary attributes{{"name", "guest"}};
///     vexim::call(&VXIMPassenger::createOrUpdatePassengerWithAttributes, attributes)
///
/// Its arguments are bound like those of a member function.
template <class... P, class... A>
auto call(void (*operation)(P...), A&&... arguments) {
    return detail::Binder<P...>::bind(operation, std::forward<A>(arguments)...);
}

/// Prepares an operation with an overloaded name, or one of your own. Write a lambda that takes the
/// completion and, if it needs one, a transfer after it.
///
///     vexim::call([&](VXIMBooleanCompletion done) { client->sendMessage(message, done); })
///
///     vexim::call([=](VXIMResultCompletion done, std::shared_ptr<VXIMTransfer> transfer) {
///         message->downloadAttachment(path, nullptr, done, transfer);
///     })
///
/// The lambda runs once, on the thread that starts the call. It must pass `done` to an operation or
/// call it: if it just drops it, the call ends with "VXIMCallErrorDomain" 1. An exception from the
/// lambda passes through to whoever starts the call.
template <class F>
requires requires { &F::operator(); }
auto call(F operation) { return detail::callOf(std::move(operation), &F::operator()); }

/// Returns the call unchanged, so that functions like `future` accept a call as well as the
/// arguments for one.
template <class T>
Call<T> call(Call<T> made) {
    return made;
}

}  // namespace vexim
