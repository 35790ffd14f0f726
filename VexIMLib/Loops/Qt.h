#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>
#include <exception>
#include <functional>
#include <memory>
#include <utility>

#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim {

/// Runs the main queue in a Qt event loop, as long as this object lives. Each turn is limited by
/// `MainQueue::turnLimit()`.
///
///     QCoreApplication application(argc, argv);
///     vexim::QtLoop loop;
///     return application.exec();
///
/// Callbacks then run where Qt's slots run, so they may use widgets and models directly.
///
/// The loop's thread becomes the main thread. Loops may be nested (a dialog's `exec()`). Use one
/// adapter at a time. Make and destroy it on that thread, while the application object lives;
/// inside a callback is fine.
///
/// The constructor throws `std::system_error` if the process has no descriptors left. Between turns
/// the adapter only waits for the queue's descriptor and for the next deadline, so an idle queue
/// costs nothing.
///
/// Do not call `MainQueue::run` from another thread meanwhile. To move the queue to another loop,
/// destroy this adapter and make the next one: nothing that is queued gets lost. No moc is needed.
class QtLoop {
public:
    /// Receives an exception that leaves a callback, on the loop's thread. It must not throw. The
    /// queue is intact, and the rest of it runs in the next turn.
    using ExceptionHandler = std::function<void(std::exception_ptr)>;

    /// Starts to watch the queue; returns at once. Exceptions cannot pass through Qt's loop:
    /// `handler` gets them. Without a handler the process is terminated.
    explicit QtLoop(ExceptionHandler handler = {})
        : driver_(std::make_shared<Driver>(std::move(handler))) {
        // The driver outlives a callback that destroys the adapter.
        const auto turn = [weak = std::weak_ptr(driver_)] {
            if (const auto driver = weak.lock()) driver->turn();
        };
        QObject::connect(&driver_->notifier, &QSocketNotifier::activated, turn);
        QObject::connect(&driver_->timer, &QTimer::timeout, turn);
        driver_->timer.setSingleShot(true);
        driver_->timer.setTimerType(Qt::PreciseTimer);
    }
    QtLoop(const QtLoop&) = delete;
    QtLoop& operator=(const QtLoop&) = delete;
    /// Stops watching. Queued functions stay in the queue, for another loop. A callback that runs
    /// now ends normally.
    ~QtLoop() { driver_->stop(); }

private:
    /// What waits. It is shared because a callback may destroy the adapter: the driver then lives
    /// until that callback has returned. Qt's connections hold it weakly.
    struct Driver {
        /// Makes the queue's descriptor if there is none yet, which may throw.
        explicit Driver(ExceptionHandler given) : handler(std::move(given)) {}

        /// Runs what is due, for `MainQueue::turnLimit()` at most.
        void turn() noexcept {
            // After a turn that left work, the notifier fires. The loop may then call us before its
            // own work that became due meanwhile, so skip one call.
            if (std::exchange(yields, false)) return;
            awaitDeadline();  // before the callbacks, because one may run a loop
            try {
                yields = MainQueue::shared().turn();
                // With the timer as well, the loop would call us twice for the same work.
                if (yields) return timer.stop();
            } catch (...) {
                if (!handler) std::terminate();  // its message names the exception
                handler(std::current_exception());
            }
            awaitDeadline();
        }
        /// Sets the timer to the queue's next deadline, or stops it if there is none.
        void awaitDeadline() {
            const int timeout = stopped ? -1 : MainQueue::shared().pollTimeout();
            if (timeout < 0) return timer.stop();
            timer.start(timeout);
        }
        /// Ends both waits at once.
        void stop() {
            stopped = true;
            notifier.setEnabled(false);
            timer.stop();
        }

        /// Fires when the queue gets something to run.
        QSocketNotifier notifier{MainQueue::shared().fileDescriptor(), QSocketNotifier::Read};
        /// For the next delayed function.
        QTimer timer;
        /// May be empty.
        ExceptionHandler handler;
        /// The adapter is gone.
        bool stopped = false;
        /// The last turn left work, so the loop's own comes first.
        bool yields = false;
    };

    std::shared_ptr<Driver> driver_;
};

}  // namespace vexim
