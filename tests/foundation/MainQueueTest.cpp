#include "VexIMLib/Foundation/MainQueue.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>

#include "VexIMLib/Testing/ManualClock.h"
#include "support/Eventually.h"

using namespace vexim;
using namespace std::chrono_literals;
using vexim::testing::eventually;
using vexim::testing::ManualClock;

namespace {

MainQueue& queue() { return MainQueue::shared(); }

/// Each test begins and ends with an empty queue.
class MainQueueTest : public ::testing::Test {
protected:
    void SetUp() override { queue().drain(); }
    void TearDown() override {
        queue().setWake(nullptr);
        queue().setTurnLimit(4ms);
        EXPECT_EQ(clock.advanceAndDrain(24h), 0u);
    }
    void say(const char* word) {
        queue().async([this, word] { said += word; });
    }

    ManualClock clock;
    std::string said;
};

}  // namespace

TEST_F(MainQueueTest, DrainRunsWhatWasThereAndNotWhatThatAdds) {
    say("a");
    queue().async([&] {
        said += "b";
        say("d");
    });
    say("c");
    EXPECT_EQ(queue().drain(), 3u);
    EXPECT_EQ(said, "abc");
    EXPECT_EQ(queue().drain(), 1u);
    EXPECT_EQ(said, "abcd");
}

TEST_F(MainQueueTest, DrainInsideAFunctionRunsTheRestOfTheLine) {
    say("a");
    queue().async([&] {
        said += "(";
        say("d");
        queue().drain();
        said += ")";
        say("e");
    });
    say("b");
    queue().drain();
    EXPECT_EQ(said, "a(bd)");
    queue().drain();
    EXPECT_EQ(said, "a(bd)e");
}

TEST_F(MainQueueTest, AnExceptionLeavesTheRestAndTellsTheHost) {
    int wakes = 0;
    queue().setWake([&] { ++wakes; });
    queue().async([] { throw std::runtime_error("the application's"); });
    say("b");
    EXPECT_EQ(wakes, 1) << "told once for both";
    EXPECT_THROW(queue().drain(), std::runtime_error);
    EXPECT_EQ(wakes, 2) << "there is more to run";
    queue().drain();
    EXPECT_EQ(said, "b");
    queue().async([] { throw std::runtime_error("again"); });
    EXPECT_THROW((void)eventually([] { return false; }), std::runtime_error);
}

TEST_F(MainQueueTest, ATurnLeavesTheRestInLineAndTellsTheHost) {
    int wakes = 0;
    queue().setWake([&] { ++wakes; });
    queue().setTurnLimit(0ns);
    say("a");
    int left = 3;
    detail::asyncSteps([&] {
        said += "s";
        return --left > 0;
    });
    say("b");
    std::string turns;
    while (queue().turn()) turns += said + " ";
    EXPECT_EQ(turns, "a as ass asss ") << "what is not through keeps its place";
    EXPECT_EQ(said, "asssb");
    EXPECT_EQ(wakes, 5) << "for each turn";
    EXPECT_EQ(queue().pollTimeout(), -1);
    queue().setTurnLimit(-1ns);
    EXPECT_EQ(queue().turnLimit(), 0ns);
    bool isOver[2] = {};
    queue().async([&] {
        queue().drain();
        isOver[0] = detail::isTurnOver();
    });
    queue().turn();
    EXPECT_TRUE(isOver[0]) << "a loop inside leaves the turn its end";
    queue().async([&] {
        detail::asyncSteps([] { return false; });
        EXPECT_FALSE(queue().runUntil([] { return false; }, 0ns));
        isOver[1] = detail::isTurnOver();
    });
    queue().drain();
    EXPECT_FALSE(isOver[1]) << "and a drain none";
    queue().setTurnLimit(std::chrono::nanoseconds::max());
    wakes = 0;
    say("c");
    queue().async([&] { say("d"); });
    EXPECT_TRUE(queue().turn()) << "what was added waits for the next one";
    EXPECT_FALSE(queue().turn());
    EXPECT_EQ(said, "asssbcd");
}

