#include "store/ConversationsFixture.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;

class CatchUpTest : public ConversationsTest {
protected:
    /// `count` messages of Bob, a second apart, the last one `ago`: "n1" is the first.
    std::vector<Dictionary> messages(int first, int last,
                                     std::chrono::milliseconds ago = 0ms) const {
        std::vector<Dictionary> all;
        for (int i = first; i <= last; ++i) {
            all.push_back(payloadOf("bob", "n" + std::to_string(i),
                                    nowMillis() - ago.count() - (last - i) * 1000, "alice"));
        }
        return all;
    }
    static std::string named(int first, int last) {
        std::string line;
        for (int i = first; i <= last; ++i)
            line += (line.empty() ? "<n" : " <n") + std::to_string(i);
        return line;
    }
    [[nodiscard]] bool isReported(std::size_t count) {
        return reaches([&] { return reports.size() >= count; });
    }
    std::vector<VXIMStoredGap> gaps(const VXIMConversationId& conversation) {
        std::optional<std::vector<VXIMStoredGap>> found;
        conversations->store()->gaps(conversation, once([&](auto answer, const ErrorPtr&) {
                                         found = answer.value_or(std::vector<VXIMStoredGap>());
                                     }));
        EXPECT_TRUE(reaches([&] { return found.has_value(); }));
        return *found;
    }
    std::int64_t unread() {
        std::optional<std::int64_t> count;
        conversations->store()->conversation(
            kBob, once([&](const std::optional<VXIMConversation>& found, const ErrorPtr&) {
                count = found ? found->unreadCount : -1;
            }));
        EXPECT_TRUE(reaches([&] { return count.has_value(); }));
        return *count;
    }
};

TEST_F(CatchUpTest, ReadsAFreshStoreFullAndLaterWhatWasMissed) {
    auto history = messages(1, 130, 1h);
    setHistory(history);
    startAndLogIn();
    EXPECT_EQ(stored(), named(1, 130));
    EXPECT_EQ(reports.back().missedCount, 0);  // a new device has missed nothing
    EXPECT_EQ(unread(), 0);

    cut();
    for (auto& message : messages(131, 260)) history.push_back(message);
    setHistory(history);
    service.forgetWhatCame();
    reconnect();
    ASSERT_TRUE(isReported(2));
    EXPECT_EQ(stored(), named(1, 260));
    EXPECT_EQ(reports.back().missedCount, 130);
    EXPECT_EQ(unread(), 130);
    EXPECT_FALSE(reports.back().error) << reports.back().error->localizedDescription();
}

TEST_F(CatchUpTest, MergesWhatArrivesLiveMeanwhile) {
    startAndLogIn();
    cut();
    auto history = messages(1, 60);
    setHistory(history);
    service.delay("GET", "/ctx/:id/friends/:other/chats", 10s);
    reconnect();
    // One message that is also in the history, one that is newer, and one from another device, each
    // twice.
    const auto own = payloadOf("alice", "mine", nowMillis() + 20, "bob", std::string(32, 'a'));
    for (int i = 0; i < 2; ++i) {
        socket->send("message", {history.back()});
        socket->send("message", {payloadOf("bob", "n61", nowMillis() + 10, "alice")});
        socket->send("yourself", {own});
    }
    ASSERT_TRUE(isReported(2));
    EXPECT_TRUE(becomes(named(1, 61) + " mine:confirmed"));
    EXPECT_EQ(reports.back().missedCount, 59);
}

TEST_F(CatchUpTest, LeavesNoHoleWhereAProgramEndedInTheMiddle) {
    auto history = messages(1, 3, 1h);
    setHistory(history);
    startAndLogIn();
    end();
    for (auto& message : messages(4, 200, 60s)) history.push_back(message);
    setHistory(history);
    // The first page comes, the second never does; live messages come as well.
    start();
    logIn();
    ASSERT_TRUE(reaches([&] { return stored().find("n200") != std::string::npos; }));
    socket->send("message", {payloadOf("bob", "n201", nowMillis(), "alice")});
    ASSERT_TRUE(reaches([&] { return stored().find("n201") != std::string::npos; }));
    end();
    history.push_back(payloadOf("bob", "n201", nowMillis(), "alice"));
    reports.clear();
    startAndLogIn();
    EXPECT_TRUE(becomes(named(1, 201)));
}

