#pragma once

// One host a loop, all alike: `run` turns the loop until the predicate holds, also inside a callback; `adapter` can be destroyed
// and made anew; what leaves a callback is kept in `caught`.

#include "VexIMLib/Loops/Asio.h"
#if defined(VEXIM_TEST_GLIB_AND_QT)
#include "VexIMLib/Loops/Glib.h"
#include "VexIMLib/Loops/Qt.h"

#include <QCoreApplication>
#endif

#include <poll.h>

#include <boost/asio/io_context.hpp>
#include <exception>
#include <functional>
#include <optional>

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

    boost::asio::io_context io;
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
        while (!done()) QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }

    int count = 1;
    char name[5] = "test";
    char* arguments[2] = {name, nullptr};
    QCoreApplication application{count, arguments};
    std::optional<QtLoop> adapter;
    std::exception_ptr caught;
};

#endif

/// No adapter: what a program with a loop of its own does.
struct PollHost {
    static constexpr const char* kName = "poll";
    void attach() { attached = true; }
    void detach() { attached = false; }
    void run(const Predicate& done) {
        auto& queue = MainQueue::shared();
        while (!done()) {
            pollfd waiting{attached ? queue.fileDescriptor() : -1, POLLIN, 0};
            ::poll(&waiting, 1, attached ? queue.pollTimeout() : 1);
            if (!attached) continue;
            try {
                queue.drain();
            } catch (...) {
                caught = std::current_exception();
            }
        }
    }

    bool attached = false;
    std::exception_ptr caught;
};

}  // namespace vexim::testing
