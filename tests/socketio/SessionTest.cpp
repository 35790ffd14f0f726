// The session machine as event scripts: what happens goes in, what it wants done is compared as
// text.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "socketio/SessionScript.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;

// Detection and join

TEST(EngineSession, FindsOutTheRevisionOverAWebSocket) {
    struct Row {
        const char* why;
        const char* nsp;
        std::vector<std::pair<const char*, const char*>> script;  // received, then wanted
    };
    const Row rows[] = {
        {"an announced limit is revision 4's",
         "/chat",
         {{kOpenWithMaxPayload, ">40/chat,"}, {R"(40/chat,{"sid":"x"})", "joined-v4"}}},
        {"2.x joins the root by itself",
         "/chat",
         {{kOpen, ">40/chat,"}, {"40", ""}, {"40/chat,", "joined-v3"}}},
        {"2.0 does not announce the root",
         "/chat",
         {{kOpen, ">40/chat,"}, {"40/chat,", "joined-v3"}}},
        {"an answer with a sid is revision 4's",
         "/chat",
         {{kOpen, ">40/chat,"}, {R"(40/chat,{"sid":"x"})", "joined-v4"}}},
        {"a ping before the answer is revision 4's",
         "/chat",
         {{kOpen, ">40/chat,"}, {"2", ">3"}, {R"(40/chat,{"sid":"x"})", "joined-v4"}}},
        {"the root on 2.x needs no join",
         "/",
         {{kOpen, ">40/~probe,"}, {"40", "joined-v3"}, {R"(44/~probe,"Invalid namespace")", ""}}},
        {"the root on 2.0 with a middleware is never announced",
         "/",
         {{kOpen, ">40/~probe,"}, {R"(44/~probe,"Invalid namespace")", "joined-v3"}}},
        {"the root on 3.x is joined once the probe has told",
         "/",
         {{kOpen, ">40/~probe,"},
          {R"(44/~probe,{"message":"Invalid namespace"})", ">40"},
          {R"(40{"sid":"x"})", "joined-v4"}}},
        {"a refusal with a text is 2.x's",
         "/chat",
         {{kOpen, ">40/chat,"}, {"40", ""}, {R"(44/chat,"no")", "END refused"}}},
        {"a refusal with an object is 3.x's",
         "/chat",
         {{kOpen, ">40/chat,"}, {R"(44/chat,{"message":"no"})", "END refused"}}},
        {"a refused root on 2.x refuses everything",
         "/chat",
         {{kOpen, ">40/chat,"}, {R"(44"root no")", "END refused"}}},
        {"other namespaces tell nothing",
         "/chat",
         {{kOpen, ">40/chat,"}, {R"(42/other,["a"])", ""}, {"40/chat,", "joined-v3"}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        SessionConfig config = chat();
        config.nsp = row.nsp;
        Script script(config);
        EXPECT_EQ(script.on(event::Start{}), "ws(EIO=4&transport=websocket)");
        script.on(event::WebSocketOpened{});
        for (const auto& [received, wanted] : row.script)
            EXPECT_EQ(script.text(received), wanted) << received;
    }
}

TEST(EngineSession, SendsQueryAndPayloadOfTheJoinWhereTheyAreKnown) {
    SessionConfig config = chat();
    config.nspQuery = "x=y,z";
    config.joinPayload = Dictionary{{"token", "t"}};
    Script old(config);
    old.on(event::Start{});
    EXPECT_EQ(old.text(kOpen), ">40/~probe,");
    EXPECT_EQ(old.text("40"), ">40/chat?x=y%2Cz,");
    EXPECT_EQ(old.text("40/chat,"), "joined-v3");
    Script current(config);
    current.on(event::Start{});
    EXPECT_EQ(current.text(kOpenWithMaxPayload), R"(>40/chat,{"token":"t"})");
}

TEST(EngineSession, TriesTheOtherTransportAndTheOtherRevision) {
    using Stage = event::WebSocketFailed::Stage;
    const auto refused = [](int status, std::string body) {
        return event::WebSocketFailed{Stage::Handshake, "no", status, std::move(body)};
    };
    Script script(chat(TransportChoice::WebSocketThenPolling));
    script.on(event::Start{});
    EXPECT_EQ(script.on(refused(400, "what a foreign server says")),
              "ws(EIO=3&transport=websocket)");
    EXPECT_EQ(script.on(refused(400, R"({"code":3,"message":"Bad request"})")),
              "GET(EIO=4&transport=polling)")
        << "a proxy that takes the upgrade out of the request says nothing about the revision";
    EXPECT_EQ(script.got(R"({"code":5,"message":"Unsupported protocol version"})", 400),
              "GET(EIO=3&transport=polling)");
    EXPECT_EQ(script.got("Service Unavailable", 503), "END connect-failed");

    Script silent(chat(TransportChoice::WebSocketThenPolling));
    silent.on(event::Start{});
    EXPECT_EQ(silent.wait(10s), "drop-ws GET(EIO=4&transport=polling)")
        << "a proxy that swallows the handshake";
    EXPECT_EQ(silent.wait(10s), "END connect-failed");

    Script unreachable(chat(TransportChoice::WebSocketThenPolling));
    unreachable.on(event::Start{});
    EXPECT_EQ(unreachable.on(event::WebSocketFailed{Stage::Connect, "refused", 0, ""}),
              "END connect-failed")
        << "no better elsewhere";

    Script forced;
    forced.on(event::Start{});
    EXPECT_EQ(forced.on(refused(400, R"({"code":0,"message":"Transport unknown"})")),
              "END connect-failed");

    Script polling(chat(TransportChoice::PollingThenWebSocket));
    polling.on(event::Start{});
    EXPECT_EQ(polling.got(R"({"code":0,"message":"Transport unknown"})", 400),
              "ws(EIO=4&transport=websocket)");
}

// Heartbeat

TEST(EngineSession, PingsOldServersAndExpectsTheirPong) {
    Script script;
    script.join(EngineRevision::V3);
    EXPECT_EQ(script.wait(25s), ">2");
    EXPECT_EQ(script.text("3"), "");
    EXPECT_EQ(script.wait(25s), ">2");
    EXPECT_EQ(script.text("42/chat,[\"other traffic is no pong\"]"),
              R"(event["other traffic is no pong"])");
    EXPECT_EQ(script.wait(19s), "");
    EXPECT_EQ(script.wait(1s), "END heartbeat-missed");
}

TEST(EngineSession, AnswersNewServersAndExpectsTheirPing) {
    Script script;
    script.join(EngineRevision::V4);
    EXPECT_EQ(script.wait(44s), "");
    EXPECT_EQ(script.text("2"), ">3");
    EXPECT_EQ(script.wait(44s), "");
    EXPECT_EQ(script.text("3"), "") << "a pong that nobody asked for";
    EXPECT_EQ(script.wait(1s), "END heartbeat-missed");
}

TEST(EngineSession, AsksForASignOfLifeWhenTheNetworkChanges) {
    Script script;
    script.join(EngineRevision::V4);
    EXPECT_EQ(script.on(event::NetworkChanged{}), "ping-ws");
    EXPECT_EQ(script.on(event::WebSocketPong{}), "");
    EXPECT_EQ(script.wait(12s), "");
    EXPECT_EQ(script.on(event::NetworkChanged{}), "ping-ws");
    EXPECT_EQ(script.wait(10s), "END heartbeat-missed");
}

// Polling and upgrade

TEST(EngineSession, KeepsOneGetAndOnePostInFlight) {
    Script script(chat(TransportChoice::PollingOnly));
    EXPECT_EQ(script.on(event::Start{}), "GET(EIO=4&transport=polling)");
    EXPECT_EQ(script.got(kOpen), "GET(EIO=4&transport=polling&sid=s1) POST 40/chat,");
    EXPECT_EQ(script.got(R"(40/chat,{"sid":"x"})"),
              "joined-v4 GET(EIO=4&transport=polling&sid=s1)");
    EXPECT_FALSE(script.session.canEmit()) << "the join's POST is under way";
    EXPECT_EQ(script.posted(), "");
    EXPECT_EQ(script.emit("42/chat,[1]"), "POST 42/chat,[1]");
    EXPECT_EQ(script.got("2"), "GET(EIO=4&transport=polling&sid=s1)")
        << "the pong waits for the POST";
    EXPECT_EQ(script.posted(), "POST 3");
    EXPECT_EQ(script.on(event::Close{}),
              "last-POST 41/chat,\x1e"
              "1 END asked");
}

TEST(EngineSession, SplitsWhatIsTooLongForOneBody) {
    Script script(chat(TransportChoice::PollingOnly));
    script.on(event::Start{});
    script.got(kOpenWithMaxPayload);
    script.got(R"(40/chat,{"sid":"x"})");
    const std::string big(600, 'x');
    script.on(event::Emit{{big, {}}});
    script.on(event::Emit{{big, {}}});
    EXPECT_EQ(script.posted(), "POST " + big);
    EXPECT_EQ(script.posted(), "POST " + big);
    EXPECT_EQ(script.posted(413, ""), "report(The server refused a message as too large.)")
        << "the connection lives on";
    const EncodedPacket withData{R"(451-/chat,["a",{"_placeholder":true,"num":0}])",
                                 {Data(std::string(800, 'x'))}};
    EXPECT_EQ(script.on(event::Emit{withData}),
              "report(A message is longer than the server accepts.)")
        << "once it is base64";
}

TEST(EngineSession, UpgradesWithoutLossOrReordering) {
    Script script(chat(TransportChoice::PollingThenWebSocket));
    script.on(event::Start{});
    script.got(kOpen);
    EXPECT_EQ(script.got(R"(40/chat,{"sid":"x"})"),
              "joined-v4 GET(EIO=4&transport=polling&sid=s1) ws(EIO=4&transport=websocket&sid=s1)");
    EXPECT_EQ(script.on(event::WebSocketOpened{}), ">2probe");
    script.posted();
    EXPECT_EQ(script.emit("42/chat,[1]"), "POST 42/chat,[1]") << "polling still carries";
    EXPECT_EQ(script.text("3probe"), "") << "both requests are to come back first";
    EXPECT_EQ(script.posted(), "");
    EXPECT_EQ(script.emit("42/chat,[2]"), "POST 42/chat,[2]")
        << "the server may keep the GET as long as it likes";
    EXPECT_EQ(script.got("42/chat,[\"last\"]\x1e"
                         "2"),
              R"(event["last"])");
    EXPECT_FALSE(script.session.canEmit()) << "only this POST is still to come back";
    EXPECT_EQ(script.posted(), ">5 >3");
    EXPECT_TRUE(script.session.emitsDirectly());
    EXPECT_EQ(script.text("42/chat,[\"first\"]"), R"(event["first"])");
    EXPECT_EQ(script.got("42/chat,[\"late\"]"), "") << "the old transport has nothing more to say";
}

TEST(EngineSession, StaysOnPollingWhenTheUpgradeFails) {
    const std::pair<const char*, std::vector<SessionEvent>> rows[] = {
        {"refused",
         {event::WebSocketFailed{event::WebSocketFailed::Stage::Handshake, "no", 400, ""}}},
        {"a wrong answer", {event::WebSocketOpened{}, event::WebSocketText{"3nope"}}},
        {"bytes for an answer", {event::WebSocketOpened{}, event::WebSocketBinary{"3probe"}}},
        {"closed", {event::WebSocketOpened{}, event::WebSocketClosed{}}},
        {"closed while draining",
         {event::WebSocketOpened{}, event::WebSocketText{"3probe"}, event::WebSocketClosed{}}},
    };
    for (const auto& [why, events] : rows) {
        SCOPED_TRACE(why);
        Script script(chat(TransportChoice::PollingThenWebSocket));
        script.joinPolling(EngineRevision::V4);
        std::string last;
        for (const auto& event : events) last = script.on(event);
        EXPECT_EQ(last, "drop-ws");
        EXPECT_EQ(script.emit("42/chat,[1]"), "POST 42/chat,[1]");
        EXPECT_EQ(script.got("6"), "GET(EIO=4&transport=polling&sid=s1)")
            << "and it is not tried again";
    }
    Script unanswered(chat(TransportChoice::PollingThenWebSocket));
    unanswered.joinPolling(EngineRevision::V4);
    unanswered.on(event::WebSocketOpened{});
    EXPECT_EQ(unanswered.wait(10s), "drop-ws");
    unanswered.got("2");
    EXPECT_EQ(unanswered.posted(), "");
}

TEST(EngineSession, SendsOnWhileAnUpgradeStalls) {
    Script script(chat(TransportChoice::PollingThenWebSocket));
    script.joinPolling(EngineRevision::V4);
    script.on(event::WebSocketOpened{});
    script.text("3probe");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(script.emit("42/chat,[1]"), "POST 42/chat,[1]");
        EXPECT_EQ(script.posted(), "");
    }
    EXPECT_EQ(script.wait(10s), "drop-ws") << "the server never lets the GET go";
    EXPECT_EQ(script.emit("42/chat,[2]"), "POST 42/chat,[2]");
    EXPECT_EQ(script.got("2"), "GET(EIO=4&transport=polling&sid=s1)");
}

TEST(EngineSession, SlowsDownForAServerThatHoldsNoGet) {
    constexpr const char* kGet = "GET(EIO=4&transport=polling&sid=s1)";
    Script script(chat(TransportChoice::PollingOnly));
    script.joinPolling(EngineRevision::V4);
    int requests = 0;
    bool isAsked = true;
    for (const auto end = script.now + 10s; script.now < end; script.now += 1ms) {
        requests += isAsked;
        isAsked = (isAsked ? script.got("6") : script.on(event::Tick{})) == kGet;
    }
    EXPECT_LT(requests, 30);
    EXPECT_GT(requests, 10) << "but is asked about once a second";
    script.wait(1s);
    EXPECT_EQ(script.got(R"(42/chat,["a"])"), std::string(R"(event["a"] )") + kGet)
        << "one that has something is asked again at once";
    for (int i = 0; i < 5; ++i) {
        script.wait(1s);
        EXPECT_EQ(script.got("6"), kGet) << "and so is one that held the GET";
    }
}

TEST(EngineSession, EndsOnceWhateverHappensAfterwards) {
    const SessionEvent ends[] = {event::Close{}, event::WebSocketClosed{},
                                 event::WebSocketText{"9"}};
    for (const auto& end : ends) {
        Script script;
        script.join(EngineRevision::V4);
        EXPECT_NE(script.on(end).find("END"), std::string::npos);
        for (const auto& later : ends) EXPECT_EQ(script.on(later), "");
        EXPECT_FALSE(script.session.deadline());
        EXPECT_FALSE(script.session.canEmit());
    }
}

TEST(EngineSession, RefusesParametersThatNoServerWouldTake) {
    SessionConfig config = chat();
    config.query = "auth=" + std::string(13'000, 'x');
    EXPECT_EQ(Script(config).on(event::Start{}), "END connect-failed");
    config.transports = TransportChoice::PollingOnly;
    EXPECT_EQ(Script(config).on(event::Start{}), "END connect-failed");
}

}  // namespace
}  // namespace vexim::testing
