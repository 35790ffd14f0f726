#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "store/StoreFixture.h"
#include "support/Eventually.h"

namespace vexim::testing {
namespace {

TEST_F(StoreTest, GivesPagesByTimeInBothDirectionsAlsoAfterItWasOpenedAgain) {
    open();
    // Three messages of the same millisecond, one of the next hour, and one that comes late.
    for (const auto& [text, at] :
         {std::pair{"b", 10}, {"c", 10}, {"d", 10}, {"e", 20}, {"a", 5}, {"f", 30}})
        receive(text, kNoon + at);
    receive("g", kNoon + kHour);
    receive("elsewhere", kNoon, team);
    for (int again = 0; again < 2; ++again, open()) {
        for (const int size : {1, 2, 3, 100}) {
            std::string backwards, forwards;
            std::optional<VXIMStorePosition> position;
            for (auto page = before({}, size); !page.empty(); page = before(position, size)) {
                position = page.front().position();
                std::ranges::reverse(page);
                backwards += texts(page) + " ";
            }
            position.reset();
            for (auto page = after({}, size); !page.empty(); page = after(position, size)) {
                position = page.back().position();
                forwards += texts(page) + " ";
            }
            EXPECT_EQ(backwards, "g f e d c b a ") << size;
            EXPECT_EQ(forwards, "a b c d e f g ") << size;
        }
    }
    const auto stored = after({}, 1).front();
    EXPECT_EQ(stored.sender, "bob");
    EXPECT_EQ(stored.payload, payload("a", kNoon + 5, "bob"));
    EXPECT_EQ(wait(call(&VXIMMessageStore::message, store, stored.localId))->text(), "a");
    EXPECT_FALSE(wait(call(&VXIMMessageStore::message, store, 4711)));
}

TEST_F(StoreTest, HoldsEachMessageOnceHoweverItComes) {
    open();
    const std::string key = "018bcfe568000123456789abcdef0123";
    const auto arrive = [&](Dictionary what) {
        return insert({{.conversation = bob, .payload = std::move(what)}}).front();
    };
    const auto with = [](Dictionary what, const char* name, Value value) {
        what.set(name, std::move(value));
        return what;
    };
    const Dictionary plain = payload("hi", kNoon, "bob");
    const Dictionary keyed = payload("hi", kNoon + 1, "bob", key);
    struct Case {
        const char* why;
        Dictionary what;
        Outcome outcome;
        std::size_t stored;
    };
    const Case cases[] = {
        {"new", plain, Outcome::Inserted, 1},
        {"the same", plain, Outcome::Known, 1},
        {"the same text, later", payload("hi", kNoon + 1, "bob"), Outcome::Inserted, 2},
        {"the same text and time by another", payload("hi", kNoon, "carol"), Outcome::Inserted, 3},
        {"the old form of the writer", with(payload("hi", kNoon), "speaker", "bob"), Outcome::Known,
         3},
        {"a copy that has a key now", keyed, Outcome::Known, 3},
        {"its key, at another time", with(keyed, "ts", kNoon + 500), Outcome::Known, 3},
        {"another key, same time and text", payload("hi", kNoon + 1, "bob", key + "x"),
         Outcome::Inserted, 4},
        {"somebody else's use of the key", payload("hi", kNoon + 1, "mallory", key),
         Outcome::Inserted, 5},
        {"a service's id", with(payload("id", kNoon, "bob"), "id", "s1"), Outcome::Inserted, 6},
        {"that id at another time", with(payload("id", kNoon + 9, "bob"), "id", "s1"),
         Outcome::Known, 6},
        {"a number for an id", with(payload("id", kNoon, "bob"), "id", 17), Outcome::Inserted, 7},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(arrive(each.what).outcome, each.outcome) << each.why;
        EXPECT_EQ(after({}, 100).size(), each.stored) << each.why;
    }
    const auto inOneBatch = insert(
        {{.conversation = team, .payload = plain}, {.conversation = team, .payload = plain}});
    EXPECT_EQ(inOneBatch[1].outcome, Outcome::Known) << "a repetition within a batch";
    // The smaller time counts, whichever copy came first.
    arrive(with(keyed, "ts", kNoon - 500));
    EXPECT_EQ(after({}, 1).front().key, key);
}

TEST_F(StoreTest, TakesAnOwnMessageThroughItsStatesToTheEcho) {
    open();
    std::ofstream(folder / "cat.png") << "meow";
    auto first = write("one", kNoon, "key-1", {(folder / "cat.png").string()});
    const auto second = write("two", kNoon - 10);
    EXPECT_EQ(second.sentAtMillis, kNoon + 1)
        << "the order of sending, though the clock was set back";
    EXPECT_EQ(second.payload.get("ts"), Value(second.sentAtMillis));
    ASSERT_EQ(first.attachmentFiles.size(), 1u);
    std::filesystem::remove(folder / "cat.png");

    const ErrorPtr error = Error::withDescription(VXIMErrorDomain, 503, "busy");
    change(first.localId, {.state = VXIMStoredMessageFailed, .error = error, .attempts = 2});
    change(second.localId, {.state = VXIMStoredMessageSent});
    shut();
    open();  // a new start
    auto waiting = *wait(call(&Operations::waiting, shared()));
    ASSERT_EQ(texts(waiting), "one two");
    EXPECT_EQ(waiting[0].state, VXIMStoredMessageFailed);
    EXPECT_EQ(waiting[0].error->localizedDescription(), "busy");
    EXPECT_EQ(waiting[0].attempts, 2);
    EXPECT_EQ(waiting[0].sender, "alice");
    std::string content;
    std::ifstream(waiting[0].attachmentFiles.at(0)) >> content;
    EXPECT_EQ(content, "meow");
    struct stat file {};
    ASSERT_EQ(::stat(waiting[0].attachmentFiles[0].c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777, 0600u);

    EXPECT_EQ(echo(payload("one", kNoon + 7, {}, "key-1")).outcome, Outcome::Confirmed);
    EXPECT_FALSE(std::filesystem::exists(waiting[0].attachmentFiles[0]));
    EXPECT_EQ(change(first.localId, {.state = VXIMStoredMessageSent}).state,
              VXIMStoredMessageConfirmed)
        << "the echo has overtaken the sending";
    EXPECT_EQ(echo(payload("two", kNoon + 9)).localId, second.localId)
        << "by its content: the service dropped the key";
    EXPECT_EQ(echo(payload("two", kNoon + 9)).outcome, Outcome::Known) << "the history's copy";
    EXPECT_EQ(echo(payload("two", kNoon + 20)).outcome, Outcome::Inserted) << "another device's";
    const auto moved = write("moved", kNoon + 30);
    change(moved.localId, {.state = VXIMStoredMessageSent});
    Arrival late{.conversation = bob,
                 .payload = payload("moved", kNoon + 60'000, "alice"),
                 .direction = VXIMStoredMessageOutgoing};
    const auto twice = insert({late, late});
    EXPECT_EQ(twice[0].outcome, Outcome::Confirmed);
    EXPECT_EQ(twice[1].outcome, Outcome::Known)
        << "it stands behind all others since the first copy";
    const auto third = write("three", kNoon + 120'000);
    EXPECT_EQ(echo(payload("three", kNoon)).outcome, Outcome::Inserted)
        << "never sent, so nobody can have it";
    change(third.localId, {.state = VXIMStoredMessageSending});
    EXPECT_EQ(echo(payload("three", kNoon + 1)).outcome, Outcome::Inserted) << "older by minutes";
    EXPECT_EQ(texts(*wait(call(&Operations::waiting, shared()))), "three");
    EXPECT_EQ(codeOf([&] { change(4711, {}); }), VXIMStoreErrorNotFound);
    EXPECT_EQ(codeOf([&] { write("four", kNoon, {}, {folder / "no-such-file"}); }),
              VXIMStoreErrorFailed);
    EXPECT_TRUE(wait(call(&Operations::remove, shared(), third.localId)));
    EXPECT_EQ(texts(*wait(call(&Operations::waiting, shared()))), "")
        << "nothing is left of the one without its file";
}

TEST_F(StoreTest, CountsUnreadKeepsDraftsAndForgetsConversations) {
    open();
    for (int i = 1; i <= 5; ++i) receive(std::to_string(i), kNoon + i);
    receive("old", kNoon - 1, team);
    receive("1", kNoon + 1);  // known
    write("mine", kNoon + 6);
    insert({{.conversation = team,
             .payload = payload("read", kNoon - 2, "bob"),
             .countsAsUnread = false}});
    wait(call(&VXIMMessageStore::setDraft, store, team, "Dear all"));
    const auto describe = [this] {
        std::string answer;
        for (const auto& each : conversations()) {
            answer += each.id.id + " " + (each.lastMessage ? each.lastMessage->text() : "-") + " " +
                      std::to_string(each.unreadCount) + " " + each.draft + "\n";
        }
        return answer;
    };
    EXPECT_EQ(describe(), "bob mine 5 \nteam old 1 Dear all\n");
    wait(call(&VXIMMessageStore::markRead, store, bob, after({}, 3).back().position()));
    wait(call(&VXIMMessageStore::markRead, store, team, std::nullopt));
    open();
    EXPECT_EQ(describe(), "bob mine 2 \nteam old 0 Dear all\n");

    wait(call(&VXIMMessageStore::removeConversation, store, bob));
    EXPECT_EQ(describe(), "team old 0 Dear all\n");
    EXPECT_TRUE(search({.text = "mine"}).empty());
    const Arrival fromHistory{
        .conversation = bob, .payload = payload("3", kNoon + 3, "bob"), .isHistory = true};
    EXPECT_EQ(insert({fromHistory}).front().outcome, Outcome::Known)
        << "the history must not bring back what was removed";
    EXPECT_EQ(receive("new", kNoon + 7).outcome, Outcome::Inserted);
    EXPECT_EQ(describe(), "bob new 1 \nteam old 0 Dear all\n");
}

/// Updates a list on a screen, using only what the observer reports.
template <class T>
void apply(std::vector<T>& shown, const VXIMListChange<T>& change) {
    for (auto i = change.removed.rbegin(); i != change.removed.rend(); ++i)
        shown.erase(shown.begin() + static_cast<std::ptrdiff_t>(*i));
    for (const std::size_t i : change.inserted)
        shown.insert(shown.begin() + static_cast<std::ptrdiff_t>(i), change.list.at(i));
    for (const std::size_t i : change.changed) shown.at(i) = change.list.at(i);
}

TEST_F(StoreTest, TellsObserversExactlyWhatAListMustDo) {
    open();
    const auto describe = [](const VXIMStoredMessage& each) {
        return each.text() + "/" + std::to_string(each.state);
    };
    const auto describeEach = [](const VXIMConversation& each) {
        return each.id.id + "/" + (each.lastMessage ? each.lastMessage->text() : "") + "/" +
               std::to_string(each.unreadCount) + each.draft;
    };
    const auto all = [](const auto& list, const auto& describeOne) {
        std::string answer;
        for (const auto& each : list) answer += describeOne(each) + " ";
        return answer;
    };
    std::vector<VXIMStoredMessage> shown;
    std::vector<VXIMConversation> shownConversations;
    std::size_t moves = 0;
    auto messages = store->observeMessages(bob, 6, [&](const auto& change) {
        apply(shown, change);
        EXPECT_EQ(all(shown, describe), all(change.list, describe));
    });
    auto list = store->observeConversations(3, [&](const auto& change) {
        apply(shownConversations, change);
        moves += change.inserted.size();
        EXPECT_EQ(all(shownConversations, describeEach), all(change.list, describeEach));
    });
    std::mt19937 random(15);
    std::vector<std::int64_t> own;
    int limit = 6;
    for (int step = 0; step < 300; ++step) {
        const std::string text = std::to_string(step);
        const VXIMConversationId id =
            random() % 3
                ? bob
                : VXIMConversationId{VXIMConversationKindGroup, std::to_string(random() % 5)};
        const std::int64_t at = kNoon + step * 10 - static_cast<std::int64_t>(random() % 60);
        switch (random() % 8) {
            case 0: own.push_back(write(text, at).localId); break;
            case 1:
                if (!own.empty())
                    change(own[random() % own.size()], {.state = VXIMStoredMessageSent});
                break;
            case 2:
                if (!own.empty() && own.size() > 3) {
                    wait(call(&Operations::remove, shared(), own.back()));
                    own.pop_back();
                }
                break;
            case 3: wait(call(&VXIMMessageStore::markRead, store, id, std::nullopt)); break;
            case 4: wait(call(&VXIMMessageStore::setDraft, store, id, text)); break;
            case 5:
                limit = 1 + static_cast<int>(random() % 9);
                messages->setLimit(limit);
                break;
            default: receive(text, at, id); break;
        }
        if (step % 100 == 99) {
            wait(call(&VXIMMessageStore::removeConversation, store, bob));
            own.clear();
        }
        const auto expected =
            before({}, limit);  // queued after the change, so the change was reported before
        EXPECT_EQ(all(shown, describe), all(expected, describe)) << step;
        auto newest = conversations();
        if (newest.size() > 3) newest.resize(3);
        ASSERT_EQ(all(shownConversations, describeEach), all(newest, describeEach)) << step;
    }
    EXPECT_LT(moves, 300u) << "what only rises to the top moves alone";
    const std::string last = all(shown, describe);
    messages = nullptr;
    receive("unheard", kNoon * 2);
    EXPECT_EQ(all(shown, describe), last);
}

TEST_F(StoreTest, KeepsToItsLimitsButNeverDropsWhatIsUnsent) {
    open();
    const std::int64_t now = static_cast<std::int64_t>(Clock::shared()->wallTime() * 1000);
    write("unsent", now - 1000 * kHour);
    for (int i = 0; i < 30; ++i) receive(std::to_string(i), now - (30 - i) * kHour);
    for (int i = 0; i < 3; ++i) receive(std::to_string(i), now - (30 - i) * kHour, team);
    EXPECT_EQ(*wait(call(&VXIMMessageStore::setRetention, store, VXIMRetention{std::nullopt, 5})),
              25);
    EXPECT_EQ(texts(after({}, 100)), "unsent 25 26 27 28 29");
    EXPECT_EQ(after({}, 100, team).size(), 3u);
    EXPECT_TRUE(search({.text = "24"}).empty());
    EXPECT_EQ(*wait(call(&VXIMMessageStore::setRetention, store,
                         VXIMRetention{std::chrono::hours(3), 5})),
              6);
    EXPECT_EQ(texts(after({}, 100)), "unsent 28 29");
    for (int i = 0; i < 90; ++i) receive("later" + std::to_string(i), now + i);
    open();
    EXPECT_EQ(after({}, 100).size(), 6u);
}

TEST_F(StoreTest, WritesAllMessagesAsLines) {
    open();
    for (int i = 0; i < 5; ++i) receive("line\n" + std::to_string(i), kNoon - i);
    for (int i = 0; i < 2500; ++i)
        operations->insert({{.conversation = team, .payload = payload("x", kNoon + i, "bob")}}, {});
    const auto mine = write("mine", kNoon + 1);
    change(mine.localId,
           {.state = VXIMStoredMessageFailed, .error = Error::withDescription("d", 7, "why")});
    const std::string file = folder / "all.jsonl";
    EXPECT_EQ(*wait(call(&VXIMMessageStore::exportJSONLines, store, file, std::nullopt)), 2506);
    std::ifstream lines(file);
    std::vector<Value> read;
    for (std::string line; std::getline(lines, line);) read.push_back(parseJSON(line).value);
    ASSERT_EQ(read.size(), 2506u);
    const auto found = std::ranges::find_if(
        read, [](const Value& each) { return each.get("direction") == Value("outgoing"); });
    ASSERT_NE(found, read.end());
    EXPECT_EQ(found->get("error").get("code"), Value(7));
    EXPECT_EQ(found->get("conversation"), Value(Dictionary{{"kind", "friend"}, {"id", "bob"}}));
    EXPECT_EQ(std::prev(found)->get("payload").get("content").get("body"), Value("line\n0"));
    EXPECT_EQ(*wait(call(&VXIMMessageStore::exportJSONLines, store, file, bob)), 6);
    EXPECT_EQ(
        codeOf([&] {
            wait(call(&VXIMMessageStore::exportJSONLines, store, folder / "none/x", std::nullopt));
        }),
        VXIMStoreErrorFailed);
    EXPECT_EQ(texts(before({}, 1)), "mine") << "it goes on";
}

}  // namespace
}  // namespace vexim::testing
