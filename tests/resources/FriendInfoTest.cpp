#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "VexIMLib/VexIMLib.h"
#include "support/Describe.h"

using namespace vexim::testing;
using vexim::Dictionary;
using vexim::NotificationCenter;
using vexim::Value;

namespace {

void post(const char* name, const Value& id) { NotificationCenter::defaultCenter().post(name, nullptr, Dictionary{{"id", id}}); }

std::string describe(const VXIMFriendInfo& info) {
    return json(info.uid()) + (info.online() ? " online " : " offline ") + std::to_string(info.ts()) + " " + json(info.from()) +
           " " + json(info.to()) + " " + (info.recentMessage() ? info.recentMessage()->text().value_or("without text") : "nothing");
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
        EXPECT_EQ(describe(*VXIMFriendInfo::infoWithDictionary(dictionaryFrom(c.record))), c.expected) << c.why;
    }
}

TEST(FriendInfo, MetadataWithoutARecentMessageKeepsTheOldOne) {
    auto info = VXIMFriendInfo::infoWithDictionary(
        dictionaryFrom(R"({"id":"u7","online":true,"ts":1,"from":"a","to":"b","recent":{"content":{"body":"hi"}}})"));
    info->setMetadataWithDictionary(dictionaryFrom(R"({"id":"u8","ts":2})"));
    EXPECT_EQ(describe(*info), R"("u7" offline 2 nil nil hi)");
}

TEST(FriendInfo, FollowsThePresenceOfItsFriendOnly) {
    auto first = VXIMFriendInfo::infoWithId("u7");
    auto second = VXIMFriendInfo::infoWithId("u7");
    auto other = VXIMFriendInfo::infoWithId("u8");
    auto nobody = VXIMFriendInfo::initWithDictionary({});
    auto empty = VXIMFriendInfo::infoWithId("");
    const auto online = [&] {
        std::string text;
        for (const auto& info : {first, second, other, nobody, empty}) text += info->online() ? "1" : "0";
        return text;
    };

    post(VXIMFriendOnlineNotification, "u7");
    EXPECT_EQ(online(), "11000");
    EXPECT_FALSE(VXIMFriendInfo::infoWithId("u7")->online()) << "what was posted before is not heard";
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
    NotificationCenter::defaultCenter().addObserver(observer, VXIMFriendOnlineNotification, nullptr,
                                                    [&](const vexim::Notification&) { seen += info->online() ? "1" : "0"; });
    auto later = VXIMFriendInfo::infoWithId("u7");
    NotificationCenter::defaultCenter().addObserver(observer, VXIMFriendOfflineNotification, nullptr,
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
    NotificationCenter::defaultCenter().addObserver(observer, VXIMFriendOnlineNotification, nullptr,
                                                    [&](const vexim::Notification&) { second = third = nullptr; });
    auto fourth = VXIMFriendInfo::infoWithId("u7");
    post(VXIMFriendOnlineNotification, "u7");
    EXPECT_TRUE(fourth->online());
    post(VXIMFriendOfflineNotification, "u7");
    EXPECT_FALSE(fourth->online());
}

}  // namespace
