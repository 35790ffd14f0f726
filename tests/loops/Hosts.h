#pragma once

// One host class for each event loop, all with the same interface. `run` runs the loop until the
// predicate is true; a callback may call it, too. `adapter` can be destroyed and made again.
// `caught` keeps the last exception that left a callback. `after` starts a timer of the loop.

#include "VexIMLib/Loops/Asio.h"
#if defined(VEXIM_TEST_GLIB_AND_QT)
#include "VexIMLib/Loops/Glib.h"
#include "VexIMLib/Loops/Qt.h"

#include <QCoreApplication>
#endif

#include <poll.h>

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace vexim::testing {

using Predicate = std::function<bool()>;

struct AsioHost {
    static constexpr const char* kName = "asio";
    void attach() { adapter.emplace(io.get_executor()); }
    void detach() { adapter.reset(); }
    void run(const Predicate& done) {
        while (!done()) {
            io.restart();
            try {
                io.run_one();
            } catch (...) {
                caught = std::current_exception();
            }
        }
    }

    void after(std::chrono::milliseconds delay, std::function<void()> then) {
        timer.expires_after(delay);
        timer.async_wait([then = std::move(then)](const boost::system::error_code&) { then(); });
    }

    boost::asio::io_context io;
    boost::asio::steady_timer timer{io};
    std::optional<AsioLoop> adapter;
    std::exception_ptr caught;
};

#if defined(VEXIM_TEST_GLIB_AND_QT)
struct GlibHost {
    static constexpr const char* kName = "GLib";
    void attach() {
        adapter.emplace(nullptr, [this](std::exception_ptr thrown) { caught = std::move(thrown); });
    }
    void detach() { adapter.reset(); }
    void run(const Predicate& done) {
        while (!done()) g_main_context_iteration(nullptr, TRUE);
    }

    /// The timer has the priority with which GTK draws.
    void after(std::chrono::milliseconds delay, std::function<void()> then) {
        const auto call = [](gpointer given) -> gboolean {
            const std::unique_ptr<std::function<void()>> function(
                static_cast<std::function<void()>*>(given));
            (*function)();
            return G_SOURCE_REMOVE;
        };
        g_timeout_add_full(G_PRIORITY_HIGH_IDLE + 20, static_cast<guint>(delay.count()), call,
                           new std::function<void()>(std::move(then)), nullptr);
    }

    std::optional<GlibLoop> adapter;
    std::exception_ptr caught;
};

struct QtHost {
    static constexpr const char* kName = "Qt";
    void attach() {
        adapter.emplace([this](std::exception_ptr thrown) { caught = std::move(thrown); });
    }
    void detach() { adapter.reset(); }
    void run(const Predicate& done) {
        while (!done())
            QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }

    void after(std::chrono::milliseconds delay, std::function<void()> then) {
        QTimer::singleShot(delay, Qt::PreciseTimer, std::move(then));
    }

    int count = 1;
    char name[5] = "test";
    char* arguments[2] = {name, nullptr};
    QCoreApplication application{count, arguments};
    std::optional<QtLoop> adapter;
    std::exception_ptr caught;
};

#endif

/// No adapter: like a program with its own loop.
struct PollHost {
    static constexpr const char* kName = "poll";
    void attach() { attached = true; }
    void detach() { attached = false; }
    void run(const Predicate& done) {
        auto& queue = MainQueue::shared();
        while (!done()) {
            if (timer && std::chrono::steady_clock::now() >= due) std::exchange(timer, nullptr)();
            pollfd waiting{attached ? queue.fileDescriptor() : -1, POLLIN, 0};
            ::poll(&waiting, 1, attached ? queue.pollTimeout() : 1);
            if (!attached) continue;
            try {
                queue.turn();
            } catch (...) {
                caught = std::current_exception();
            }
        }
    }

    void after(std::chrono::milliseconds delay, std::function<void()> then) {
        due = std::chrono::steady_clock::now() + delay;
        timer = std::move(then);
    }

    bool attached = false;
    std::exception_ptr caught;
    std::chrono::steady_clock::time_point due;
    std::function<void()> timer;
};

}  // namespace vexim::testing