TEST_F(MainQueueTest, AStepGoesOnWherePredicatesLoopsAndExceptionsComeBetween) {
    int steps = 0;
    bool throws = false;
    bool nests = false;
    const auto countTo = [&](int most) {
        steps = 0;
        detail::asyncSteps([&, most] {
            if (steps == most) return false;  // a nested run has done all of them
            ++steps;
            if (std::exchange(throws, false)) throw std::runtime_error("the application's");
            if (std::exchange(nests, false)) {
                EXPECT_TRUE(eventually([&] { return steps == most; }));
            }
            return steps < most;
        });
        say("!");
    };
    countTo(3);
    EXPECT_TRUE(eventually([&] { return steps == 2; })) << "asked after each";
    EXPECT_EQ(said, "");
    queue().drain();
    EXPECT_EQ(steps, 3);
    EXPECT_EQ(said, "!");
    throws = true;
    countTo(2);
    EXPECT_THROW(queue().drain(), std::runtime_error);
    EXPECT_EQ(said, "!");
    queue().drain();
    EXPECT_EQ(steps, 2);
    EXPECT_EQ(said, "!!");
    nests = true;
    countTo(4);
    EXPECT_EQ(queue().drain(), 2u) << "the other steps ran inside the first";
    EXPECT_EQ(said, "!!!");
}

TEST_F(MainQueueTest, DelayedFunctionsRunByDeadlineAndThenInTheOrderGiven) {
    auto later = [&](std::chrono::nanoseconds delay, const char* word) {
        queue().after(delay, [this, word] { said += word; });
    };
    later(2s, "c");
    later(1s, "a");
    later(2s, "d");
    later(1s, "b");
    later(0s, "0");
    EXPECT_EQ(queue().drain(), 1u);
    EXPECT_EQ(queue().nextDeadline(), clock.now() + 1s);
    clock.advanceAndDrain(1s - 1ns);
    EXPECT_EQ(said, "0");
    clock.advanceAndDrain(1ns);
    EXPECT_EQ(said, "0ab");
    clock.advanceAndDrain(1h);
    EXPECT_EQ(said, "0abcd");
    EXPECT_EQ(queue().nextDeadline(), std::nullopt);
}

TEST_F(MainQueueTest, WakesTheHostForAnEarlierDeadlineOnly) {
    int wakes = 0;
    queue().setWake([&] { ++wakes; });
    queue().after(10s, [] {});
    queue().after(20s, [] {});
    EXPECT_EQ(wakes, 1);
    queue().after(5s, [] {});
    EXPECT_EQ(wakes, 2);
    EXPECT_EQ(clock.advanceAndDrain(20s), 3u);
}

TEST_F(MainQueueTest, TheDescriptorIsReadableWhileThereIsSomethingToDrain) {
    const auto isReadable = [] {
        pollfd descriptor{queue().fileDescriptor(), POLLIN, 0};
        return poll(&descriptor, 1, 0) == 1;
    };
    (void)queue().fileDescriptor();
    queue().drain();
    EXPECT_FALSE(isReadable());
    EXPECT_EQ(queue().pollTimeout(), -1);
    queue().async([&] { say("later"); });
    EXPECT_EQ(queue().pollTimeout(), 0);
    EXPECT_TRUE(isReadable());
    queue().drain();
    EXPECT_TRUE(isReadable()) << "for what the first added";
    queue().drain();
    EXPECT_FALSE(isReadable());

    queue().after(1500us, [] { throw std::runtime_error("the application's"); });
    EXPECT_TRUE(isReadable()) << "an earlier deadline";
    queue().after(1500us, [this] { said += "rest"; });
    queue().drain();
    EXPECT_FALSE(isReadable());
    EXPECT_EQ(queue().pollTimeout(), 2) << "rounded up, or the host would turn in vain";
    clock.advance(1500us);
    EXPECT_EQ(queue().pollTimeout(), 0);
    EXPECT_THROW(queue().drain(), std::runtime_error);
    EXPECT_TRUE(isReadable()) << "an exception left something";
    queue().drain();
    EXPECT_EQ(said, "laterrest");
}

TEST_F(MainQueueTest, RunUntilEndsByPredicateQuitOrTime) {
    say("a");
    say("b");
    EXPECT_TRUE(queue().runUntil([&] { return said == "a"; }, 10s));
    EXPECT_EQ(said, "a") << "asked after every function";
    EXPECT_FALSE(queue().runUntil([] { return false; }, 0s));
    EXPECT_EQ(said, "ab") << "what is there runs even without time";
    std::function<void()> again = [&] { queue().async(again); };
    again();
    EXPECT_FALSE(queue().runUntil([] { return false; }, 1ms)) << "work that never ends";
    again = nullptr;
    queue().drain();
    queue().async([&] { queue().quit(); });
    queue().async([&] { said += "c"; });
    EXPECT_FALSE(queue().runUntil([] { return false; }, std::chrono::nanoseconds::max()));
    EXPECT_EQ(said, "ab");
    queue().quit();  // without effect, because nothing runs
    queue().async([&] { queue().quit(); });
    queue().run();
    EXPECT_EQ(said, "abc");
}

