#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <thread>
#include <utility>
#include <vector>

#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/Platform/Threads/ClockTimer.h"
#include "VexIMLib/internal/Platform/Threads/LibraryThreads.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThreadAsio.h"

namespace vexim {

namespace asio = boost::asio;

struct NetworkThread::Impl {
    asio::io_context context{1};
    asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
    std::atomic<std::thread::id> id;

    Mutex mutex;
    std::vector<Function> inbox VEXIM_GUARDED_BY(mutex);
    std::vector<Function> batch;  // network thread only; keeps its capacity
    std::shared_ptr<void> clockListener;

    void drain() {
        {
            const MutexLock lock(mutex);
            batch.swap(inbox);
        }
        for (auto& function : batch) {
            function();
            function = nullptr;
        }
        batch.clear();
    }
};

NetworkThread& NetworkThread::shared() {
    static auto* const instance = new NetworkThread;
    return *instance;
}

NetworkThread::NetworkThread() : impl_(std::make_unique<Impl>()) {
    LibraryThreads::start(
        "vexim-network", LibraryThreads::AtExit::Await,
        [impl = impl_.get()] {
            impl->id = std::this_thread::get_id();
            impl->context.run();
        },
        // After everything posted before, so that a message posted right before the exit is still
        // sent.
        [this] { post([impl = impl_.get()] { impl->context.stop(); }); });
    impl_->clockListener = detail::onClockTurned([this](std::shared_ptr<void> checking) {
        post([impl = impl_.get(), checking = std::move(checking)] {
            checkClock(impl->context, checking);
        });
    });
}

NetworkThread::~NetworkThread() = default;

void NetworkThread::post(Function function) {
    {
        const MutexLock lock(impl_->mutex);
        impl_->inbox.push_back(std::move(function));
        if (impl_->inbox.size() > 1) return;  // the first poster has already woken the thread
    }
    asio::post(impl_->context, [impl = impl_.get()] { impl->drain(); });
}

bool NetworkThread::isCurrent() const noexcept { return impl_->id == std::this_thread::get_id(); }

asio::io_context& NetworkThreadAsio::ioContext() { return NetworkThread::shared().impl_->context; }

struct NetworkTimer::Impl : std::enable_shared_from_this<NetworkTimer::Impl> {
    asio::steady_timer byRealTime{NetworkThreadAsio::ioContext()};
    ClockTimer byClock{NetworkThreadAsio::ioContext()};
    NetworkThread::Function function;  // empty: nothing is pending
    // distinguishes an outdated call from the current one
    std::uint64_t round = 0;

    void wait(auto& timer, NetworkThread::Function then) {
        function = std::move(then);
        timer.async_wait(
            [weak = weak_from_this(), current = round](const boost::system::error_code&) {
                const auto self = weak.lock();
                if (!self || self->round != current) return;
                if (const auto due = std::exchange(self->function, nullptr)) due();
            });
    }
};

NetworkTimer::NetworkTimer() : impl_(std::make_shared<Impl>()) {}
NetworkTimer::~NetworkTimer() { cancel(); }

void NetworkTimer::start(std::chrono::nanoseconds delay, NetworkThread::Function function) {
    cancel();
    impl_->byRealTime.expires_after(delay);
    impl_->wait(impl_->byRealTime, std::move(function));
}

void NetworkTimer::startAt(Clock::TimePoint deadline, NetworkThread::Function function) {
    cancel();
    impl_->byClock.expires_at(deadline);
    impl_->wait(impl_->byClock, std::move(function));
}

void NetworkTimer::cancel() {
    ++impl_->round;
    impl_->function = nullptr;
    impl_->byRealTime.cancel();
    impl_->byClock.cancel();
}

bool NetworkTimer::isPending() const noexcept { return impl_->function != nullptr; }

}  // namespace vexim
