// What a search in a store finds, and in which order.

#include <string>
#include <utility>
#include <vector>

#include "store/StoreFixture.h"

namespace vexim::testing {
namespace {

TEST_F(StoreTest, FindsWordsWhereverTheyStandTheNewestFirst) {
    open();
    const std::pair<const char*, int> stored[] = {
        {"The quick brown fox", 0},
        {"a QUICK answer", 1},
        {"Grüße aus Köln", 2},
        {"it's \"quoted\" (really) AND *", 3},
        {"今日は東京に行きます", 4},
        {"half past ten; nul", 5},
        {"quickly", 50},
        {"quick but late news", -30},
    };
    for (const auto& [text, hours] : stored) receive(text, kNoon + hours * kHour);
    receive("quick elsewhere", kNoon, team);
    const std::pair<VXIMMessageSearch, std::vector<std::string>> cases[] = {
        {{.text = "quick"},
         {"a QUICK answer", "quick elsewhere", "The quick brown fox", "quick but late news"}},
        {{.text = "quick fox"}, {"The quick brown fox"}},
        {{.text = "fox quick"}, {"The quick brown fox"}},
        {{.text = "\"fox quick\""}, {}},
        {{.text = "\"quick brown"}, {"The quick brown fox"}},
        {{.text = "qui* bro*"}, {"The quick brown fox"}},
        {{.text = "qui"}, {}},
        {{.text = "grusse koln"}, {}},
        {{.text = "GRÜßE koln"}, {"Grüße aus Köln"}},
        {{.text = "東京"}, {"今日は東京に行きます"}},
        {{.text = "京東"}, {}},
        {{.text = "it's"}, {"it's \"quoted\" (really) AND *"}},
        {{.text = "really) OR fox"}, {}},
        {{.text = "and quoted"}, {"it's \"quoted\" (really) AND *"}},
        {{.text = "place:c1"}, {}},
        {{.text = "c1"}, {}},
        {{.text = ""}, {}},
        {{.text = "\"\" * ( ) ^ - + :"}, {}},
        {{.text = "… fox"}, {"The quick brown fox"}},
        {{.text = "quick", .conversation = team}, {"quick elsewhere"}},
        {{.text = "quick", .conversation = VXIMConversationId{VXIMConversationKindRoom, "team"}},
         {}},
        {{.text = "quick", .sinceMillis = kNoon, .untilMillis = kNoon + kHour},
         {"quick elsewhere", "The quick brown fox"}},
        {{.text = "quick", .limit = 1}, {"a QUICK answer"}},
    };
    for (int again = 0; again < 2; ++again, open()) {
        for (const auto& [what, expected] : cases) {
            std::vector<std::string> found;
            for (const auto& each : search(what)) found.push_back(each.text());
            EXPECT_EQ(found, expected) << what.text;
        }
    }
    std::string paged;
    VXIMMessageSearch page{.text = "quick*", .limit = 2};
    for (auto found = search(page); !found.empty(); found = search(page)) {
        for (const auto& each : found) paged += each.text() + "; ";
        page.before = found.back().position();
    }
    EXPECT_EQ(
        paged,
        "quickly; a QUICK answer; quick elsewhere; The quick brown fox; quick but late news; ");
}

TEST_F(StoreTest, FindsInTheOrderOfTimeAlsoWhatAServiceHasMovedToAnotherDay) {
    open();
    write("word mine", kNoon, "k1");
    for (int i = 0; i < 10; ++i) receive("word " + std::to_string(i), kNoon + (i - 5) * kHour);
    echo(payload("word mine", kNoon + 72 * kHour, {}, "k1"));
    EXPECT_EQ(texts(search({.text = "word", .limit = 2})), "word mine word 9");
    EXPECT_EQ(texts(search({.text = "word", .sinceMillis = kNoon + 48 * kHour})), "word mine");
    EXPECT_EQ(texts(before({}, 2)), "word 9 word mine");
}

}  // namespace
}  // namespace vexim::testing