TEST_F(CatchUpTest, MarksWhatItDoesNotReadAsAGap) {
    auto history = messages(1, 2, 2h);
    setHistory(history);
    startAndLogIn({.mostCaughtUp = 100});
    cut();
    for (auto& message : messages(3, 500)) history.push_back(message);
    setHistory(history);
    reconnect();
    ASSERT_TRUE(isReported(2));
    EXPECT_EQ(reports.back().gapCount, 1);
    const auto found = gaps(kBob);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].afterMillis, history[1].get("ts").longLongValue());
    EXPECT_FALSE(stored().starts_with("<n1 <n2 <n3 <n4 "));
    const auto unreadBefore = unread();

    // A gap is filled on demand, page by page, and its messages count as read.
    for (std::size_t pages = 0; !gaps(kBob).empty(); ++pages) {
        ASSERT_LT(pages, 9u);
        std::optional<std::int64_t> count;
        conversations->readGap(kBob, gaps(kBob).front(), once([&](auto read, const ErrorPtr&) {
                                   count = read.value_or(-1);
                               }));
        ASSERT_TRUE(reaches([&] { return count.has_value(); }));
        ASSERT_GE(*count, 0);
    }
    EXPECT_EQ(stored(), named(1, 500));
    EXPECT_EQ(unread(), unreadBefore);

    // If the object is released meanwhile, the completion still runs.
    ErrorPtr why;
    conversations->readGap(kBob, found[0], once([&](auto, const ErrorPtr& error) { why = error; }));
    const auto store = std::exchange(conversations, nullptr)->store();
    EXPECT_TRUE(
        reaches([&] { return why && why->is(VXIMStoreErrorDomain, VXIMStoreErrorClosed); }));
    bool isClosed = false;
    store->close(once([&](bool, const ErrorPtr&) { isClosed = true; }));
    EXPECT_TRUE(reaches([&] { return isClosed; }));
}

TEST_F(CatchUpTest, MarksWhatARoomMayHaveSaidMeanwhile) {
    startAndLogIn();
    auto message = payloadOf("bob", "hello", nowMillis(), "demo-room");
    message.set("to", Dictionary{{"id", "demo-room"}, {"type", 2}});
    socket->send("message", {message});
    ASSERT_TRUE(becomes("<hello", kRoom));
    for (std::size_t i = 0; i < 2; ++i) {  // a second interruption belongs to the same gap
        cut();
        clock.advance(1h);
        reconnect();
        ASSERT_TRUE(isReported(2 + i));
        ASSERT_TRUE(reaches([&] { return !gaps(kRoom).empty(); }));
    }
    EXPECT_EQ(gaps(kRoom).size(), 1u);
}

TEST_F(CatchUpTest, ReadsAllWhatServicesAnswerOddly) {
    const struct {
        const char* why;
        std::function<void()> script;
    } cases[] = {
        {"an error that passes",
         [this] {
             service.answer("GET", "", {.status = 500}, 8);
             answerHistories({.status = 502}, 5);
         }},
        {"it is asked too often",
         [this] {
             service.answer("GET", "/ctx/alice", {.status = 429}, 2);
             answerHistories({.status = 429}, 3);
         }},
        {"the list of friends is refused",
         [this] { service.answer("GET", "/ctx/alice", {.status = 403}); }},
    };
    for (const auto& [why, script] : cases) {
        SCOPED_TRACE(why);
        reports.clear();
        setHistory(messages(1, 70, 1h));
        start({.path = folder / why});
        logIn();
        ASSERT_TRUE(isReported(1));
        cut();
        auto history = messages(1, 70, 1h);
        history.push_back(payloadOf("bob", "n71", nowMillis(), "alice"));
        setHistory(history);
        script();
        reconnect();
        ASSERT_TRUE(isReported(2));
        EXPECT_TRUE(stored().ends_with("<n71")) << stored();
        end();
    }
}

TEST_F(CatchUpTest, LeavesADelegateAndAnotherUserAlone) {
    struct Delegate : VXIMClientDelegate {
        int messages = 0;
        void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&,
                                               const std::shared_ptr<VXIMMessage>&,
                                               const std::shared_ptr<VXIMFriendInfo>&) override {
            ++messages;
        }
    };
    const auto delegate = std::make_shared<Delegate>();
    start();
    client->setDelegate(delegate);
    send("mine");
    logIn("bob");
    socket->send("message", {payloadOf("alice", "not for this store", nowMillis(), "bob")});
    ASSERT_TRUE(reaches([&] { return delegate->messages == 1 && !troubles.empty(); }));
    EXPECT_EQ(stored(), "mine:queued");
    EXPECT_EQ(stored({VXIMConversationKindFriend, "alice"}), "nothing");
    EXPECT_EQ(saidTexts(), "");

    logIn("alice");
    EXPECT_TRUE(says("mine"));
}

TEST_F(CatchUpTest, EndsWellWhereverItIsReleased) {
    setHistory(messages(1, 120, 1h));
    for (int steps = 0; steps < 60; steps += 3) {
        SCOPED_TRACE(steps);
        start();
        conversations->sendText("t" + std::to_string(steps), kBob, nullptr);
        client->loginWithUserId("alice", nullptr);
        ASSERT_TRUE(reaches([&] { return client->status() == VXIMClientStatusOpening; }));
        socket->accept();
        socket->send("login", {Dictionary{{"success", true}, {"id", "alice"}}});
        int ran = 0;
        ASSERT_TRUE(reaches([&] { return ++ran > steps; }));
        end();
    }
    start();
    EXPECT_NE(stored().find("t57"), std::string::npos);
}

}  // namespace
}  // namespace vexim::testing
