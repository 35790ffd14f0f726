// How one call ends: answer, deadline, cancellation, abandonment, in every order; the same for
// futures and coroutines.

#include <gtest/gtest.h>

#include <atomic>
#include <stop_token>
#include <thread>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Testing/ManualClock.h"
#include "async/Held.h"
#include "support/Eventually.h"

using namespace vexim;
using namespace vexim::testing;
using namespace std::chrono_literals;

namespace {

constexpr const char* kTimedOut = "NSURLErrorDomain -1001";
constexpr const char* kCancelled = "NSURLErrorDomain -999";
constexpr const char* kAbandoned = "VXIMCallErrorDomain 1";

class CallTest : public ::testing::Test {
protected:
    void TearDown() override { clock.advanceAndDrain(24h); }

    ManualClock clock;
    Held held;
    std::stop_source stop;
};

}  // namespace

TEST_F(CallTest, TheFirstThingThatHappensEndsIt) {
    const auto answer = [this] { held.completion(7, nullptr); };
    const auto fail = [this] { held.completion(0, Error::make("d", 3)); };
    const auto time = [this] { clock.advance(10s); };
    const auto cancel = [this] { stop.request_stop(); };
    const auto drop = [this] { held.completion = nullptr; };
    const auto nothing = [] {};
    struct {
        const char* why;
        std::function<void()> before, first, second;
        const char* outcome;
        int starts;
    } const cases[] = {
        {"an answer", nothing, answer, nothing, "7", 1},
        {"an error", nothing, fail, answer, "d 3", 1},
        {"an answer just before the deadline", nothing, answer, time, "7", 1},
        {"a late answer is dropped", nothing, time, answer, kTimedOut, 1},
        {"cancelled, then answered", nothing, cancel, answer, kCancelled, 1},
        {"cancelled when it was answered already", nothing, answer, cancel, "7", 1},
        {"cancelled before the start: never started", cancel, nothing, time, kCancelled, 0},
        {"cancelled and timed out", nothing, cancel, time, kCancelled, 1},
        {"dropped unanswered", nothing, drop, nothing, kAbandoned, 1},
        {"dropped after the deadline", nothing, time, drop, kTimedOut, 1},
        {"answered, then dropped", nothing, answer, drop, "7", 1},
        {"never answered", nothing, nothing, nothing, "pending", 1},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.why);
        std::string awaited = "pending";
        for (const bool asFuture : {false, true}) {
            held = {};
            stop = {};
            each.before();
            auto call = held.call().within(10s).cancelledBy(stop.get_token());
            std::future<int> future;
            std::optional<Task<>> task;
            if (asFuture) {
                future = vexim::future(std::move(call));
            } else {
                task.emplace(record(std::move(call), awaited));
                task->start();
            }
            // Like callbacks of the main queue: each one ends before the next starts.
            for (const auto& step : {each.first, each.second}) {
                MainQueue::shared().async(step);
                drainMainQueue();
            }
            EXPECT_EQ(asFuture ? describe(future) : awaited, each.outcome);
            EXPECT_EQ(held.starts, each.starts);
        }
    }
}

TEST_F(CallTest, EndsOnceWhenThreadsAnswerCancelAndLetTimeRunOutAtTheSameMoment) {
    int answered = 0, cancelled = 0, timedOut = 0, abandoned = 0;
    for (int i = 0; i < 300; ++i) {
        std::atomic<int> waiting{0};
        const auto together = [&waiting] {
            ++waiting;
            while (waiting < 2) std::this_thread::yield();
        };
        std::stop_source source;
        std::thread answering, cancelling([&] {
            together();
            source.request_stop();
        });
        auto call = vexim::call([&](Held::Completion done) {
            answering = std::thread([&together, i, done = std::move(done)]() mutable {
                together();
                if (i % 3 != 0) done(i, nullptr);
                done = nullptr;
            });
        });
        if (i % 2 == 0) call = std::move(call).within(0s);
        call = std::move(call).cancelledBy(source.get_token());
        int ends = 0;
        std::thread starting;
        // A detached coroutine, so that sanitizers would also detect a second resumption.
        const auto body = [](Call<int> awaited, int& ended, std::string& how) -> Task<> {
            how = describe(co_await std::move(awaited));
            EXPECT_TRUE(MainQueue::shared().isMainThread());
            ++ended;
        };
        std::string how;
        if (i % 5 == 0) {
            starting = std::thread([&] { spawn(body(std::move(call), ends, how)); });
            starting.join();
        } else {
            spawn(body(std::move(call), ends, how));
        }
        ASSERT_TRUE(eventually([&] { return ends > 0; }));
        cancelling.join();
        answering.join();
        drainMainQueue();
        EXPECT_EQ(ends, 1);
        ++(how == kCancelled   ? cancelled
           : how == kTimedOut  ? timedOut
           : how == kAbandoned ? abandoned
                               : answered);
    }
    EXPECT_EQ(answered + cancelled + timedOut + abandoned, 300);
    EXPECT_GT(answered, 0);
}

TEST_F(CallTest, WaitTurnsTheMainQueueAndPassesAQuitOn) {
    bool outerEnded = false;
    MainQueue::shared().async([&] {
        auto future = vexim::future(held.call());
        MainQueue::shared().async([] { MainQueue::shared().quit(); });  // meant for the loop below
        held.answer(5);
        EXPECT_EQ(vexim::wait(future), 5);
        outerEnded = true;
    });
    EXPECT_FALSE(MainQueue::shared().runUntil([] { return false; }, 20s));
    EXPECT_TRUE(outerEnded);

    held.answer(6);
    EXPECT_EQ(vexim::wait(vexim::call([](Held::Completion done) { done(6, nullptr); })), 6)
        << "in place";
    std::thread other([&] {
        EXPECT_THROW(vexim::wait(vexim::call([](Held::Completion) {})), Failure);
        MainQueue::shared().async([&] { outerEnded = false; });
    });
    EXPECT_TRUE(eventually([&] { return !outerEnded; }));
    other.join();
}

TEST_F(CallTest, WhatTheStartRaisesReachesTheCaller) {
    const auto raising = [] {
        return vexim::call([](Held::Completion) { throw Exception(kRangeException, "no"); });
    };
    EXPECT_THROW((void)vexim::future(raising()), Exception);
    std::string outcome = "pending";
    EXPECT_THROW(vexim::wait(record(raising(), outcome)), Exception);
    EXPECT_EQ(outcome, "pending");
    drainMainQueue();
}
