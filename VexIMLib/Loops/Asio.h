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
    class Driver : public std::enable_shared_from_this<Driver> {
    public:
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
            if (yields_) return static_cast<void>(timer_.cancel());
            awaitDeadline();
        }
        /// Sets the timer to the queue's next deadline, or stops it if there is none.
        void awaitDeadline() {
            if (stopped_) return;
            const auto deadline = MainQueue::shared().nextDeadline();
            if (!deadline) return static_cast<void>(timer_.cancel());
            timer_.expires_after(*deadline - Clock::shared()->now());
            timer_.async_wait([weak = weak_from_this()](const boost::system::error_code& error) {
                const auto self = weak.lock();
                if (self && !error) self->turn();
            });
        }

        boost::asio::posix::stream_descriptor descriptor_;
        boost::asio::steady_timer timer_;
        bool stopped_ = false;
        bool yields_ = false;  // the last turn left work, so the loop's own comes first
    };

    std::shared_ptr<Driver> driver_;
};

}  // namespace vexim
