#include <fstream>

#include "store/ConversationsFixture.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;
using Answer = FakeService::Answer;

class OutboxTest : public ConversationsTest {
public:
    using ConversationsTest::answerHistories;
    using ConversationsTest::setHistory;

    /// A message sent over the former connection, as it is in the service's history.
    Dictionary arrived(std::size_t number, bool withKey = true) const {
        return arrivedOf(former.at(number), withKey);
    }
    static Dictionary arrivedOf(Dictionary payload, bool withKey = true) {
        payload.set("from", Dictionary{{"id", "alice"}, {"type", 0}});
        if (!withKey) payload.remove("key");
        return payload;
    }

    std::vector<Dictionary> former;
};

TEST_F(OutboxTest, SendsInOrderAndConfirmsWhatComesBack) {
    startAndLogIn();
    send("one");
    send("two");
    send("elsewhere", kGroup);
    ASSERT_TRUE(reaches([&] { return said().size() == 3; }));
    EXPECT_TRUE(becomes("one:sent two:sent"));

    const auto payloads = said();
    EXPECT_NE(payloads[0].get("key"), payloads[1].get("key"));
    EXPECT_EQ(payloads[0].get("key").asString().value_or("").size(), 32u);
    for (const auto& payload : payloads) echo(payload);
    EXPECT_TRUE(becomes("one:confirmed two:confirmed"));
    EXPECT_TRUE(becomes("elsewhere:confirmed", kGroup));
    for (const auto& payload : payloads) echo(payload);  // a service that repeats itself
    EXPECT_TRUE(becomes("one:confirmed two:confirmed"));
}

TEST_F(OutboxTest, TakesNothingButTheEchoForTheEcho) {
    const auto dropKey = [](Dictionary& payload) { payload.remove("key"); };
    const struct {
        const char* why;
        std::function<void(Dictionary&)> change;
        const char* stored;
    } cases[] = {
        {"as it went out", [](Dictionary&) {}, "hi:confirmed"},
        {"the service drops what it does not know", dropKey, "hi:confirmed"},
        {"and sets the time itself",
         [&](Dictionary& payload) {
             dropKey(payload);
             payload.set("ts", payload.get("ts").longLongValue() + 700);
         },
         "hi:confirmed"},
        {"another device said the same",
         [](Dictionary& payload) { payload.set("key", std::string(32, 'f')); },
         "hi:sent hi:confirmed"},
        {"another text",
         [&](Dictionary& payload) {
             dropKey(payload);
             payload.set("content", Dictionary{{"media", 0}, {"body", "ho"}});
         },
         "hi:sent ho:confirmed"},
    };
    for (const auto& [why, change, wanted] : cases) {
        SCOPED_TRACE(why);
        reports.clear();
        startAndLogIn({.path = folder / why});
        send("hi");
        ASSERT_TRUE(says("hi"));
        ASSERT_TRUE(becomes("hi:sent"));
        echo(said()[0], change);
        EXPECT_TRUE(becomes(wanted));
        end();
    }
}

TEST_F(OutboxTest, HoldsTheConversationOfAPassingFailureAndNoOther) {
    startAndLogIn();
    socket->refusal =
        Error::make(kSocketIOErrorDomain, SocketIOErrorTooLarge, Dictionary{{kTemporaryKey, true}});
    step = 0ms;  // the pause of "one" is not over
    send("one");
    ASSERT_TRUE(reaches([&] { return socket->refused == 1; }));
    ASSERT_TRUE(becomes("one:queued"));
    send("two");
    socket->refusal = nullptr;
    send("other", kGroup);
    ASSERT_TRUE(says("other"));
    step = 250ms;
    EXPECT_TRUE(says("other one two")) << saidTexts();
}