TEST_F(MainQueueTest, WhatAFunctionHeldIsGoneWhenThePredicateLooks) {
    auto held = std::make_shared<int>();
    const std::weak_ptr<int> weak = held;
    queue().async([held = std::move(held)] {});
    EXPECT_TRUE(queue().runUntil([&] { return weak.expired(); }, 0s));
}

TEST_F(MainQueueTest, QuitEndsTheInnermostLoop) {
    queue().async([&] {
        queue().async([&] { queue().quit(); });
        queue().run();
        said += "inner ";
    });
    EXPECT_TRUE(queue().runUntil([&] { return said == "inner "; }, 10s));
}

TEST_F(MainQueueTest, AWaitingLoopHearsOfATurnedClock) {
    std::atomic<bool> waiting{false};
    bool ran = false;
    queue().after(1h, [&] { ran = true; });
    queue().async([&] { waiting = true; });
    std::thread other([&] {
        while (!waiting) std::this_thread::yield();
        clock.advance(1h);
    });
    EXPECT_TRUE(eventually([&] { return ran; }));
    other.join();
    queue().drain();
}

TEST_F(MainQueueTest, SyncRunsOnTheMainThreadAndBringsTheExceptionBack) {
    EXPECT_TRUE(queue().sync([&] { said += "in place "; }));
    EXPECT_EQ(said, "in place ");
    std::atomic<bool> ended{false};
    std::thread other([&] {
        EXPECT_FALSE(queue().isMainThread());
        EXPECT_TRUE(queue().sync([&] { said += queue().isMainThread() ? "main" : "other"; }));
        EXPECT_THROW(queue().sync([] { throw std::runtime_error("x"); }), std::runtime_error);
        ended = true;
        queue().async([] {});
    });
    EXPECT_TRUE(eventually([&] { return ended.load(); }));
    other.join();
    queue().drain();
    EXPECT_EQ(said, "in place main");
}

TEST_F(MainQueueTest, ManyThreadsPostAndEachKeepsItsOrder) {
    constexpr int kThreads = 4, kEach = 2000;
    std::vector<int> last(kThreads, -1);
    int ran = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i) {
                queue().async([&, t, i] {
                    EXPECT_EQ(std::exchange(last[static_cast<std::size_t>(t)], i), i - 1);
                    ++ran;
                });
            }
        });
    }
    EXPECT_TRUE(eventually([&] { return ran == kThreads * kEach; }));
    for (auto& thread : threads) thread.join();
}

// A process of its own, because its queue ends for good.
TEST(MainQueueDeathTest, SyncAnswersFalseOnceTheProcessExits) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            std::atomic<int> refused{0};
            std::atomic<bool> begun{false};
            std::thread waiting([&] {
                begun = true;
                if (!queue().sync([] { std::abort(); })) ++refused;
            });
            while (!begun) std::this_thread::yield();
            detail::endMainQueue();
            waiting.join();
            std::thread late([&] { refused += !queue().sync([] { std::abort(); }); });
            late.join();
            queue().drain();  // abandoned functions do not run later
            std::_Exit(refused == 2 ? 7 : 1);
        },
        ::testing::ExitedWithCode(7), "");
}

TEST(MainQueueDeathTest, ADelayWithoutEndNeverComes) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            queue().after(std::chrono::nanoseconds::max(), [] { std::abort(); });
            queue().drain();
            const bool isNever = queue().nextDeadline() == Clock::TimePoint::max();
            // A host that comes later finds what was queued before.
            queue().async([] {});
            pollfd host = {};
            host.fd = queue().fileDescriptor();
            host.events = POLLIN;
            std::_Exit(isNever && poll(&host, 1, 0) == 1 ? 7 : 1);
        },
        ::testing::ExitedWithCode(7), "");
}

TEST(MainQueueDeathTest, ExitFromInsideASyncFreesTheThreadThatWaitsForIt) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            // Static, because the stack of the waiting thread is gone after its release.
            static std::atomic<bool> answer{true};
            static std::thread waiting;
            waiting = std::thread([] {
                answer = queue().sync([] {
                    // as the exit hook does, which then joins the waiting thread
                    detail::endMainQueue();
                    waiting.join();
                    std::_Exit(answer ? 1 : 7);
                });
            });
            queue().run();
        },
        ::testing::ExitedWithCode(7), "");
}
