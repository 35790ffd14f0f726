// Conversations: messages as the store has them, notices between them, files, what is unread; and
// the session's state.

#include "tests/tools/ChatFixture.h"
#include "tools/vexim/chat/Roster.h"
#include "tools/vexim/chat/SessionState.h"

namespace {

using namespace chat;

using ConversationTest = ChatTest;

constexpr double kNow = 1'700'000'000;

std::string texts(const Conversation& conversation) {
    std::string all;
    for (const auto& entry : conversation.entries()) all += (all.empty() ? "" : " ") + entry.text;
    return all;
}

TEST_F(ConversationTest, StandsNoticesWhereTheyBelongWhateverTheStoreHas) {
    Conversation conversation({Kind::Group, "g"});
    conversation.notice(messageFrom("", kNow + 15, "[notice]"));
    EXPECT_EQ(texts(conversation), "[notice]") << "before the store is open";
    std::vector<Entry> messages = {messageFrom("bob", kNow, "a"),
                                   messageFrom("bob", kNow + 10, "b"),
                                   messageFrom("bob", kNow + 20, "c")};
    conversation.show(numbered(messages));
    EXPECT_EQ(texts(conversation), "a b [notice] c");
    auto gap = messageFrom("", kNow + 9.9995, "[gap]");
    gap.isNotice = true;
    conversation.showGaps({gap});
    conversation.showGaps({gap});
    EXPECT_EQ(texts(conversation), "a [gap] b [notice] c") << "each once";
    messages.insert(messages.begin(), messageFrom("bob", kNow - 10, "older"));
    conversation.show(numbered(messages));
    conversation.showGaps({});
    EXPECT_EQ(texts(conversation), "older a b [notice] c");
    conversation.notice(messageFrom("", kNow + 1, "[late]"));
    EXPECT_EQ(conversation.entries().back().text, "[late]")
        << "what is said now stands at the end, whatever others' clocks say";
}

TEST_F(ConversationTest, KeepsWhatItKnowsOfAFileWhenTheStoreTellsOfItAgain) {
    Roster roster;
    auto& bob = roster.open({Kind::Friend, "bob"});
    auto sent = ownMessage(kNow, "", Delivery::Sending);
    sent.file = File{"image", "dot.png", "/store/12-0.png"};
    auto received = messageFrom("bob", kNow + 1, "http://service/1.png");
    received.file = File{"image", "dot.png", ""};
    const auto messages = numbered({sent, received});
    bob.show(messages);
    roster.numberFiles(bob);
    bob.find(1)->file->path = "/pictures/dot.png";
    bob.find(1)->file->percent = 45;
    bob.find(2)->file->percent = 10;  // being fetched
    bob.show(messages);
    roster.numberFiles(bob);
    EXPECT_EQ(bob.find(1)->file->path, "/pictures/dot.png");
    EXPECT_EQ(bob.find(1)->file->percent, 45);
    EXPECT_EQ(bob.findFile(1), bob.find(2)) << "the same number";
    EXPECT_EQ(bob.find(2)->file->percent, 10);

    auto delivered = messages;
    delivered[0].delivery = Delivery::Delivered;
    delivered[0].text = "http://service/2.png";
    bob.show(delivered);
    roster.numberFiles(bob);
    EXPECT_FALSE(bob.find(1)->file->percent);
    EXPECT_EQ(bob.findFile(2), bob.find(1));
}

TEST_F(ConversationTest, DoubtsWhatHasNotComeBackInTime) {
    Conversation conversation({Kind::Friend, "bob"});
    conversation.show(numbered({ownMessage(kNow, "one", Delivery::Handed),
                                ownMessage(kNow + 4, "two", Delivery::Handed)}));
    conversation.doubt(kNow + kPatience + 1);
    EXPECT_EQ(conversation.entries()[0].delivery, Delivery::Unconfirmed);
    EXPECT_EQ(conversation.entries()[1].delivery, Delivery::Handed);
}

TEST_F(ConversationTest, CountsWhatIsUnread) {
    Roster roster;
    auto& bob = roster.open({Kind::Friend, "bob"});
    auto& group = roster.open({Kind::Group, "g"});
    roster.select(bob);
    roster.setUnread(bob, 1);
    roster.setUnread(group, 1);
    EXPECT_EQ(bob.unread, 0) << "it is being looked at";
    EXPECT_EQ(group.unread, 1);

    bob.show(numbered({messageFrom("bob", kNow, "seen")}));
    bob.anchor = Anchor{bob.entries().front().id, 0};
    roster.setUnread(bob, 1);  // below the screen
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
    const Address closed = group.address;
    roster.close(closed);
    EXPECT_EQ(&roster.current(), &bob);
    EXPECT_TRUE(roster.wasClosed(closed));
    roster.open(closed);
    EXPECT_FALSE(roster.wasClosed(closed));
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
    // handed over before: not yet the service's fault
    expect(41, "me connected to chat.example", false, 25);
    state.paused(50);
    expect(50, "paused: nothing arrives until /resume", true);
    state.refused("no such user", 60);
    expect(60, "login refused (no such user): /resume tries again, /quit leaves", true);
}

}  // namespace
