#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <memory>
#include <utility>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim {

/// Drives the main queue from an asio loop while it lives, a turn at a time
/// (`MainQueue::turnLimit()`).
///
///     boost::asio::io_context io;
///     vexim::AsioLoop loop(io.get_executor());
///     io.run();  // has work as long as `loop` lives: end it with io.stop(), or by destroying
///     `loop`
///
/// The loop's thread becomes the main thread; let one thread run it. An exception from a callback
/// leaves `io.run()`, which may then be called again. Loops may be nested. One adapter at a time;
/// make and destroy it on the loop's thread or while no thread runs the loop, also inside a
/// callback, and before the loop itself goes.
class AsioLoop {
public:
    /// Runs what is queued already as soon as the loop runs.
    explicit AsioLoop(const boost::asio::any_io_executor& executor)
        : driver_(std::make_shared<Driver>(executor)) {
        driver_->awaitWake();
    }
    AsioLoop(const AsioLoop&) = delete;
    AsioLoop& operator=(const AsioLoop&) = delete;
    /// What is queued stays so, for another loop.
    ~AsioLoop() { driver_->stop(); }

private:
    class Driver : public std::enable_shared_from_this<Driver> {
    public:
        explicit Driver(const boost::asio::any_io_executor& executor)
            : descriptor_(executor, MainQueue::shared().fileDescriptor()),
              timer_(executor) {}
        ~Driver() { stop(); }

        void awaitWake() {
            descriptor_.async_wait(
                boost::asio::posix::stream_descriptor::wait_read,
                [weak = weak_from_this()](const boost::system::error_code& error) {
                    const auto self = weak.lock();
                    if (!self || error) return;
                    // before callbacks: one may throw, or run the loop
                    self->awaitWake();
                    self->turn();
                });
        }
        void stop() {
            if (std::exchange(stopped_, true)) return;
            descriptor_.release();  // it is the queue's
            timer_.cancel();
        }

    private:
        void turn() {
            // The descriptor tells of what a turn has left. The loop may call us before what came
            // due meanwhile, so it is let go once.
            if (std::exchange(yields_, false)) return;
            awaitDeadline();  // likewise
            yields_ = MainQueue::shared().turn();
            if (yields_) return static_cast<void>(timer_.cancel());
            awaitDeadline();
        }
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
        bool yields_ = false;
    };

    std::shared_ptr<Driver> driver_;
};

}  // namespace vexim
