// Tasks: who starts, ends and destroys them, and where their exceptions go.

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "VexIMLib/Foundation/Exception.h"
#include "async/Held.h"
#include "support/Eventually.h"

using namespace vexim;
using namespace vexim::testing;

namespace {

/// Records when a coroutine's contents are released.
struct Trace {
    std::string* log;
    std::string name;
    Trace(std::string& into, std::string called) : log(&into), name(std::move(called)) {
        *log += "+" + name;
    }
    Trace(const Trace&) = delete;
    ~Trace() { *log += "-" + name; }
};

Task<int> inner(Held& held, std::string& log) {
    const Trace trace(log, "inner");
    co_return (co_await held.call()).orThrow();
}
Task<std::string> outer(Held& held, std::string& log) {
    const Trace trace(log, "outer");
    const int first = co_await inner(held, log);
    const int second = co_await inner(held, log);
    co_return std::to_string(first + second);
}
Task<> raise(Held& held) {
    co_await held.call();
    throw std::runtime_error("from the coroutine");
}

}  // namespace

TEST(Task, AwaitsTasksAndGivesTheirResult) {
    Held held;
    std::string log;
    const auto answerBoth = [&held]() -> Task<> {
        while (held.starts < 1)
            co_await vexim::call([](Held::Completion done) {
                MainQueue::shared().async([done] { done(0, nullptr); });
            });
        held.answer(1);
        while (held.starts < 2)
            co_await vexim::call([](Held::Completion done) {
                MainQueue::shared().async([done] { done(0, nullptr); });
            });
        held.answer(2);
    };
    spawn(answerBoth());
    EXPECT_EQ(vexim::wait(outer(held, log)), "3");
    EXPECT_EQ(log, "+outer+inner-inner+inner-inner-outer");
    drainMainQueue();
}

TEST(Task, DestroyedWhileItWaitsReleasesAllThatItHolds) {
    Held held;
    std::string log;
    { auto never = outer(held, log); }
    EXPECT_EQ(log, "") << "what was not started runs nothing";

    auto task = outer(held, log);
    task.start();
    EXPECT_FALSE(task.isDone());
    task = outer(held, log);  // the old task is destroyed
    EXPECT_EQ(log, "+outer+inner-inner-outer");
    held.answer(1);
    drainMainQueue();
    held.completion = nullptr;
    drainMainQueue();
    EXPECT_EQ(held.starts, 1) << "neither the late answer nor its end woke anybody";

    // Answered, but the task is destroyed before the answer is delivered.
    log.clear();
    task.start();
    held.completion = nullptr;  // abandoned; the result is still in the main queue
    task = outer(held, log);
    drainMainQueue();
    EXPECT_EQ(log, "+outer+inner-inner-outer");
}

TEST(Task, AnExceptionGoesToWhoeverWaitsAndElseToTheMainQueue) {
    Held held;
    const auto catching = [](Held& each) -> Task<std::string> {
        try {
            co_await raise(each);
        } catch (const std::runtime_error& thrown) {
            co_return thrown.what();
        }
        co_return "nothing";
    };
    for (const char* way : {"awaited", "waited for", "spawned", "started", "as Failure"}) {
        SCOPED_TRACE(way);
        const std::string_view name = way;
        MainQueue::shared().async(
            [&held] { held.completion(1, Error::withDescription("d", 1, "refused")); });
        if (name == "awaited") {
            EXPECT_EQ(vexim::wait(catching(held)), "from the coroutine");
        }
        if (name == "waited for") {
            EXPECT_THROW(vexim::wait(raise(held)), std::runtime_error);
        }
        if (name == "as Failure") {
            std::string log;
            EXPECT_THROW(vexim::wait(inner(held, log)), Failure);
        }
        std::optional<Task<>> kept;
        if (name == "spawned") spawn(raise(held));
        if (name == "started") kept.emplace(raise(held)).start();
        if (name == "spawned" || name == "started") {
            EXPECT_THROW(drainMainQueue(), std::runtime_error);
        }
        drainMainQueue();
    }
}

TEST(Task, StartedOnAnotherThreadGoesOnOnTheMainOne) {
    Held held;
    std::string immediately, later;
    std::thread other([&] {
        // One is answered before its start has returned, one after.
        spawn(record(vexim::call([](Held::Completion done) {
                         MainQueue::shared().sync([&done] { done(1, nullptr); });
                     }),
                     immediately));
        spawn(record(held.call(), later));
        held.answer(2);
    });
    EXPECT_TRUE(eventually([&] { return later == "2"; }));
    other.join();
    EXPECT_EQ(immediately, "1");
}

TEST(Task, IsWaitedForOnTheMainThreadOnly) {
    std::thread other([] {
        const auto body = []() -> Task<> { co_return; };
        EXPECT_THROW(vexim::wait(body()), Exception);
    });
    other.join();
}

TEST(Task, ManyAnswersInPlaceNeedNoStack) {
    const auto body = []() -> Task<int> {
        int sum = 0;
        for (int i = 0; i < 200'000; ++i)
            sum += (co_await vexim::call([](Held::Completion done) { done(1, nullptr); })).value;
        co_return sum;
    };
    EXPECT_EQ(vexim::wait(body()), 200'000);
}
