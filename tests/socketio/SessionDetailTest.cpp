// What a session takes from its settings, what it reports when it ends, and what it counts. Also
// limits that apply to each message separately.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <variant>
#include <vector>

#include "VexIMLib/internal/SocketIO/Protocol/CookieJar.h"
#include "VexIMLib/internal/SocketIO/Protocol/FrameScanner.h"
#include "socketio/Peers.h"
#include "socketio/SessionScript.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;
using Stage = event::WebSocketFailed::Stage;

/// The last action of this kind that `what` causes.
template <class Action>
Action lastOf(Script& script, const SessionEvent& what) {
    SessionActions actions;
    script.session.on(what, script.now, actions);
    Action last;
    for (auto& action : actions) {
        if (auto* found = std::get_if<Action>(&action)) last = *found;
    }
    return last;
}

TEST(EngineSession, KeepsToWhatTheApplicationHasSet) {
    SessionConfig config = chat();
    config.revision = EngineRevision::V4;
    Script fixed(config);
    fixed.on(event::Start{});
    EXPECT_EQ(fixed.on(event::WebSocketFailed{Stage::Handshake, "no", 400, R"({"code":5})"}),
              "END connect-failed")
        << "another revision was not asked for";

    config = chat();
    config.joinPayload = Dictionary{{"token", "t"}};
    Script payload(config);
    payload.on(event::Start{});
    EXPECT_EQ(payload.text(kOpen), ">40/~probe,") << "only revision 4 takes it";

    config = chat(TransportChoice::PollingThenWebSocket);
    config.connectTimeout = 4s;
    Script hasty(config);
    hasty.joinPolling(EngineRevision::V4);
    EXPECT_EQ(hasty.wait(4s - 1ms), "");
    EXPECT_EQ(hasty.wait(1ms), "drop-ws") << "an upgrade has no more time than a connect";

    config = chat();
    config.query = "auth=x";
    EXPECT_EQ(Script(config).on(event::Start{}), "ws(EIO=4&transport=websocket&auth=x)");

    Script escaped(chat(TransportChoice::PollingOnly));
    escaped.on(event::Start{});
    EXPECT_EQ(escaped.got(R"(0{"sid":"a&b","upgrades":[],"pingInterval":1000,"pingTimeout":1000})"),
              "GET(EIO=4&transport=polling&sid=a%26b) POST 40/chat,");
}

TEST(EngineSession, TellsWhyAHandshakeWasRefusedButNotWithAPage) {
    struct Row {
        const char* why;
        int status;
        const char* body;
        VXIMConnectionErrorKind kind;
        bool showsBody = false;
    };
    const Row rows[] = {
        {"it may quote the request", 404, "<p>/?auth=secret</p>", VXIMConnectionErrorNotSocketIO},
        {"the server's own words", 400, R"({"code":1,"message":"Session ID unknown"})",
         VXIMConnectionErrorRefused, true},
        {"a login is missing", 401, "", VXIMConnectionErrorRefused},
        {"forbidden", 403, "", VXIMConnectionErrorRefused},
        {"too many requests", 429, "", VXIMConnectionErrorUnreachable},
        {"overloaded", 503, "", VXIMConnectionErrorUnreachable},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Script script(chat(TransportChoice::PollingOnly));
        script.on(event::Start{});
        if (row.status == 400) script.got(row.body, 400);  // then it tries the older revision
        const auto end = lastOf<action::Ended>(script, event::GetAnswered{row.status, row.body});
        EXPECT_EQ(end.detail.get("status"), Value(row.status));
        EXPECT_EQ(end.detail.get("body"), row.showsBody ? Value(row.body) : Value());
        EXPECT_EQ(end.kind, row.kind);
    }
    Script stranger(chat(TransportChoice::PollingOnly));
    stranger.on(event::Start{});
    EXPECT_EQ(lastOf<action::Ended>(stranger, event::GetAnswered{200, "<p>hello</p>"}).kind,
              VXIMConnectionErrorNotSocketIO);
}