TEST_F(OutboxTest, FailsForGoodWhatCannotPassAndGoesOn) {
    startAndLogIn();
    socket->refusal = Error::make(kSocketIOErrorDomain, SocketIOErrorTooLarge, Dictionary{});
    const auto first = send("long");
    ASSERT_TRUE(becomes("long:failed"));
    socket->refusal = nullptr;
    send("short");
    EXPECT_TRUE(says("short"));
    bool isRetried = false;
    conversations->retry(first, once([&](bool retried, const ErrorPtr&) { isRetried = retried; }));
    EXPECT_TRUE(says("short long"));
    EXPECT_TRUE(isRetried);
    conversations->retry(12'345, once([&](bool retried, const ErrorPtr& error) {
                             isRetried = retried;
                             EXPECT_TRUE(error->is(VXIMStoreErrorDomain, VXIMStoreErrorNotFound));
                         }));
    EXPECT_TRUE(reaches([&] { return !isRetried; }));
}

TEST_F(OutboxTest, LooksUpWhatACutLeftInDoubtBeforeItSendsAgain) {
    const struct {
        const char* why;
        std::function<void(OutboxTest&)> prepare;  // after the cut; "one" and "two" are out
        const char* saidAfterwards;
        const char* stored;
    } cases[] = {
        {"nothing arrived", [](OutboxTest&) {}, "one two", "one:sent two:sent"},
        {"the first arrived", [](OutboxTest& t) { t.setHistory({t.arrived(0)}); }, "two",
         "one:confirmed two:sent"},
        {"both arrived",
         [](OutboxTest& t) {
             t.setHistory({t.arrived(0), t.arrived(1)});
         },
         "", "one:confirmed two:confirmed"},
        {"both arrived, the keys did not",
         [](OutboxTest& t) {
             t.setHistory({t.arrived(0, false), t.arrived(1, false)});
         },
         "", "one:confirmed two:confirmed"},
        {"the history is down at first",
         [](OutboxTest& t) {
             t.setHistory({t.arrived(0)});
             t.answerHistories({.status = 503}, 7);
         },
         "two", "one:confirmed two:sent"},
        {"the history is asked too often",
         [](OutboxTest& t) {
             t.setHistory({t.arrived(0)});
             t.answerHistories({.status = 429, .body = Dictionary{{"errorCode", 1300}}}, 3);
         },
         "two", "one:confirmed two:sent"},
        {"the history is behind",
         [](OutboxTest& t) {
             t.setHistory({t.arrived(0), t.arrived(1)});
             t.answerHistories({.body = Array()}, 1);
         },
         "", "one:confirmed two:confirmed"},
        {"they are no friends any more",
         [](OutboxTest& t) {
             t.answerHistories({.status = 404, .body = Dictionary{{"errorCode", 1202}}}, 1);
         },
         "", "one:failed two:failed"},
    };
    for (const auto& [why, prepare, saidAfterwards, wanted] : cases) {
        SCOPED_TRACE(why);
        for (const bool isRestarted : {false, true}) {
            SCOPED_TRACE(isRestarted ? "the program ended" : "the connection was lost");
            const VXIMConversationsOptions options{
                .path = folder / (std::string(why) + (isRestarted ? "2" : "1"))};
            reports.clear();
            setHistory({});
            startAndLogIn(options);
            send("one");
            send("two");
            ASSERT_TRUE(says("one two"));
            ASSERT_TRUE(becomes("one:sent two:sent"));
            former = said();
            cut();
            service.forgetWhatCame();
            prepare(*this);
            if (isRestarted) {
                end();
                start(options);
                logIn();
            } else {
                socket->emitted.clear();
                reconnect();
            }
            EXPECT_TRUE(says(saidAfterwards)) << saidTexts();
            EXPECT_TRUE(becomes(wanted));
            EXPECT_EQ(saidTexts(), saidAfterwards);
            end();
        }
    }
}

TEST_F(OutboxTest, WaitsForAConnectionAcrossRestarts) {
    start();
    send("one");
    send("two");
    end();
    start();
    EXPECT_EQ(stored(), "one:queued two:queued");
    logIn();
    EXPECT_TRUE(says("one two"));
    EXPECT_TRUE(becomes("one:sent two:sent"));
}

