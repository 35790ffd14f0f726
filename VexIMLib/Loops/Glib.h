#pragma once

#include <glib.h>

#include <exception>
#include <functional>
#include <utility>

#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim {

/// Runs the main queue in a GLib main loop (GTK's, too), as long as this object lives. Each turn is
/// limited by `MainQueue::turnLimit()`; what is left runs after GTK has drawn.
///
///     vexim::GlibLoop loop;
///     g_main_loop_run(mainLoop);
///
/// A GTK program makes it before `g_application_run`, and then handles messages where it handles
/// clicks: widgets may be used in every callback.
///
/// The loop's thread becomes the main thread. Loops may be nested. Use one adapter at a time. Make
/// and destroy it on that thread; inside a callback is fine.
///
/// The constructor throws `std::system_error` if the process has no descriptors left. Between turns
/// the adapter only waits for the queue's descriptor and for the next deadline, so an idle queue
/// costs nothing.
///
/// Do not call `MainQueue::run` from another thread meanwhile. To move the queue to another loop,
/// destroy this adapter and make the next one: nothing that is queued gets lost.
class GlibLoop {
public:
    /// Receives an exception that leaves a callback, on the loop's thread. It must not throw. The
    /// queue is intact, and the rest of it runs in the next turn.
    using ExceptionHandler = std::function<void(std::exception_ptr)>;

    /// Starts to watch the queue; returns at once. `context` nullptr means the default one. GLib is
    /// written in C, so exceptions cannot pass through it: `handler` gets them. Without a handler
    /// the process is terminated.
    explicit GlibLoop(GMainContext* context = nullptr, ExceptionHandler handler = {}) {
        static GSourceFuncs functions{&prepare, &check, &dispatch, &finalize, nullptr, nullptr};
        source_ = reinterpret_cast<Source*>(g_source_new(&functions, sizeof(Source)));
        // GLib makes the source without a constructor, so it can only hold a pointer.
        source_->handler = new ExceptionHandler(std::move(handler));
        source_->tag =
            g_source_add_unix_fd(&source_->base, MainQueue::shared().fileDescriptor(), G_IO_IN);
        g_source_set_can_recurse(&source_->base, TRUE);  // callbacks may run a dialog's loop
        g_source_attach(&source_->base, context);
    }
    GlibLoop(const GlibLoop&) = delete;
    GlibLoop& operator=(const GlibLoop&) = delete;
    /// Stops watching. Queued functions stay in the queue, for another loop. A callback that runs
    /// now ends normally.
    ~GlibLoop() {
        g_source_destroy(&source_->base);
        g_source_unref(&source_->base);
    }

private:
    /// GLib allocates it, without constructors, and finds it by its first member.
    struct Source {
        GSource base;
        /// Owned; `finalize` deletes it, when GLib no longer uses the source.
        ExceptionHandler* handler;
        /// GLib's name for the descriptor.
        gpointer tag;
    };

    /// GLib asks before it polls: how long it may wait, and whether a turn is due at once.
    static gboolean prepare(GSource*, gint* timeout) {
        *timeout = MainQueue::shared().pollTimeout();
        return *timeout == 0;
    }
    /// GLib asks after it has polled: whether a turn is due.
    static gboolean check(GSource* base) {
        return MainQueue::shared().pollTimeout() == 0 ||
               g_source_query_unix_fd(base, reinterpret_cast<Source*>(base)->tag) != 0;
    }
    /// Runs what is due, for `MainQueue::turnLimit()` at most.
    static gboolean dispatch(GSource* base, GSourceFunc, gpointer) noexcept {
        try {
            const bool isRestLeft = MainQueue::shared().turn();
            // GLib runs no idle work while anything of a higher priority is ready, and GTK draws as
            // idle work (G_PRIORITY_HIGH_IDLE + 20).
            if (!g_source_is_destroyed(base))
                setPriority(base, isRestLeft ? G_PRIORITY_HIGH_IDLE + 30 : G_PRIORITY_DEFAULT);
        } catch (...) {
            const ExceptionHandler handler = *reinterpret_cast<Source*>(base)->handler;
            if (!handler) std::terminate();  // its message names the exception
            handler(std::current_exception());
        }
        return G_SOURCE_CONTINUE;
    }
    /// Changes it only if it differs, because GLib sorts its sources again.
    static void setPriority(GSource* base, gint priority) {
        if (g_source_get_priority(base) != priority) g_source_set_priority(base, priority);
    }
    /// GLib calls it once nothing uses the source any more, perhaps after the adapter is destroyed.
    static void finalize(GSource* base) { delete reinterpret_cast<Source*>(base)->handler; }

    /// One reference is ours, another one GLib's.
    Source* source_;
};

}  // namespace vexim
