#include "VexIMLib/Foundation/NotificationCenter.h"

#include <gtest/gtest.h>
#include <time.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "VexIMLib/Foundation/Error.h"

using namespace vexim;

namespace {

/// This thread's own, so that a busy machine does not count.
std::chrono::nanoseconds cpuTime() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

class NotificationCenterTest : public ::testing::Test {
protected:
    NotificationCenter::Handler saying(std::string word) {
        return [this, word](const Notification&) { said += word; };
    }
    std::shared_ptr<Object> sender() { return Error::make("sender", 1); }

    NotificationCenter center;
    std::shared_ptr<void> observer = std::make_shared<int>();
    std::string said;
};

}  // namespace

TEST_F(NotificationCenterTest, CallsByNameAndSenderInOrderOfRegistration) {
    const auto one = sender();
    const auto two = sender();
    center.addObserver(observer, "name", nullptr, saying("a"));
    center.addObserver(observer, "", nullptr, saying("b"));
    center.addObserver(observer, "name", "id", "u1", saying("c"));
    center.addObserver(observer, "name", one.get(), saying("d"));
    center.addObserver(observer, "name", "id", 7, saying("e"));
    center.addObserver(observer, "", one.get(), saying("f"));
    center.addObserver(observer, "name", "other", "u1", saying("g"));
    center.addObserver(observer, "name", nullptr, saying("h"));
    struct Case {
        const char* why;
        const char* name;
        std::shared_ptr<Object> object;
        std::optional<Dictionary> userInfo;
        const char* expected;
    } const cases[] = {
        {"name only", "name", nullptr, std::nullopt, "abh"},
        {"a sender", "name", one, std::nullopt, "abdfh"},
        {"another sender", "name", two, std::nullopt, "abh"},
        {"another name", "else", one, std::nullopt, "bf"},
        {"a key's value", "name", one, Dictionary{{"id", "u1"}}, "abcdfh"},
        {"another value", "name", nullptr, Dictionary{{"id", "u2"}}, "abh"},
        {"a number is not its text", "name", nullptr, Dictionary{{"id", "7"}}, "abh"},
        {"a number", "name", nullptr, Dictionary{{"id", 7}}, "abeh"},
        {"two keys", "name", nullptr, Dictionary{{"other", "u1"}, {"id", "u1"}}, "abcgh"},
        {"the right value under another name", "else", nullptr, Dictionary{{"id", "u1"}}, "b"},
    };
    for (const auto& each : cases) {
        said.clear();
        center.post(each.name, each.object, each.userInfo);
        EXPECT_EQ(said, each.expected) << each.why;
    }
}

TEST_F(NotificationCenterTest, RemovesByObserverAndByName) {
    std::shared_ptr<void> other = std::make_shared<int>();
    center.addObserver(observer, "x", nullptr, saying("a"));
    center.addObserver(observer, "y", "id", 1, saying("b"));
    center.addObserver(other, "x", nullptr, saying("c"));
    center.removeObserver(observer.get(), "x");
    center.post("x", nullptr);
    center.post("y", nullptr, Dictionary{{"id", 1}});
    EXPECT_EQ(said, "cb");
    center.removeObserver(observer.get());
    center.post("y", nullptr, Dictionary{{"id", 1}});
    EXPECT_EQ(said, "cb");
    other.reset();
    center.post("x", nullptr);
    EXPECT_EQ(said, "cb") << "an observer that is gone hears nothing";
}

TEST_F(NotificationCenterTest, WhilePostingAddsWaitAndRemovalsHold) {
    std::shared_ptr<void> victim = std::make_shared<int>();
    std::shared_ptr<void> dying = std::make_shared<int>();
    center.addObserver(observer, "x", nullptr, [&](const Notification&) {
        said += "a";
        center.removeObserver(victim.get());
        dying.reset();
        center.addObserver(observer, "x", nullptr, saying("new"));
        if (said.size() < 3) center.post("y", nullptr);
    });
    center.addObserver(victim, "x", nullptr, saying("victim"));
    center.addObserver(dying, "x", nullptr, saying("dying"));
    center.addObserver(observer, "x", nullptr, saying("b"));
    center.addObserver(observer, "y", nullptr, saying("(y)"));
    center.post("x", nullptr);
    EXPECT_EQ(said, "a(y)b");
}

TEST_F(NotificationCenterTest, AnObserverMayRemoveItselfInItsDestructor) {
    struct Observer {
        ~Observer() { center->removeObserver(this); }
        NotificationCenter* center;
    };
    std::shared_ptr<void> own(new Observer{&center}, [](Observer* doomed) { delete doomed; });
    center.addObserver(own, "x", nullptr, [&](const Notification&) {
        said += "a";
        own.reset();
    });
    center.post("x", nullptr);
    center.post("x", nullptr);
    EXPECT_EQ(said, "a");
}

TEST_F(NotificationCenterTest, FindsOneOfManyKeyedObservers) {
    constexpr int kObservers = 100'000;
    std::vector<std::shared_ptr<void>> observers;
    const auto began = cpuTime();
    for (int i = 0; i < kObservers; ++i) {
        observers.push_back(std::make_shared<int>());
        center.addObserver(observers.back(), "online", "id", i % 2 ? Value(i) : Value(std::to_string(i)), saying("."));
    }
    for (int i = 0; i < kObservers; ++i)
        center.post("online", nullptr, Dictionary{{"id", i % 2 ? Value(i) : Value(std::to_string(i))}});
    for (const auto& each : observers) center.removeObserver(each.get());
    EXPECT_EQ(said.size(), std::size_t{kObservers});
    // Searching would take minutes.
    EXPECT_LT(cpuTime() - began, std::chrono::seconds(20));
}

TEST_F(NotificationCenterTest, LetsGoOfWhatObserversLeftBehind) {
    const auto held = std::make_shared<int>();
    center.addObserver(observer, "x", "id", -1, [held](const Notification&) {});
    for (int i = 0; i < 10'000; ++i) {
        // Some lie where others lay before.
        const auto brief = i % 2 ? std::make_shared<int>() : std::shared_ptr<int>(new int);
        center.addObserver(brief, "x", "id", i, [held](const Notification&) {});
    }
    EXPECT_LT(held.use_count(), 200);
    center.addObserver(observer, "x", "id", -1, saying("a"));
    center.post("x", nullptr, Dictionary{{"id", -1}});
    EXPECT_EQ(said, "a");
}

TEST_F(NotificationCenterTest, IsUsedFromSeveralThreads) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 300; ++i) {
                auto own = std::make_shared<int>(0);
                center.addObserver(own, "x", nullptr, [](const Notification&) {});
                center.addObserver(own, "x", "id", t, [](const Notification&) {});
                center.post("x", nullptr, Dictionary{{"id", i % 4}});
                if (i % 2) center.removeObserver(own.get());
            }
        });
    }
    for (auto& thread : threads) thread.join();
    center.addObserver(observer, "x", nullptr, saying("a"));
    center.post("x", nullptr);
    EXPECT_EQ(said, "a");
}
