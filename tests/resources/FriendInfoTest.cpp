#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "VexIMLib/VexIMLib.h"
#include "support/Describe.h"
#include "support/PeakMemory.h"

using namespace vexim::testing;
using vexim::Dictionary;
using vexim::NotificationCenter;
using vexim::Value;

namespace {

void post(const char* name, const Value& id) {
    NotificationCenter::defaultCenter().post(name, nullptr, Dictionary{{"id", id}});
}

std::string describe(const VXIMFriendInfo& info) {
    return json(info.uid()) + (info.online() ? " online " : " offline ") +
           std::to_string(info.ts()) + " " + json(info.from()) + " " + json(info.to()) + " " +
           (info.recentMessage() ? info.recentMessage()->text().value_or("without text")
                                 : "nothing");
}

TEST(FriendInfo, ReadsItsRecordLeniently) {
    const struct {
        const char* why;
        const char* record;
        const char* expected;
    } cases[] = {
        {"all of it",
         R"({"id":"u7","online":true,"ts":1450000000123,"from":"u1","to":"u7","recent":{"content":{"media":0,"body":"hi"}}})",
         R"("u7" online 1450000000123 "u1" "u7" hi)"},
        {"the id alone", R"({"id":"u7"})", R"("u7" offline 0 nil nil nothing)"},
        {"nothing", "{}", "nil offline 0 nil nil nothing"},
        {"wrong kinds", R"({"id":7,"online":"yes","ts":"12","from":5,"to":null,"recent":"hi"})",
         "7 offline 12 5 null without text"},
        {"null is no message", R"({"id":"u7","recent":null})", R"("u7" offline 0 nil nil nothing)"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(describe(*VXIMFriendInfo::infoWithDictionary(dictionaryFrom(c.record))),
                  c.expected)
            << c.why;
    }
}

TEST(FriendInfo, MetadataWithoutARecentMessageKeepsTheOldOne) {
    auto info = VXIMFriendInfo::infoWithDictionary(dictionaryFrom(
        R"({"id":"u7","online":true,"ts":1,"from":"a","to":"b","recent":{"content":{"body":"hi"}}})"));
    info->setMetadataWithDictionary(dictionaryFrom(R"({"id":"u8","ts":2})"));
    EXPECT_EQ(describe(*info), R"("u7" offline 2 nil nil hi)");
}

TEST(FriendInfo, FollowsThePresenceOfItsFriendOnly) {
    auto first = VXIMFriendInfo::infoWithId("u7");
    auto second = VXIMFriendInfo::infoWithId("u7");
    auto other = VXIMFriendInfo::infoWithDictionary(Dictionary{{"id", "u8"}});
    auto nobody = VXIMFriendInfo::initWithDictionary({});
    auto empty = VXIMFriendInfo::infoWithId("");
    const auto online = [&] {
        std::string text;
        for (const auto& info : {first, second, other, nobody, empty})
            text += info->online() ? "1" : "0";
        return text;
    };

    post(VXIMFriendOnlineNotification, "u7");
    EXPECT_EQ(online(), "11000");
    EXPECT_FALSE(VXIMFriendInfo::infoWithId("u7")->online())
        << "what was posted before is not heard";
    post(VXIMFriendOnlineNotification, "u8");
    post(VXIMFriendOfflineNotification, "u7");
    EXPECT_EQ(online(), "00100");
    post(VXIMFriendOfflineNotification, "");
    EXPECT_EQ(online(), "00100");
    post(VXIMFriendOnlineNotification, "");
    EXPECT_EQ(online(), "00101") << "an empty id is an id";
    NotificationCenter::defaultCenter().post(VXIMFriendOnlineNotification, nullptr);
    post(VXIMFriendOnlineNotification, Value::null());
    post(VXIMFriendOnlineNotification, Dictionary{{"id", "u7"}});
    EXPECT_EQ(online(), "00101") << "no id, and ids of other kinds";

    first->didOnline({VXIMFriendOnlineNotification, nullptr, Dictionary{{"id", "u7"}}});
    other->didOffline({VXIMFriendOfflineNotification, nullptr, Dictionary{{"id", "u7"}}});
    other->didOffline({});
    EXPECT_EQ(online(), "10101") << "handed on by hand";
}

TEST(FriendInfo, HearsInRegistrationOrderAmongOtherObservers) {
    auto info = VXIMFriendInfo::infoWithId("u7");
    std::string seen;
    auto observer = std::make_shared<int>();
    NotificationCenter::defaultCenter().addObserver(
        observer, VXIMFriendOnlineNotification, nullptr,
        [&](const vexim::Notification&) { seen += info->online() ? "1" : "0"; });
    auto later = VXIMFriendInfo::infoWithId("u7");
    NotificationCenter::defaultCenter().addObserver(
        observer, VXIMFriendOfflineNotification, nullptr,
        [&](const vexim::Notification&) { seen += later->online() ? "1" : "0"; });
    post(VXIMFriendOnlineNotification, "u7");
    later->setOnline(true);
    post(VXIMFriendOfflineNotification, "u7");
    EXPECT_EQ(seen, "10");
}

TEST(FriendInfo, MayBeReleasedAnywhereAlsoByWhatHearsTheSamePost) {
    auto second = VXIMFriendInfo::infoWithId("u7");
    auto observer = std::make_shared<int>();
    auto third = VXIMFriendInfo::infoWithId("u7");
    NotificationCenter::defaultCenter().addObserver(
        observer, VXIMFriendOnlineNotification, nullptr,
        [&](const vexim::Notification&) { second = third = nullptr; });
    auto fourth = VXIMFriendInfo::infoWithId("u7");
    post(VXIMFriendOnlineNotification, "u7");
    EXPECT_TRUE(fourth->online());
    post(VXIMFriendOfflineNotification, "u7");
    EXPECT_FALSE(fourth->online());
}

TEST(FriendInfo, FollowsNoMoreWhatAnApplicationRemovedFromTheCentre) {
    auto& center = NotificationCenter::defaultCenter();
    auto first = VXIMFriendInfo::infoWithId("u7");
    auto second = VXIMFriendInfo::infoWithId("u7");
    auto third = VXIMFriendInfo::infoWithId("u7");
    auto observer = std::make_shared<int>();
    center.removeObserver(first.get());
    center.removeObserver(second.get(), VXIMFriendOfflineNotification);
    post(VXIMFriendOnlineNotification, "u7");
    EXPECT_EQ(std::to_string(first->online()) + std::to_string(second->online()) +
                  std::to_string(third->online()),
              "011");
    post(VXIMFriendOfflineNotification, "u7");
    EXPECT_EQ(std::to_string(second->online()) + std::to_string(third->online()), "10");

    center.addObserver(observer, VXIMFriendOnlineNotification, nullptr,
                       [&](const vexim::Notification&) { center.removeObserver(third.get()); });
    auto later = VXIMFriendInfo::infoWithId("u7");
    center.addObserver(observer, VXIMFriendOfflineNotification, nullptr,
                       [&](const vexim::Notification&) { center.removeObserver(later.get()); });
    later = VXIMFriendInfo::infoWithId("u7");
    later->setOnline(true);
    post(VXIMFriendOfflineNotification, "u7");
    EXPECT_TRUE(later->online()) << "removed while the same event was told";
}

// Infos are made, found and released in random order. Many share a friend, and their ids are of all
// types; ids of different types are never equal.
TEST(FriendInfo, IsFoundAmongVeryMany) {
    constexpr int kInfos = 100'000;
    const auto idOf = [](int i) {
        switch (i % 4) {
            // numbers that differ in their upper bits only
            case 0: return Value(std::int64_t{i} << 20);
            case 1: return Value(std::to_string(i));
            case 2: return Value(i + 0.5);
            default: return Value("the same friend");
        }
    };
    const auto cpuTime = [] {  // of this thread, so that a busy machine does not matter
        timespec now{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
    };
    std::vector<std::shared_ptr<VXIMFriendInfo>> infos;
    infos.reserve(kInfos);
    const auto began = cpuTime();
    const auto heapBefore = PeakMemory::inUse();
    for (int i = 0; i < kInfos; ++i) infos.push_back(VXIMFriendInfo::infoWithId(idOf(i)));
    // A sanitizer also counts large blocks that come directly from the system, such as the table of
    // observers.
    EXPECT_LE((PeakMemory::inUse() - heapBefore) / kInfos, PeakMemory::kIsSanitized ? 600 : 400)
        << "bytes of heap for an info";
    for (std::size_t i = 1; i < infos.size(); i += 4) infos[i] = nullptr;
    std::chrono::nanoseconds took[3];
    for (int kind = 0; kind < 3; ++kind) {
        const auto start = cpuTime();
        for (int i = kind; i < kInfos; i += 4) post(VXIMFriendOnlineNotification, idOf(i));
        took[kind] = cpuTime() - start;
    }
    EXPECT_LT(took[0], 10 * took[2]) << "such numbers are as far apart as any";
    post(VXIMFriendOnlineNotification, "the same friend");
    for (const auto& info : infos)
        ASSERT_TRUE(!info || info->online()) << info->uid().description();
    post(VXIMFriendOfflineNotification, "the same friend");
    for (std::size_t i = 0; i < infos.size(); ++i)
        ASSERT_TRUE(!infos[i] || infos[i]->online() == (i % 4 != 3)) << i;
    infos.clear();
    EXPECT_LT(cpuTime() - began, std::chrono::seconds(20)) << "searching would take minutes";
}

TEST(FriendInfo, IsMadeAndReleasedOnAnyThreadWhileEventsArrive) {
    std::mutex mutex;
    std::shared_ptr<VXIMFriendInfo> handedOn;  // guarded by `mutex`
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 1000; ++i) {
                auto info = VXIMFriendInfo::infoWithId(
                    i % 3 == 0 ? Value("u7") : Value("u" + std::to_string(i * 3 + t)));
                const std::lock_guard lock(mutex);
                // this releases the other thread's info, perhaps while it gets an event
                if (i % 2) handedOn.swap(info);
            }
        });
    }
    std::thread poster([&] {
        for (bool online = false; !isOver; online = !online)
            post(online ? VXIMFriendOnlineNotification : VXIMFriendOfflineNotification, "u7");
    });
    for (auto& thread : threads) thread.join();
    auto last = VXIMFriendInfo::infoWithId("u7");
    isOver = true;
    poster.join();
    post(VXIMFriendOnlineNotification, "u7");
    EXPECT_TRUE(last->online());
}

}  // namespace
