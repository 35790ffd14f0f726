#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <memory>
#include <utility>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim {

/// Runs the main queue in an asio loop, as long as this object lives. Each turn is limited by
/// `MainQueue::turnLimit()`.
///
///     boost::asio::io_context io;
///     vexim::AsioLoop loop(io.get_executor());
///     io.run();  // runs as long as `loop` lives: end it by io.stop(), or destroy `loop`
///
/// A program that uses asio already needs nothing else: its own handlers and the library's
/// callbacks then run on one thread, one at a time, and need no locks between them.
///
/// The loop's thread becomes the main thread; only one thread may run it. An exception from a
/// callback leaves `io.run()`, which you may then call again. Loops may be nested. Use one adapter
/// at a time. Make and destroy it on the loop's thread (inside a callback is fine) or while no
/// thread runs the loop, and destroy it before the loop.
///
/// The constructor throws `std::system_error` if the process has no descriptors left. Between turns
/// the adapter only waits for the queue's descriptor and for the next deadline, so an idle queue
/// costs nothing.
///
/// Install no other driver for the queue meanwhile: do not call `MainQueue::run` from another
/// thread. Asio must be able to watch descriptors, as it is on every POSIX system. To move the
/// queue to another loop, destroy this adapter and make the next one: nothing that is queued gets
/// lost.
class AsioLoop {
public:
    /// Starts to watch the queue; returns at once. Functions that are already queued run as soon as
    /// the loop runs. `executor` must belong to a context that runs on one thread.
    explicit AsioLoop(const boost::asio::any_io_executor& executor)
        : driver_(std::make_shared<Driver>(executor)) {
        driver_->awaitWake();
    }
    AsioLoop(const AsioLoop&) = delete;
    AsioLoop& operator=(const AsioLoop&) = delete;
    /// Stops watching. Queued functions stay in the queue, for another loop. The queue's descriptor
    /// stays open.
    ~AsioLoop() { driver_->stop(); }

private:
    /// What waits. It is shared because a callback may destroy the adapter: the driver then lives
    /// until that callback has returned. Asio's own callbacks hold it weakly.
    class Driver : public std::enable_shared_from_this<Driver> {
    public:
        /// Makes the queue's descriptor if there is none yet, which may throw.
        explicit Driver(const boost::asio::any_io_executor& executor)
            : descriptor_(executor, MainQueue::shared().fileDescriptor()),
              timer_(executor) {}
        ~Driver() { stop(); }

        /// Waits for the descriptor, which becomes readable when something is queued.
        void awaitWake() {
            descriptor_.async_wait(
                boost::asio::posix::stream_descriptor::wait_read,
                [weak = weak_from_this()](const boost::system::error_code& error) {
                    const auto self = weak.lock();
                    if (!self || error) return;
                    // before the callbacks, because one may throw or run the loop
                    self->awaitWake();
                    self->turn();
                });
        }
        /// Ends both waits. Their handlers are then called with an error, and do nothing.
        void stop() {
            if (std::exchange(stopped_, true)) return;
            descriptor_.release();  // it belongs to the queue
            timer_.cancel();
        }

    private:
        /// Runs what is due, for `MainQueue::turnLimit()` at most.
        void turn() {
            // After a turn that left work, the descriptor is readable. The loop may then call us
            // before its own work that became due meanwhile, so skip one call.
            if (std::exchange(yields_, false)) return;
            awaitDeadline();  // before the callbacks, as above
            yields_ = MainQueue::shared().turn();
            // With the timer as well, the loop would call us twice for the same work.
            if (yields_) return static_cast<void>(timer_.cancel());
            awaitDeadline();
        }
        /// Sets the timer to the queue's next deadline, or stops it if there is none.
        void awaitDeadline() {
            if (stopped_) return;
            const auto deadline = MainQueue::shared().nextDeadline();
            if (!deadline) return static_cast<void>(timer_.cancel());
            // Waits by asio's clock for as long as ours says. A test that advances ours wakes the
            // queue.
            timer_.expires_after(*deadline - Clock::shared()->now());
            timer_.async_wait([weak = weak_from_this()](const boost::system::error_code& error) {
                const auto self = weak.lock();
                if (self && !error) self->turn();
            });
        }

        /// The queue's, only borrowed.
        boost::asio::posix::stream_descriptor descriptor_;
        /// For the next delayed function.
        boost::asio::steady_timer timer_;
        /// The adapter is gone.
        bool stopped_ = false;
        /// The last turn left work, so the loop's own comes first.
        bool yields_ = false;
    };

    std::shared_ptr<Driver> driver_;
};

}  // namespace vexim
