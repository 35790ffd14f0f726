// A session whose application does not keep up: it reads nothing, except for the server's pings.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "socketio/SessionScript.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;

TEST(EngineSession, WhilePausedReadsNothingButUpToTheServersPings) {
    Script script;
    script.join(EngineRevision::V4);
    EXPECT_EQ(script.on(event::Pause{}), "");
    EXPECT_TRUE(script.session.pausesWebSocket());
    EXPECT_EQ(script.wait(25s - 1ms), "");
    EXPECT_EQ(script.wait(1ms), "read-on");
    EXPECT_EQ(script.wait(10ms), "read-on read-on");
    EXPECT_EQ(script.text(R"(42/chat,["a"])"), R"(event["a"])") << "what lies before it";
    EXPECT_EQ(script.text("2"), ">3");
    EXPECT_EQ(script.wait(24s), "");
    EXPECT_TRUE(script.wait(2s).starts_with("read-on"));
    const std::string rest = script.wait(1h);
    EXPECT_EQ(rest.find_first_not_of("read-on "), rest.npos)
        << "a ping that we do not read is no loss";
    EXPECT_EQ(script.wait(1h), "") << "and is not looked for any longer than the server waits";
    EXPECT_EQ(script.on(event::Resume{}), "");
    EXPECT_FALSE(script.session.pausesWebSocket());
    EXPECT_EQ(script.wait(20s - 1ms), "");
    EXPECT_EQ(script.wait(1ms), "END heartbeat-missed");
}

TEST(EngineSession, WhilePausedPingsOfEachKindAreExpectedAtTheirDistance) {
    Script script;
    script.join(EngineRevision::V3);
    script.wait(1s);
    script.on(event::WebSocketPing{});
    script.wait(3s);
    script.on(event::WebSocketPing{});
    script.on(event::Pause{});
    EXPECT_EQ(script.wait(3s - 1ms), "");
    EXPECT_EQ(script.wait(1ms), "read-on");
    EXPECT_EQ(script.on(event::WebSocketPing{}), "");
    EXPECT_EQ(script.wait(2s), "");

    Script old;
    old.join(EngineRevision::V3);
    old.on(event::Pause{});
    EXPECT_EQ(old.wait(51s), ">2 >2") << "the client's go out, and the pongs wait unread";
    old.on(event::NetworkChanged{});
    EXPECT_EQ(old.wait(20s), "") << "so do those of the WebSocket";
    old.on(event::Resume{});
    EXPECT_EQ(old.wait(10s), ">2 END heartbeat-missed");
}

TEST(EngineSession, WhilePausedPollingAsksOnlyForPings) {
    Script script(chat(TransportChoice::PollingOnly));
    script.joinPolling(EngineRevision::V4);
    script.on(event::Pause{});
    EXPECT_EQ(script.got(R"(42/chat,["a"])"), "") << "nothing is delivered, and nothing asked for";
    EXPECT_EQ(script.wait(25s - 1ms), "");
    EXPECT_EQ(script.wait(1ms), R"(event["a"])");
    EXPECT_EQ(script.wait(5ms), "GET(EIO=4&transport=polling&sid=s1)")
        << "once all is read, and once";
    EXPECT_EQ(script.wait(1s), "");
    EXPECT_EQ(script.got("2"), "");
    EXPECT_EQ(script.wait(10ms), "POST 3");
    EXPECT_EQ(script.posted(), "");
    EXPECT_EQ(script.on(event::Resume{}), "GET(EIO=4&transport=polling&sid=s1)");
    const std::string big = R"(42/chat,[")" + std::string(200'000, 'x') + "\"]";
    script.got(big + "\x1e" + big +
               "\x1e"
               R"(42/chat,["c"])"
               "\x1e"
               R"(42/chat,["d"])");
    EXPECT_TRUE(script.session.hasMoreToRead()) << "a long answer is delivered in portions";
    script.on(event::Pause{});
    EXPECT_FALSE(script.session.hasMoreToRead());
    EXPECT_EQ(script.on(event::RequestFailed{"a POST", false, VXIMConnectionErrorLost}),
              R"(event["c"] event["d"] END link-lost)")
        << "what came before the loss";
}

TEST(EngineSession, UpgradesWhilePausedBehindWhatIsUnread) {
    Script script(chat(TransportChoice::PollingThenWebSocket));
    script.joinPolling(EngineRevision::V4);
    EXPECT_EQ(script.on(event::WebSocketOpened{}), ">2probe");
    script.on(event::Pause{});
    EXPECT_EQ(script.got(R"(42/chat,["a"])"), "");
    EXPECT_FALSE(script.session.pausesWebSocket()) << "the probe's answer is read";
    EXPECT_EQ(script.text("3probe"), "");
    script.on(event::Resume{});
    EXPECT_EQ(script.on(event::ReadOn{}), R"(event["a"] >5)");
    script.on(event::Pause{});
    EXPECT_TRUE(script.session.pausesWebSocket());
}

}  // namespace
}  // namespace vexim::testing
