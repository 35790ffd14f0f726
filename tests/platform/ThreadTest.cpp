#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "VexIMLib/internal/Platform/Threads/HostResolver.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"
#include "VexIMLib/internal/Platform/Threads/OperationQueue.h"
#include "support/Eventually.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;

/// Runs `function` on the network thread and waits for it.
void onNetworkThread(const std::function<void()>& function) {
    std::promise<void> done;
    NetworkThread::shared().post([&] {
        function();
        done.set_value();
    });
    done.get_future().get();
}

TEST(NetworkThread, RunsEveryPostInItsPostersOrder) {
    constexpr int kPosters = 4;
    constexpr int kPosts = 2000;
    std::vector<int> last(kPosters, -1);
    std::atomic<int> outOfOrder{0};
    std::vector<std::thread> posters;
    for (int poster = 0; poster < kPosters; ++poster) {
        posters.emplace_back([&, poster] {
            for (int i = 0; i < kPosts; ++i) {
                NetworkThread::shared().post([&, poster, i] {
                    int& before = last[static_cast<std::size_t>(poster)];
                    if (before != i - 1 || !NetworkThread::shared().isCurrent()) ++outOfOrder;
                    before = i;
                });
            }
        });
    }
    for (auto& poster : posters) poster.join();
    onNetworkThread([] {});
    EXPECT_EQ(outOfOrder, 0);
    for (const int each : last) EXPECT_EQ(each, kPosts - 1);
    EXPECT_FALSE(NetworkThread::shared().isCurrent());
}

TEST(NetworkThread, LeavesSignalsToTheApplicationsThreads) {
    sigset_t blocked;
    onNetworkThread([&] { ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked); });
    for (const int signal : {SIGTERM, SIGPIPE}) EXPECT_TRUE(sigismember(&blocked, signal));
    EXPECT_FALSE(sigismember(&blocked, SIGSEGV)) << "a fault of the thread's own";
}

TEST(NetworkTimer, CallsOnceWhatWasStartedLast) {
    std::promise<int> due;
    std::atomic<int> wrong{0};
    std::unique_ptr<NetworkTimer> timer, later;
    onNetworkThread([&] {
        later = std::make_unique<NetworkTimer>();
        later->start(0ns, [&] { ++wrong; });
        later->start(1h, [&] { ++wrong; });
        NetworkTimer cancelled;
        cancelled.start(0ns, [&] { ++wrong; });
        {
            NetworkTimer destroyed;
            destroyed.start(0ns, [&] { ++wrong; });
        }
        timer = std::make_unique<NetworkTimer>();
        timer->start(0ns, [&] { ++wrong; });
        timer->start(1ms, [&] {
            EXPECT_FALSE(timer->isPending());
            timer->start(1ms, [&] { due.set_value(2); });  // from inside its own call
        });
        cancelled.cancel();
        EXPECT_FALSE(cancelled.isPending());
        EXPECT_TRUE(timer->isPending());
    });
    EXPECT_EQ(due.get_future().get(), 2);
    onNetworkThread([&] { timer = nullptr, later = nullptr; });
    EXPECT_EQ(wrong, 0);
}