TEST_F(OutboxTest, KeepsAnAttachmentUntilItIsConfirmed) {
    const std::string picture = folder / "dot.png";
    std::ofstream(picture) << "not really a picture";
    start();
    send(VXIMMessage::messageWithImageFileAtPath(picture));
    send("behind it");
    std::filesystem::remove(picture);
    end();  // in the middle of sending

    service.fail("POST", "/attachment", FakeService::Fault::Close, 3);  // a passing failure
    start();
    logIn();
    ASSERT_TRUE(reaches([&] { return said().size() == 2; }))
        << saidTexts() << ", stored: " << stored();
    const std::string url = said()[0].get("content").get("body").description();
    EXPECT_TRUE(url.ends_with(".png")) << url;
    EXPECT_EQ(said()[1].get("content").get("body"), Value("behind it"));
    const auto uploads = [&] {
        return std::ranges::count_if(
            service.requests(), [](const auto& request) { return request.path == "/attachment"; });
    };
    const auto uploadsSoFar = uploads();
    ASSERT_TRUE(becomes("file:sent behind it:sent"));

    cut();  // it is not uploaded again
    socket->emitted.clear();
    reconnect();
    ASSERT_TRUE(reaches([&] { return said().size() == 2; }));
    EXPECT_EQ(said()[0].get("content").get("body"), Value(url));
    EXPECT_EQ(uploads(), uploadsSoFar);
    for (const auto& payload : said()) echo(payload);
    EXPECT_TRUE(becomes("file:confirmed behind it:confirmed"));
    const auto files = [&] {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path()))
            count += entry.path().extension() == ".png";
        return count;
    };
    EXPECT_TRUE(reaches([&] { return files() == 0; }));
}

TEST_F(OutboxTest, AsksForAnEchoThatDoesNotCome) {
    echoTimeout = 15s;
    startAndLogIn();
    step = 1ms;  // no time for an echo is over
    send("kept");
    send("dropped");
    ASSERT_TRUE(says("kept dropped"));
    ASSERT_TRUE(becomes("kept:sent dropped:sent"));
    const auto payloads = said();
    setHistory({arrivedOf(payloads[0])});
    step = 250ms;
    EXPECT_TRUE(becomes("kept:confirmed dropped:failed"));
    echo(payloads[1]);  // it was only slow
    EXPECT_TRUE(becomes("kept:confirmed dropped:confirmed"));
    EXPECT_EQ(saidTexts(), "kept dropped");
}

TEST_F(OutboxTest, SendsAgainToARoomOnlyWhereKeysArrive) {
    for (const bool keysArrive : {false, true}) {
        SCOPED_TRACE(keysArrive);
        reports.clear();
        startAndLogIn({.path = folder / (keysArrive ? "keys" : "none")});
        send("first", kRoom);
        ASSERT_TRUE(says("first"));
        ASSERT_TRUE(becomes("first:sent", kRoom));
        echo(said()[0], [&](Dictionary& payload) {
            if (!keysArrive) payload.remove("key");
        });
        ASSERT_TRUE(becomes("first:confirmed", kRoom));
        send("second", kRoom);
        ASSERT_TRUE(says("first second"));
        ASSERT_TRUE(becomes("first:confirmed second:sent", kRoom));
        cut();
        reconnect();
        if (keysArrive) {
            EXPECT_TRUE(says("first second second"));
        } else {
            EXPECT_TRUE(becomes("first:confirmed second:failed", kRoom));
        }
        end();
    }
}

TEST_F(OutboxTest, HasLimits) {
    startAndLogIn({.mostUnsent = 2, .longestWait = 1h});
    cut();
    send("one");
    const auto second = send("two");
    EXPECT_EQ(send("three"), -1);
    EXPECT_EQ(stored(), "one:queued two:queued");
    bool isGone = false;
    conversations->cancel(second,
                          once([&](bool cancelled, const ErrorPtr&) { isGone = cancelled; }));
    ASSERT_TRUE(reaches([&] { return isGone; }));
    clock.advance(2h);
    const auto late = send("four");
    EXPECT_NE(late, -1);
    reconnect();
    EXPECT_TRUE(says("four"));
    EXPECT_TRUE(becomes("one:failed four:sent"));
}

}  // namespace
}  // namespace vexim::testing