TEST(EngineSession, GivesASilentServerNoMoreTimeWithEachPing) {
    Script script;
    script.on(event::Start{});
    script.text(R"(0{"sid":"s1","upgrades":[],"pingInterval":5000,"pingTimeout":12000})");
    script.text("40/chat,");
    EXPECT_EQ(script.wait(11s), ">2 >2");
    EXPECT_EQ(script.text("3"), "");
    EXPECT_EQ(script.wait(15s), ">2 >2 >2");
    EXPECT_EQ(script.wait(1s), "END heartbeat-missed") << "12 s after the first without a pong";
}

TEST(EngineSession, SendsWhatWaitsForAPostBeforeItLeaves) {
    Script script(chat(TransportChoice::PollingOnly));
    script.joinPolling(EngineRevision::V4);
    EXPECT_EQ(script.emit("42/chat,[1]"), "POST 42/chat,[1]");
    EXPECT_EQ(script.got("2"), "GET(EIO=4&transport=polling&sid=s1)") << "its pong waits";
    EXPECT_EQ(script.on(event::Close{}),
              "last-POST 3\x1e"
              "41/chat,\x1e"
              "1 END asked");
}

TEST(EngineSession, HasRoomAgainWhenAPostIsAnswered) {
    Script script(chat(TransportChoice::PollingOnly));
    script.on(event::Start{});
    script.got(kOpenWithMaxPayload);  // 1000 bytes
    script.got(R"(40/chat,{"sid":"x"})");
    script.posted();
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(script.session.canEmit()) << i;
        script.emit(std::string(600, 'x'));
        script.posted();
    }
}

TEST(EngineSession, CountsTheBytesOfEachEventByThemselves) {
    Script script;
    script.join(EngineRevision::V4);
    for (int i = 0; i < 3; ++i) {
        const SessionEvent received = event::WebSocketText{R"(42/chat,["a"])"};
        const auto bytes = lastOf<action::Deliver>(script, received).bytes;
        if (i > 0) {  // the first count includes the join's answer
            EXPECT_EQ(bytes, std::string_view(R"(2/chat,["a"])").size());
        }
    }
}

// Limits that start again with each message

TEST(PacketDecoder, AllowsEachMessageTheSameAttachments) {
    PacketDecoder decoder(10);
    const std::string head = R"(51-["a",{"_placeholder":true,"num":0}])";
    using Status = PacketDecoder::Status;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(decoder.text(head).status, Status::Partial);
        EXPECT_EQ(decoder.attachment(Data(std::string(10, 'x'))).status, Status::Complete);
    }
    decoder.text(head);
    EXPECT_EQ(decoder.attachment(Data(std::string(11, 'x'))).status, Status::Malformed);
}

TEST(FrameScanner, AllowsEachMessageTheSameFragments) {
    using Verdict = FrameScanner::Verdict;
    FrameScanner scanner(100);
    const auto scan = [&scanner](const std::string& bytes) { return scanner.scan(bytes).verdict; };
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(scan(frame(std::string(60, 'x'), 0x01)), Verdict::Whole);
        EXPECT_EQ(scan(frame(std::string(40, 'x'), 0x80)), Verdict::Whole);
    }
    EXPECT_EQ(scan(frame("", 0x01)), Verdict::Whole);
    int fragments = 0;
    while (fragments < 100'000 && scan(frame("", 0x00)) == Verdict::Whole) ++fragments;
    EXPECT_LT(fragments, 40'000) << "empty ones without end are no message";
}

TEST(CookieJar, KeepsABoundedNumberOfBoundedCookies) {
    CookieJar jar;
    jar.store("long=" + std::string(5000, 'x'));
    for (int i = 0; i < 100; ++i) jar.store("n" + std::to_string(i) + "=v");
    jar.store("n0=w");  // a new value for one that it has
    const std::string header = jar.header();
    EXPECT_TRUE(header.starts_with("n0=w; n1=v; ")) << header;
    EXPECT_TRUE(header.ends_with("; n31=v")) << header;
}

}  // namespace
}  // namespace vexim::testing
