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

/// Drives the main queue from a Qt event loop while it lives, a turn at a time
/// (`MainQueue::turnLimit()`).
///
///     QCoreApplication application(argc, argv);
///     vexim::QtLoop loop;
///     return application.exec();
///
/// The loop's thread becomes the main thread. Loops may be nested (a dialog's `exec()`). One
/// adapter at a time; make and destroy it on that thread, also inside a callback, while the
/// application object lives.
class QtLoop {
public:
    /// Hears what leaves a callback.
    using ExceptionHandler = std::function<void(std::exception_ptr)>;

    /// Qt lets no exception through its loop: `handler` gets it; without one, the process is
    /// terminated.
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
    /// What is queued stays so, for another loop.
    ~QtLoop() { driver_->stop(); }

private:
    struct Driver {
        explicit Driver(ExceptionHandler given) : handler(std::move(given)) {}

        void turn() noexcept {
            // The notifier tells of what a turn has left. The loop may call us before what came due
            // meanwhile, so it is let go once.
            if (std::exchange(yields, false)) return;
            awaitDeadline();  // before callbacks: one may run a loop
            try {
                yields = MainQueue::shared().turn();
                if (yields) return timer.stop();
            } catch (...) {
                if (!handler) std::terminate();  // which names the exception
                handler(std::current_exception());
            }
            awaitDeadline();
        }
        void awaitDeadline() {
            const int timeout = stopped ? -1 : MainQueue::shared().pollTimeout();
            if (timeout < 0) return timer.stop();
            timer.start(timeout);
        }
        void stop() {
            stopped = true;
            notifier.setEnabled(false);
            timer.stop();
        }

        QSocketNotifier notifier{MainQueue::shared().fileDescriptor(), QSocketNotifier::Read};
        QTimer timer;
        ExceptionHandler handler;
        bool stopped = false;
        bool yields = false;
    };

    std::shared_ptr<Driver> driver_;
};

}  // namespace vexim
