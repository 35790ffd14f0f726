// Conversations: what is confirmed, what failed, how history and live messages become one; and the session's state.

#include <algorithm>

#include "tests/tools/ChatFixture.h"
#include "tools/vexim/chat/Roster.h"
#include "tools/vexim/chat/SessionState.h"

namespace {

using namespace chat;

using ConversationTest = ChatTest;

constexpr double kNow = 1'700'000'000;

/// Keeps messages in the order of their time, and answers as the service does: the newest first, none at or after `before`.
class History {
public:
    void add(const Entry& message) { messages_.push_back(message); }

    std::vector<Entry> answer(const Conversation::Request& request) const {
        std::vector<Entry> page;
        for (auto message = messages_.rbegin(); message != messages_.rend(); ++message) {
            const bool isBefore = request.before == 0 || message->time < request.before - 0.0005;
            if (isBefore && static_cast<int>(page.size()) < request.limit) page.push_back(*message);
        }
        return page;
    }

private:
    std::vector<Entry> messages_;
};

std::string texts(const Conversation& conversation) {
    std::string all;
    for (const auto& entry : conversation.entries()) all += (all.empty() ? "" : " ") + entry.text;
    return all;
}

const Entry& last(const Conversation& conversation) { return conversation.entries().back(); }

TEST_F(ConversationTest, PagesThroughAHistoryWithoutAGapOrADouble) {
    History history;
    std::string expected;
    for (int number = 0; number < 1000; ++number) {
        // Twelve at a time bear one time, and a hundred in the middle do.
        const int time = number / 12 * 12;
        history.add(messageFrom("bob", kNow + (number >= 400 && number < 500 ? 400 : time), "m" + std::to_string(number)));
        expected += (number == 0 ? "m" : " m") + std::to_string(number);
    }
    Conversation conversation({Kind::Friend, "bob"});
    conversation.takeNewest(Conversation::newestPage(kNow + 5000), history.answer(Conversation::newestPage(kNow + 5000)));
    for (int pages = 0; conversation.older == Older::There; ++pages) {
        ASSERT_LT(pages, 50) << "no end of it";
        const auto request = conversation.olderPage();
        conversation.takeOlder(request, history.answer(request));
    }
    EXPECT_EQ(conversation.older, Older::Nothing);
    EXPECT_EQ(texts(conversation), expected);
}

TEST_F(ConversationTest, KnowsOwnMessagesWhenTheyComeBack) {
    Conversation conversation({Kind::Friend, "bob"});
    conversation.append(ownMessage(kNow, "one", Delivery::Handed));
    conversation.append(ownMessage(kNow + 0.001, "one", Delivery::Handed));
    EXPECT_FALSE(conversation.confirm(messageFrom("me", kNow, "two"))) << "sent from another device";
    EXPECT_TRUE(conversation.confirm(messageFrom("me", kNow + 0.001, "one")));
    EXPECT_EQ(conversation.entries()[0].delivery, Delivery::Handed);
    EXPECT_EQ(conversation.entries()[1].delivery, Delivery::Delivered);
    EXPECT_FALSE(conversation.confirm(messageFrom("me", kNow + 0.001, "one"))) << "once only";

    EXPECT_FALSE(conversation.doubt(kNow + 1));
    EXPECT_TRUE(conversation.doubt(kNow + kPatience + 1));
    EXPECT_FALSE(conversation.doubt(kNow + kPatience + 2)) << "said already";
    EXPECT_EQ(conversation.entries()[0].delivery, Delivery::Unconfirmed);
}

TEST_F(ConversationTest, AfterALossTellsWhatArrivedFromWhatDidNot) {
    History history;
    Conversation conversation({Kind::Group, "g"});
    for (const char* text : {"a", "b"}) {
        history.add(messageFrom("bob", kNow, text));
        conversation.append(messageFrom("bob", kNow, text));
    }
    conversation.append(ownMessage(kNow + 1, "arrived", Delivery::Handed));
    conversation.append(ownMessage(kNow + 2, "lost", Delivery::Handed));
    conversation.append(ownMessage(kNow + 58, "just handed over", Delivery::Handed));
    history.add(messageFrom("me", kNow + 1, "arrived"));
    history.add(messageFrom("bob", kNow + 20, "missed"));

    auto request = Conversation::newestPage(kNow + 60);
    request.newsAfter = kNow + 10;
    EXPECT_EQ(conversation.takeNewest(request, history.answer(request)), 1);
    EXPECT_EQ(texts(conversation), "a b arrived lost missed just handed over");
    EXPECT_EQ(conversation.entries()[2].delivery, Delivery::Delivered);
    EXPECT_EQ(conversation.entries()[3].delivery, Delivery::Failed);
    EXPECT_EQ(last(conversation).delivery, Delivery::Handed) << "too fresh to judge";
}

TEST_F(ConversationTest, ShowsNoGap) {
    History history;
    Conversation conversation({Kind::Friend, "bob"});
    conversation.append(messageFrom("bob", kNow, "before"));
    conversation.append(ownMessage(kNow + 1, "failed", Delivery::Failed));
    conversation.older = Older::Nothing;
    for (int number = 0; number < 200; ++number) history.add(messageFrom("bob", kNow + 10 + number, "m"));
    const auto request = Conversation::newestPage(kNow + 1000);
    conversation.takeNewest(request, history.answer(request));
    EXPECT_EQ(conversation.entries().front().text, "failed") << "it is nowhere else";
    EXPECT_EQ(conversation.entries().size(), 1u + static_cast<std::size_t>(request.limit));
    EXPECT_EQ(conversation.older, Older::There) << "the way back is through the history again";
}

TEST_F(ConversationTest, BoundsWhatItKeeps) {
    Conversation conversation({Kind::Friend, "bob"});
    conversation.older = Older::Nothing;
    for (std::size_t number = 0; number < Conversation::kMost + 10; ++number) conversation.append(messageFrom("bob", kNow, "m"));
    EXPECT_EQ(conversation.entries().size(), Conversation::kMost);
    EXPECT_EQ(conversation.older, Older::There);
}

TEST_F(ConversationTest, CountsWhatIsUnread) {
    Roster roster;
    auto& bob = roster.open({Kind::Friend, "bob"});
    auto& group = roster.open({Kind::Group, "g"});
    roster.select(bob);
    roster.receive(bob.address, messageFrom("bob", kNow, "seen"));
    roster.receive(group.address, messageFrom("bob", kNow, "elsewhere"));
    roster.receive(group.address, ownMessage(kNow, "from another device", Delivery::Delivered));
    EXPECT_EQ(bob.unread, 0);
    EXPECT_EQ(group.unread, 1);

    bob.anchor = Anchor{bob.entries().front().id, 0};
    roster.receive(bob.address, messageFrom("bob", kNow + 1, "below the screen"));
    EXPECT_EQ(bob.unread, 1);
    roster.follow();
    EXPECT_EQ(bob.unread, 0);

    EXPECT_TRUE(roster.selectUnread());
    EXPECT_EQ(roster.current().address.id, "g");
    EXPECT_EQ(group.unread, 0);
    EXPECT_FALSE(roster.selectUnread());
    roster.selectBy(1);
    EXPECT_EQ(roster.current().address.kind, Kind::Console) << "around the end";
    roster.selectBy(-1);
    roster.close(group.address);
    EXPECT_EQ(&roster.current(), &bob);
}

TEST_F(ConversationTest, SaysWhereTheSessionStandsAndWhatComesNext) {
    SessionState state("chat.example", 10);
    const auto expect = [&](double now, const char* line, bool isAlert, double oldestHanded = 0) {
        EXPECT_EQ(state.line(now, oldestHanded), line);
        EXPECT_EQ(state.isAlert(now, oldestHanded), isAlert) << line;
    };
    state.connecting(0);
    expect(0, "connecting to chat.example …", false);
    state.connectFailed("refused", 2, 1);
    expect(1.5, "no connection: next attempt in 1 s, /resume tries now (refused)", true);
    state.connecting(2);
    expect(2, "connecting to chat.example, attempt 2 …", false);
    state.connected("me", 3);
    expect(3, "me connected to chat.example", false);
    expect(20, "me connected to chat.example", false, 16);
    expect(20, "connected, but the service has not answered for 8 s", true, 12);
    state.lost(30);
    expect(30, "connection lost: next attempt within 10 s, /resume tries now", true);
    state.attempting(31);
    expect(31, "reconnecting to chat.example, attempt 1 …", true);
    state.attemptFailed("timed out", 35);
    expect(35, "attempt 1 failed: next attempt within 10 s, /resume tries now (timed out)", true);
    state.waitingUntil(38.5);
    expect(36, "attempt 1 failed: next attempt in 3 s, /resume tries now (timed out)", true);
    state.attempting(36);
    expect(36, "reconnecting to chat.example, attempt 2 …", true);
    state.connected("me", 40);
    expect(41, "me connected to chat.example", false, 25);  // handed over before: not yet the service's fault
    state.paused(50);
    expect(50, "paused: nothing arrives until /resume", true);
    state.refused("no such user", 60);
    expect(60, "login refused (no such user): /resume tries again, /quit leaves", true);
}

}  // namespace
