#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <utility>

#include "VexIMLib/Async/Result.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/FailureListener.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/UntoldError.h"
#include "VexIMLib/VXIMTransfer.h"

namespace vexim::detail {

/// The result of one started call: whichever comes first of answer, deadline, cancellation and
/// abandonment. It may be started on any thread. Everything else happens on the main thread, so
/// nothing here needs a lock.
///
/// For the async styles only: `futureOf` in Async/Future.h and the awaiter in Async/Coroutine.h
/// each make one, pass it to `Call::start`, and `take` the result:
///
///     const auto pending = std::make_shared<PendingCall<T>>(
///         [](PendingCall<T>& ended) { use(ended.take()); });
///     if (std::move(call).start(pending)) use(pending->take());  // it ended at once
///
/// The operation's callback keeps it alive until the operation answers. `forget` drops the receiver
/// earlier.
///
/// What ends a call, and what the receiver then takes:
///
///     the completion runs             its value and its error
///     the completion is dropped       "VXIMCallErrorDomain" 1, CallErrorAbandoned
///     `failure()` is called           the cause that the operation found
///     the limit has passed            "NSURLErrorDomain" -1001
///     a stop is requested             "NSURLErrorDomain" -999
///
/// Only the first of them counts; the others find the call finished and do nothing. A completion
/// that reports success while an `UntoldError` is set counts as a failure with that error.
template <class T>
class PendingCall : public std::enable_shared_from_this<PendingCall<T>> {
public:
    /// Called on the main queue, with no lock held. It gets the call itself, so that it can take
    /// the result. It may destroy the last owner of the call. An exception from it passes through
    /// the main queue, like one from any callback.
    using Receiver = std::function<void(PendingCall&)>;

    /// `receiver` is called once, on the main queue, when the result is ready for `take`. It is not
    /// called if `started` returns true, nor after `forget`.
    explicit PendingCall(Receiver receiver) : receiver_(std::move(receiver)) {}
    PendingCall(const PendingCall&) = delete;
    PendingCall& operator=(const PendingCall&) = delete;

    // The start, in this order: `begin`, then the operation with `completion()`, then
    // `expireAfter` if the call has a limit, then `started`. All four on the same thread.

    /// Prepares for a cancellation. Returns false if `stop` has already been requested; then do not
    /// start the operation, but call `started` (the result is -999). `transfer` is cancelled with
    /// the call; nullptr if the operation is not a transfer. An operation that is not a transfer
    /// cannot be cancelled: it continues, and its answer is dropped.
    bool begin(std::shared_ptr<VXIMTransfer> transfer, std::stop_token stop) {
        transfer_ = std::move(transfer);
        if (stop.stop_requested()) {
            // Later, because the receiver must not run inside the call that starts the operation.
            finishLater(urlError(URLErrorCancelled, "cancelled"));
            return false;
        }
        if (!stop.stop_possible()) return true;
        // Weakly: a token may live as long as the window that it belongs to.
        stopping_.emplace(std::move(stop), [weak = this->weak_from_this()] {
            // on the thread that requests the stop
            if (const auto self = weak.lock()) self->cancel();
        });
        return true;
    }

    /// The callback for the operation. If its last copy is destroyed without being called, the call
    /// counts as abandoned. It may be called on any thread, and keeps this object alive until then.
    /// If several copies are called, the first call counts.
    std::function<void(T, ErrorPtr)> completion() {
        return
            [answer = std::make_shared<Answer>(this->shared_from_this())](T value, ErrorPtr error) {
                if (!error) {
                    error = UntoldError::current();
                    if (error) value = T{};  // it only looks like a success
                }
                answer->give({std::move(value), std::move(error)});
            };
    }

    /// For an operation that finds out why its completion will not run: ends the call with the
    /// cause. Call it on any thread; an answer that came before it wins. It does not keep this
    /// object alive.
    FailureListener::Tell failure() {
        return [weak = this->weak_from_this()](const ErrorPtr& cause) {
            if (const auto self = weak.lock()) self->finish({T{}, cause});
        };
    }

    /// Ends the call with -1001 if it is still open after `limit`, by `Clock::shared()`. Cancels
    /// its transfer then. The timer does not keep this object alive. A limit of 0 or less ends
    /// it at the main queue's next turn, so an operation that answers at once still succeeds.
    void expireAfter(std::chrono::nanoseconds limit) {
        MainQueue::shared().after(limit, [weak = this->weak_from_this()] {
            if (const auto self = weak.lock()) self->expire();
        });
    }