TEST(OperationQueue, RunsOneAtATimeAndOutlivesItsOwner) {
    std::promise<void> done;
    std::atomic<int> running{0};
    std::atomic<int> overlaps{0};
    std::vector<int> order;
    auto queue = OperationQueue::create("a-name-of-30-bytes-is-cut-short");
    queue->addOperation([&] {
        char name[16] = {};
        ::pthread_getname_np(::pthread_self(), name, sizeof name);
        EXPECT_STREQ(name, "a-name-of-30-by");
    });
    for (int i = 0; i < 100; ++i) {
        queue->addOperation([&, i] {
            if (++running > 1) ++overlaps;
            order.push_back(i);
            --running;
        });
    }
    EXPECT_FALSE(queue->isCurrent());
    // The last owner is released on the queue's own thread.
    OperationQueue& last = *queue;
    last.addOperation([&, own = std::move(queue)]() mutable {
        EXPECT_TRUE(own->isCurrent());
        own->addOperation([&] { done.set_value(); });
        own = nullptr;
    });
    done.get_future().get();
    EXPECT_EQ(overlaps, 0);
    EXPECT_EQ(order.size(), 100u);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(OperationQueue, RunsOnTheCallersThreadOnlyWhereNothingIsBefore) {
    const auto here = std::this_thread::get_id();
    auto queue = OperationQueue::create("test");
    std::vector<int> order;
    queue->runOrAdd([&] {
        EXPECT_EQ(std::this_thread::get_id(), here);
        EXPECT_TRUE(queue->isCurrent());
        queue->runOrAdd([&] {
            EXPECT_NE(std::this_thread::get_id(), here) << "the first one runs still";
            order.push_back(1);
        });
        order.push_back(0);
    });
    EXPECT_FALSE(queue->isCurrent());
    std::promise<void> begun, release, done;
    queue->addOperation([&] {
        begun.set_value();
        release.get_future().get();
        order.push_back(2);
    });
    begun.get_future().get();
    // is queued behind the operation that is running, and does not wait for it
    queue->runOrAdd([&] { order.push_back(3); });
    queue->addOperation([&] {
        order.push_back(4);
        done.set_value();
    });
    release.set_value();
    done.get_future().get();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));

    // From many threads: still one at a time, none lost, and the last ones outlive the queue.
    std::atomic<int> running{0}, overlaps{0}, ran{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&, own = queue] {
            const auto operation = [&] {
                if (++running > 1) ++overlaps;
                --running;
                ++ran;
            };
            for (int n = 0; n < 500; ++n)
                n % 2 ? own->runOrAdd(operation) : own->addOperation(operation);
        });
    }
    queue = nullptr;
    for (auto& caller : callers) caller.join();
    EXPECT_TRUE(spinUntil([&] { return ran == 2000; }));
    EXPECT_EQ(overlaps, 0);
}

/// How many threads of this process have this name.
std::ptrdiff_t threadsNamed(const std::string& name) {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return std::count_if(begin(threads), end(threads), [&](const auto& thread) {
        std::string own;
        return std::getline(std::ifstream(thread.path() / "comm"), own) && own == name;
    });
}

TEST(OperationQueue, KeepsItsOrderAndNoThreadBehindIt) {
    for (int i = 0; i < 200; ++i) {
        const auto queue = OperationQueue::create("left-behind");
        std::atomic<bool> isFirstDone{false};
        std::promise<bool> secondRan;
        queue->addOperation([&] { isFirstDone = true; });
        queue->runOrAdd([&] { secondRan.set_value(isFirstDone); });
        ASSERT_TRUE(secondRan.get_future().get()) << "nothing overtakes what is in line";
    }
    EXPECT_TRUE(spinUntil([] { return threadsNamed("left-behind") == 0; }));
}

TEST(HostResolver, KnowsTheNamesOfThisMachine) {
    for (const char* own : {"localhost", "a.localhost", "127.0.0.1", "127.1.2.3", "::1"})
        EXPECT_TRUE(isThisMachine(own)) << own;
    for (const char* other : {"", "127.a.example", "1.127.0.0", "localhost.example", "::2"})
        EXPECT_FALSE(isThisMachine(other)) << other;
}

TEST(HostResolver, AnswersOnTheNetworkThreadUnlessDropped) {
    struct Case {
        const char* host;
        bool found;
    };
    for (const Case& each : {Case{"127.0.0.1", true}, Case{"::1", true}, Case{"localhost", true},
                             Case{"name.invalid", false}}) {
        std::promise<std::pair<std::vector<std::string>, ErrorPtr>> answer;
        std::unique_ptr<HostResolver::Lookup> lookup;
        onNetworkThread([&] {
            lookup = HostResolver::system().resolve(
                each.host, [&](std::vector<std::string> addresses, ErrorPtr error) {
                    EXPECT_TRUE(NetworkThread::shared().isCurrent());
                    EXPECT_TRUE(lookup) << "never before resolve has returned";
                    answer.set_value({std::move(addresses), std::move(error)});
                });
        });
        const auto [addresses, error] = answer.get_future().get();
        EXPECT_EQ(!addresses.empty(), each.found) << each.host;
        EXPECT_EQ(error == nullptr, each.found) << each.host;
        EXPECT_TRUE(each.found || error->is(kURLErrorDomain, URLErrorCannotFindHost));
    }
    std::atomic<int> calls{0};
    // dropped at once
    onNetworkThread(
        [&] { HostResolver::system().resolve("127.0.0.1", [&](auto, auto) { ++calls; }); });
    onNetworkThread([] {});
    EXPECT_EQ(calls, 0);
}

}  // namespace
}  // namespace vexim::testing
