#include "VexIMLib/Foundation/NotificationCenter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "VexIMLib/Foundation/EmbeddedObserver.h"
#include "VexIMLib/Foundation/Error.h"

using namespace vexim;

namespace {

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
    center.addObserver(observer, "name", one.get(), saying("c"));
    center.addObserver(observer, "", one.get(), saying("d"));
    center.addObserver(observer, "name", nullptr, saying("e"));
    struct Case {
        const char* why;
        const char* name;
        std::shared_ptr<Object> object;
        std::optional<Dictionary> userInfo;
        const char* expected;
    } const cases[] = {
        {"name only", "name", nullptr, std::nullopt, "abe"},
        {"a sender", "name", one, std::nullopt, "abcde"},
        {"another sender", "name", two, std::nullopt, "abe"},
        {"another name", "else", one, std::nullopt, "bd"},
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
    center.addObserver(observer, "y", nullptr, saying("b"));
    center.addObserver(other, "x", nullptr, saying("c"));
    center.removeObserver(observer.get(), "x");
    center.post("x", nullptr);
    center.post("y", nullptr);
    EXPECT_EQ(said, "cb");
    center.removeObserver(observer.get());
    center.post("y", nullptr);
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

TEST_F(NotificationCenterTest, LetsGoOfWhatObserversLeftBehind) {
    const auto held = std::make_shared<int>();
    center.addObserver(observer, "x", nullptr, [this, held](const Notification&) { said += "0"; });
    for (int i = 0; i < 10'000; ++i) {
        // Some have the same address as earlier ones.
        const auto brief = i % 2 ? std::make_shared<int>() : std::shared_ptr<int>(new int);
        center.addObserver(brief, "x", nullptr, [held](const Notification&) {});
    }
    EXPECT_LT(held.use_count(), 200);
    center.addObserver(observer, "x", nullptr, saying("a"));
    center.post("x", nullptr);
    EXPECT_EQ(said, "0a") << "who lives is kept";
}

// Two observers, one after the other, at one address.
TEST_F(NotificationCenterTest, TellsAnObserverFromTheOneThatLayThereBefore) {
    int place = 0;
    std::shared_ptr<void> former(std::make_shared<int>(), &place);
    center.addObserver(former, "x", nullptr, saying("former"));
    former.reset();
    const std::shared_ptr<void> present(std::make_shared<int>(), &place);
    center.addObserver(present, "x", nullptr, saying("a"));
    center.post("x", nullptr);
    center.post("x", nullptr);
    EXPECT_EQ(said, "aa");
}

namespace {

/// An object that carries its registration inside itself.
class Listener final : public Object {
public:
    using Object::Object;
    bool initialise(std::string& heard, char name, Value id) {
        heard_ = &heard;
        name_ = name;
        id_ = std::move(id);
        join();
        return true;
    }
    void join() { observer_.join(kKind, *this, id_); }

private:
    static void hear(Object& self, const Notification&) {
        auto& listener = static_cast<Listener&>(self);
        *listener.heard_ += listener.name_;
    }
    static constexpr detail::EmbeddedObserver::Kind kKind{{"came", "went"}, "id", &hear};

    std::string* heard_ = nullptr;
    char name_ = 0;
    Value id_;
    detail::EmbeddedObserver observer_;
};

}  // namespace

TEST(EmbeddedObserver, HearsOfItsOwnValueInItsPlaceAmongAllObservers) {
    auto& shared = NotificationCenter::defaultCenter();
    std::string heard;
    const auto told = [&](const char* name, const Value& id) {
        heard.clear();
        shared.post(name, nullptr, Dictionary{{"id", id}});
        return heard;
    };
    const auto plain = std::make_shared<int>();
    auto a = create<Listener>(heard, 'a', "u1");
    shared.addObserver(plain, "came", nullptr, [&](const Notification&) { heard += '+'; });
    auto b = create<Listener>(heard, 'b', "u1");
    const auto number = static_cast<std::int64_t>(std::hash<double>()(7.0));
    auto c = create<Listener>(heard, 'c', number);
    const auto d = create<Listener>(heard, 'd', 7.0);
    EXPECT_EQ(told("came", "u1"), "a+b");
    EXPECT_EQ(told("came", number), "+c") << "the integer, though the real one has its hash";
    EXPECT_EQ(told("went", "u1"), "ab");
    EXPECT_EQ(told("went", Value::null()), "");
    shared.removeObserver(a.get(), "came");
    EXPECT_EQ(told("came", "u1"), "+b") << "of this name no more";
    EXPECT_EQ(told("went", "u1"), "ab");
    a->join();
    EXPECT_EQ(told("came", "u1"), "+ba") << "again, in a new place";

    // An observer that is removed or destroyed during a post is not called any more.
    shared.removeObserver(plain.get());
    shared.addObserver(plain, "", nullptr, [&](const Notification&) {
        shared.removeObserver(c.get());
        b.reset();
    });
    a->join();
    b->join();
    c->join();
    EXPECT_EQ(told("came", number), "");
    EXPECT_EQ(told("came", "u1"), "a");
    shared.removeObserver(plain.get());
}

TEST_F(NotificationCenterTest, IsUsedFromSeveralThreads) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 300; ++i) {
                auto own = std::make_shared<int>(0);
                center.addObserver(own, "x", nullptr, [](const Notification&) {});
                center.post("x", nullptr);
                if (i % 2) center.removeObserver(own.get());
            }
        });
    }
    for (auto& thread : threads) thread.join();
    center.addObserver(observer, "x", nullptr, saying("a"));
    center.post("x", nullptr);
    EXPECT_EQ(said, "a");
}