    /// Returns true if the result is ready and this is the main thread: the caller can continue at
    /// once. If the result is ready on another thread, its delivery is queued.
    bool started() {
        auto phase = Phase::Starting;
        // from here on the receiver may run
        if (phase_.compare_exchange_strong(phase, Phase::Started)) return false;
        if (MainQueue::shared().isMainThread()) {
            // The caller takes the result itself.
            receiver_ = nullptr;
            return true;
        }
        MainQueue::shared().async([self = this->shared_from_this()] { self->deliver(); });
        return false;
    }

    // Main thread.

    /// The result, moved out. Call it once, after `started` has returned true or in the receiver.
    Result<T> take() { return *std::move(result_); }

    /// Nobody waits any more. Cancels a transfer; any other answer will be dropped. The receiver is
    /// destroyed here, with everything that it holds.
    void forget() {
        receiver_ = nullptr;
        if (transfer_ && !finished_) transfer_->cancel();
    }

private:
    /// `started` and `finish` may race on two threads; whoever comes second delivers.
    enum class Phase {
        /// the operation is being called; it may answer before it returns
        Starting,
        /// `started` has returned false, so the receiver gets the result
        Started,
        /// the result is there
        Finished
    };

    /// The one answer, shared by all copies of the completion.
    class Answer {
    public:
        /// Made once for each call. Keeps `call` alive until the answer is given or can no longer
        /// come.
        explicit Answer(std::shared_ptr<PendingCall> call) : call_(std::move(call)) {}
        Answer(const Answer&) = delete;
        Answer& operator=(const Answer&) = delete;
        ~Answer() {
            // This may run on any thread and under any lock, so report it through the queue. By
            // then the operation may have told `failure` the true cause.
            if (call_)
                call_->finishLater(Error::withDescription(kCallErrorDomain, CallErrorAbandoned,
                                                          "The operation was abandoned."));
        }
        /// Passes on the first result, and releases the call. Does nothing after that.
        void give(Result<T> result) {
            if (const auto call = std::exchange(call_, nullptr)) call->finish(std::move(result));
        }

    private:
        std::shared_ptr<PendingCall> call_;  // nullptr once it was given
    };

    /// The errors that end a call from outside have the domain and codes of a request that timed
    /// out or was cancelled.
    static ErrorPtr urlError(URLErrorCode code, const char* description) {
        return Error::withDescription(kURLErrorDomain, code, description);
    }

    /// The first result counts. The later ones are dropped here, such as the answer that comes
    /// after the limit. Any thread; on the main thread the receiver may run inside this call.
    void finish(Result<T> result) {
        // an operation of the application that answers on another thread
        if (!MainQueue::shared().isMainThread()) {
            MainQueue::shared().async([self = this->shared_from_this(),
                                       result = std::move(result)] { self->finish(result); });
            return;
        }
        if (finished_) return;
        finished_ = true;
        result_ = std::move(result);
        // If the operation is still being called, `started` continues.
        if (phase_.exchange(Phase::Finished) != Phase::Starting) deliver();
    }
    /// Queues the delivery, for places where the receiver must not run: under a lock, in a
    /// destructor. Any thread. An answer that comes before that wins.
    void finishLater(ErrorPtr error) {
        MainQueue::shared().async([self = this->shared_from_this(), error = std::move(error)] {
            self->finish({T{}, error});
        });
    }
    /// Calls the receiver, once. It is taken out first, because it may destroy this object's other
    /// owners, or wait for another call. Main thread.
    void deliver() {
        if (const auto receiver = std::exchange(receiver_, nullptr)) receiver(*this);
    }

    /// A stop was requested. Any thread. If a transfer cannot be cancelled any more, its answer is
    /// already on the way.
    void cancel() {
        if (!transfer_ || transfer_->cancel())
            finishLater(urlError(URLErrorCancelled, "cancelled"));
    }
    /// The limit has passed. The result is set first, so that the transfer's own answer, -999, is
    /// dropped. Main thread.
    void expire() {
        if (finished_) return;
        finish({T{}, urlError(URLErrorTimedOut, "The request timed out.")});
        if (transfer_) transfer_->cancel();
    }

    /// What can cancel the operation; nullptr if it is not a transfer. Set by the start, constant
    /// afterwards.
    std::shared_ptr<VXIMTransfer> transfer_;
    /// The only member that two threads may change at the same time.
    std::atomic<Phase> phase_{Phase::Starting};

    // Main thread.

    /// Empty once it was called, or nobody waits any more.
    Receiver receiver_;
    /// nullopt until the call has ended.
    std::optional<Result<T>> result_;
    /// Whether the result has come. It stays true after `take`, when later answers still arrive.
    bool finished_ = false;

    // The callback may run while this object is being destroyed, on another thread. So it is the
    // last member: it is destroyed first, and its destructor waits for a running callback.
    std::optional<std::stop_callback<std::function<void()>>> stopping_;
};

}  // namespace vexim::detail
