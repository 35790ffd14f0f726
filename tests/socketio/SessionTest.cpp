// The session machine as event scripts: what happens goes in, what it wants done is compared as text.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/internal/SocketIO/EngineSession.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr const char* kOpen = R"(0{"sid":"s1","upgrades":["websocket"],"pingInterval":25000,"pingTimeout":20000})";
constexpr const char* kOpenWithMaxPayload =
    R"(0{"sid":"s1","upgrades":[],"pingInterval":25000,"pingTimeout":20000,"maxPayload":1000})";

const char* nameOf(EndCause cause) {
    switch (cause) {
        case EndCause::Asked: return "asked";
        case EndCause::ServerDisconnect: return "server-disconnect";
        case EndCause::Refused: return "refused";
        case EndCause::ConnectFailed: return "connect-failed";
        case EndCause::LinkLost: return "link-lost";
        case EndCause::HeartbeatMissed: return "heartbeat-missed";
        case EndCause::ProtocolFault: return "protocol-fault";
        case EndCause::LimitPassed: return "limit-passed";
    }
    return "?";
}

struct Describe {
    /// Without what changes from request to request.
    static std::string request(const std::string& target) {
        std::string shown = target.substr(target.find("EIO="));
        if (const auto t = shown.find("&b64=1&t="); t != shown.npos) shown.erase(t);
        return shown;
    }
    std::string operator()(const action::OpenWebSocket& a) const { return "ws(" + request(a.target) + ")"; }
    std::string operator()(const action::SendText& a) const { return ">" + a.text; }
    std::string operator()(const action::SendBinary& a) const { return ">bytes:" + std::to_string(a.bytes.size()); }
    std::string operator()(const action::PingWebSocket&) const { return "ping-ws"; }
    std::string operator()(const action::CloseWebSocket&) const { return "close-ws"; }
    std::string operator()(const action::DropWebSocket&) const { return "drop-ws"; }
    std::string operator()(const action::Get& a) const { return "GET(" + request(a.target) + ")"; }
    std::string operator()(const action::Post& a) const { return "POST " + a.body; }
    std::string operator()(const action::ClosePolling& a) const { return "last-POST " + a.body; }
    std::string operator()(const action::Joined& a) const { return "joined-v" + std::to_string(static_cast<int>(a.revision)); }
    std::string operator()(const action::Deliver& a) const {
        const bool isAck = a.packet.type == PacketType::Ack;
        return (isAck ? "ack" : "event") + (a.packet.id ? std::to_string(*a.packet.id) : ""s) + writeJSON(a.packet.payload).text;
    }
    std::string operator()(const action::Report& a) const { return "report(" + a.description + ")"; }
    std::string operator()(const action::Ended& a) const { return std::string("END ") + nameOf(a.cause); }
};

SessionConfig chat(TransportChoice transports = TransportChoice::WebSocketOnly) {
    SessionConfig config;
    config.nsp = "/chat";
    config.transports = transports;
    return config;
}

class Script {
public:
    explicit Script(SessionConfig config = chat()) : session(std::move(config)) {}

    std::string on(const SessionEvent& what) {
        SessionActions actions;
        session.on(what, now, actions);
        std::string shown;
        for (const auto& action : actions) shown += (shown.empty() ? "" : " ") + std::visit(Describe{}, action);
        return shown;
    }
    std::string text(std::string_view frame) { return on(event::WebSocketText{frame}); }
    std::string got(std::string_view body, int status = 200) { return on(event::GetAnswered{status, body}); }
    std::string posted(int status = 200, std::string_view body = "ok") { return on(event::PostAnswered{status, body}); }
    std::string emit(std::string text) { return on(event::Emit{{std::move(text), {}}}) + on(event::Flush{}); }
    /// Turns the clock, with a Tick at each deadline on the way.
    std::string wait(std::chrono::milliseconds time) {
        const auto end = now + time;
        std::string shown;
        while (session.deadline() && *session.deadline() <= end) {
            now = std::max(now, *session.deadline());
            const std::string done = on(event::Tick{});
            if (!done.empty()) shown += (shown.empty() ? "" : " ") + done;
        }
        now = end;
        return shown;
    }

    /// Joined over a WebSocket.
    void join(EngineRevision revision) {
        on(event::Start{});
        on(event::WebSocketOpened{});
        text(kOpen);
        text(revision == EngineRevision::V3 ? "40/chat," : R"(40/chat,{"sid":"x"})");
    }
    /// Joined over polling, with a GET pending and no POST.
    void joinPolling(EngineRevision revision) {
        on(event::Start{});
        const bool isOld = revision == EngineRevision::V3;
        got(isOld ? std::to_string(std::string_view(kOpen).size()) + ":" + kOpen : kOpen);
        posted();
        got(isOld ? "8:40/chat," : R"(40/chat,{"sid":"x"})");
    }

    EngineSession session;
    Clock::TimePoint now{1000s};
};

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
        {"2.x joins the root by itself", "/chat", {{kOpen, ">40/chat,"}, {"40", ""}, {"40/chat,", "joined-v3"}}},
        {"2.0 does not announce the root", "/chat", {{kOpen, ">40/chat,"}, {"40/chat,", "joined-v3"}}},
        {"an answer with a sid is revision 4's", "/chat", {{kOpen, ">40/chat,"}, {R"(40/chat,{"sid":"x"})", "joined-v4"}}},
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
         {{kOpen, ">40/~probe,"}, {R"(44/~probe,{"message":"Invalid namespace"})", ">40"}, {R"(40{"sid":"x"})", "joined-v4"}}},
        {"a refusal with a text is 2.x's", "/chat", {{kOpen, ">40/chat,"}, {"40", ""}, {R"(44/chat,"no")", "END refused"}}},
        {"a refusal with an object is 3.x's", "/chat", {{kOpen, ">40/chat,"}, {R"(44/chat,{"message":"no"})", "END refused"}}},
        {"a refused root on 2.x refuses everything", "/chat", {{kOpen, ">40/chat,"}, {R"(44"root no")", "END refused"}}},
        {"other namespaces tell nothing", "/chat", {{kOpen, ">40/chat,"}, {R"(42/other,["a"])", ""}, {"40/chat,", "joined-v3"}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        SessionConfig config = chat();
        config.nsp = row.nsp;
        Script script(config);
        EXPECT_EQ(script.on(event::Start{}), "ws(EIO=4&transport=websocket)");
        script.on(event::WebSocketOpened{});
        for (const auto& [received, wanted] : row.script) EXPECT_EQ(script.text(received), wanted) << received;
    }
}

TEST(EngineSession, SendsQueryAndPayloadOfTheJoinWhereTheyAreKnown) {
    SessionConfig config = chat();
    config.nspQuery = "x=y";
    config.joinPayload = Dictionary{{"token", "t"}};
    Script old(config);
    old.on(event::Start{});
    EXPECT_EQ(old.text(kOpen), ">40/~probe,");
    EXPECT_EQ(old.text("40"), ">40/chat?x=y,");
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
    EXPECT_EQ(script.on(refused(400, "Unsupported protocol version")), "ws(EIO=3&transport=websocket)");
    EXPECT_EQ(script.on(refused(503, "")), "GET(EIO=3&transport=polling)");
    EXPECT_EQ(script.got("Service Unavailable", 503), "END connect-failed");

    Script silent(chat(TransportChoice::WebSocketThenPolling));
    silent.on(event::Start{});
    EXPECT_EQ(silent.wait(10s), "drop-ws GET(EIO=4&transport=polling)") << "a proxy that swallows the handshake";
    EXPECT_EQ(silent.wait(10s), "END connect-failed");

    Script unreachable(chat(TransportChoice::WebSocketThenPolling));
    unreachable.on(event::Start{});
    EXPECT_EQ(unreachable.on(event::WebSocketFailed{Stage::Connect, "refused", 0, ""}), "END connect-failed")
        << "no better elsewhere";

    Script forced;
    forced.on(event::Start{});
    EXPECT_EQ(forced.on(refused(400, R"({"code":0,"message":"Transport unknown"})")), "END connect-failed");

    Script polling(chat(TransportChoice::PollingThenWebSocket));
    polling.on(event::Start{});
    EXPECT_EQ(polling.got(R"({"code":0,"message":"Transport unknown"})", 400), "ws(EIO=4&transport=websocket)");
}

// Heartbeat

TEST(EngineSession, PingsOldServersAndExpectsTheirPong) {
    Script script;
    script.join(EngineRevision::V3);
    EXPECT_EQ(script.wait(25s), ">2");
    EXPECT_EQ(script.text("3"), "");
    EXPECT_EQ(script.wait(25s), ">2");
    EXPECT_EQ(script.text("42/chat,[\"other traffic is no pong\"]"), R"(event["other traffic is no pong"])");
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
    EXPECT_EQ(script.on(event::Nudge{}), "ping-ws");
    EXPECT_EQ(script.on(event::WebSocketPong{}), "");
    EXPECT_EQ(script.wait(12s), "");
    EXPECT_EQ(script.on(event::Nudge{}), "ping-ws");
    EXPECT_EQ(script.wait(10s), "END heartbeat-missed");
}

// Polling and upgrade

TEST(EngineSession, KeepsOneGetAndOnePostInFlight) {
    Script script(chat(TransportChoice::PollingOnly));
    EXPECT_EQ(script.on(event::Start{}), "GET(EIO=4&transport=polling)");
    EXPECT_EQ(script.got(kOpen), "GET(EIO=4&transport=polling&sid=s1) POST 40/chat,");
    EXPECT_EQ(script.got(R"(40/chat,{"sid":"x"})"), "joined-v4 GET(EIO=4&transport=polling&sid=s1)");
    EXPECT_FALSE(script.session.canEmit()) << "the join's POST is under way";
    EXPECT_EQ(script.posted(), "");
    EXPECT_EQ(script.emit("42/chat,[1]"), "POST 42/chat,[1]");
    EXPECT_EQ(script.got("2"), "GET(EIO=4&transport=polling&sid=s1)") << "the pong waits for the POST";
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
    EXPECT_EQ(script.posted(413, ""), "report(The server refused a message as too large.)") << "the connection lives on";
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
    EXPECT_FALSE(script.session.canEmit());
    EXPECT_EQ(script.got("42/chat,[\"last\"]\x1e"
                         "2"),
              R"(event["last"])");
    EXPECT_EQ(script.posted(), ">5 >3");
    EXPECT_TRUE(script.session.emitsDirectly());
    EXPECT_EQ(script.text("42/chat,[\"first\"]"), R"(event["first"])");
    EXPECT_EQ(script.got("6"), "") << "the old transport has nothing more to say";
}

TEST(EngineSession, StaysOnPollingWhenTheUpgradeFails) {
    const std::pair<const char*, std::vector<SessionEvent>> rows[] = {
        {"refused", {event::WebSocketFailed{event::WebSocketFailed::Stage::Handshake, "no", 400, ""}}},
        {"a wrong answer", {event::WebSocketOpened{}, event::WebSocketText{"3nope"}}},
        {"bytes for an answer", {event::WebSocketOpened{}, event::WebSocketBinary{"3probe"}}},
        {"closed", {event::WebSocketOpened{}, event::WebSocketClosed{}}},
        {"closed while draining", {event::WebSocketOpened{}, event::WebSocketText{"3probe"}, event::WebSocketClosed{}}},
    };
    for (const auto& [why, events] : rows) {
        SCOPED_TRACE(why);
        Script script(chat(TransportChoice::PollingThenWebSocket));
        script.joinPolling(EngineRevision::V4);
        std::string last;
        for (const auto& event : events) last = script.on(event);
        EXPECT_EQ(last, "drop-ws");
        EXPECT_EQ(script.emit("42/chat,[1]"), "POST 42/chat,[1]");
        EXPECT_EQ(script.got("6"), "GET(EIO=4&transport=polling&sid=s1)") << "and it is not tried again";
    }
    Script unanswered(chat(TransportChoice::PollingThenWebSocket));
    unanswered.joinPolling(EngineRevision::V4);
    unanswered.on(event::WebSocketOpened{});
    EXPECT_EQ(unanswered.wait(10s), "drop-ws");
    unanswered.got("2");
    EXPECT_EQ(unanswered.posted(), "");
}

// A hostile peer: each fault in each phase. The outcome is one word; nothing crashes, nothing hangs.

struct Fault {
    const char* name;
    std::vector<std::string> frames;
    const char* opening;  // outcome before the open packet
    const char* idle;     // joined
    const char* busy;     // joined, with attachments due
};

constexpr const char* kLives = "lives";

std::string outcomeOf(Script& script, const std::vector<std::string>& frames) {
    std::string shown;
    for (const auto& frame : frames) {
        const bool isBinary = frame.starts_with("bytes:");
        shown += " " + (isBinary ? script.on(event::WebSocketBinary{std::string_view(frame).substr(6)}) : script.text(frame));
        if (script.session.hasEnded()) break;
    }
    const auto end = shown.find("END ");
    return end == shown.npos ? kLives : shown.substr(end + 4);
}

std::string repeated(std::string_view text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
}

TEST(EngineSession, MeetsAHostilePeerWithTheRightEnd) {
    constexpr const char* kBad = "protocol-fault";
    const std::vector<std::string> storm(1000, "3");
    const Fault faults[] = {
        {"nothing at all", {""}, kBad, kBad, kBad},
        {"unknown packet type", {"9"}, kBad, kBad, kBad},
        {"a letter for a type", {"x"}, kBad, kBad, kBad},
        {"a second open", {kOpen, kOpen}, kBad, kBad, kBad},
        {"open that is no JSON", {"0{"}, kBad, kBad, kBad},
        {"open without sid", {R"(0{"pingInterval":1,"pingTimeout":1})"}, kBad, kBad, kBad},
        {"open with an empty sid", {R"(0{"sid":"","pingInterval":1,"pingTimeout":1})"}, kBad, kBad, kBad},
        {"zero ping interval", {R"(0{"sid":"a","pingInterval":0,"pingTimeout":1})"}, kBad, kBad, kBad},
        {"zero ping timeout", {R"(0{"sid":"a","pingInterval":1,"pingTimeout":0})"}, kBad, kBad, kBad},
        {"huge ping interval", {R"(0{"sid":"a","pingInterval":1e300,"pingTimeout":1})"}, kBad, kBad, kBad},
        {"ping interval that is text", {R"(0{"sid":"a","pingInterval":"25000","pingTimeout":1})"}, kBad, kBad, kBad},
        {"open that is an array", {"0[]"}, kBad, kBad, kBad},
        {"close packet", {"1"}, kBad, "link-lost", "link-lost"},
        {"noop", {"6"}, kBad, kLives, kLives},
        {"upgrade from the server", {"5"}, kBad, kLives, kLives},
        {"pong storm", storm, kBad, kLives, kLives},
        {"probe answer out of place", {"3probe"}, kBad, kLives, kLives},
        {"empty message", {"4"}, kBad, kBad, kBad},
        {"unknown message type", {"47"}, kBad, kBad, kBad},
        {"event without a name", {"42/chat,[]"}, kBad, kBad, kBad},
        {"event that is an object", {"42/chat,{}"}, kBad, kBad, kBad},
        {"event with a reserved name", {R"(42/chat,["connect"])"}, kBad, kBad, kBad},
        {"event cut short", {R"(42/chat,["a")"}, kBad, kBad, kBad},
        {"event for another namespace", {R"(42/other,["a"])"}, kBad, kLives, kBad},
        {"deep JSON", {"42/chat,[\"a\"," + repeated("[", 100'000)}, kBad, kBad, kBad},
        {"closed deep JSON", {"42/chat,[\"a\"," + repeated("[", 2000) + repeated("]", 2000) + "]"}, kBad, kBad, kBad},
        {"bad UTF-8 in JSON", {"42/chat,[\"a\xff\"]"}, kBad, kBad, kBad},
        {"answer for an unknown id", {"43/chat,99[]"}, kBad, kLives, kBad},
        {"the same answer twice", {"43/chat,0[]", "43/chat,0[]"}, kBad, kLives, kBad},
        {"answer without id", {"43/chat,[]"}, kBad, kBad, kBad},
        {"id over 64 bits", {R"(42/chat,99999999999999999999["a"])"}, kBad, kBad, kBad},
        {"attachment nobody announced", {"bytes:\x04xyz"}, kBad, kBad, kLives},
        {"attachment that is no base64", {"b4!!!"}, kBad, kBad, kBad},
        {"empty binary frame", {"bytes:"}, kBad, kBad, kBad},
        {"count of nothing", {R"(450-/chat,["a"])"}, kBad, kBad, kBad},
        {"huge count", {R"(4599999999999-/chat,["a"])"}, kBad, kBad, kBad},
        {"count without a dash", {R"(451/chat,["a"])"}, kBad, kBad, kBad},
        {"placeholder out of range", {R"(451-/chat,["a",{"_placeholder":true,"num":7}])", "bytes:\x04x"}, kBad, kBad, kBad},
        {"placeholder below zero", {R"(451-/chat,["a",{"_placeholder":true,"num":-1}])", "bytes:\x04x"}, kBad, kBad, kBad},
        {"more attachments than announced", {R"(451-/chat,["a"])", "bytes:\x04x", "bytes:\x04x"}, kBad, kBad, kBad},
        {"join answered twice", {"40/chat,"}, kBad, kLives, kBad},
        {"namespace taken away", {"41/chat,"}, kBad, "server-disconnect", kBad},
        {"disconnect with a payload", {R"(41/chat,{"a":1})"}, kBad, kBad, kBad},
        {"error for the joined namespace", {R"(44/chat,"oops")"}, kBad, kLives, kBad},
        {"raw HTTP on the open socket", {"HTTP/1.1 400 Bad Request"}, kBad, kBad, kBad},
    };
    for (const auto& fault : faults) {
        SCOPED_TRACE(fault.name);
        Script opening;
        opening.on(event::Start{});
        opening.on(event::WebSocketOpened{});
        EXPECT_EQ(outcomeOf(opening, fault.frames), fault.opening);
        Script idle;
        idle.join(EngineRevision::V3);
        EXPECT_EQ(outcomeOf(idle, fault.frames), fault.idle);
        Script busy;
        busy.join(EngineRevision::V3);
        busy.text(R"(452-/chat,["file",{"_placeholder":true,"num":0}])");
        EXPECT_EQ(outcomeOf(busy, fault.frames), fault.busy);
    }
}

TEST(EngineSession, MeetsHostileAnswersToPolling) {
    struct Row {
        const char* name;
        int status;
        std::string body;
        const char* opening;
        const char* idle;
    };
    const Row rows[] = {
        {"moved", 301, "", "connect-failed", "link-lost"},
        {"not authorised", 401, "", "connect-failed", "link-lost"},
        {"forbidden", 403, R"({"code":4,"message":"Forbidden"})", "connect-failed", "link-lost"},
        {"not found", 404, "", "connect-failed", "link-lost"},
        {"too many", 429, "", "connect-failed", "link-lost"},
        {"broken", 500, "", "connect-failed", "link-lost"},
        {"unknown session", 400, R"({"code":1,"message":"Session ID unknown"})", kLives, "link-lost"},
        {"empty body", 200, "", "protocol-fault", "protocol-fault"},
        {"a web page", 200, "<html>", "protocol-fault", "protocol-fault"},
        {"only a separator", 200, "\x1e", "protocol-fault", "protocol-fault"},
        {"the other revision's framing", 200, "8:40/chat,", "protocol-fault", "protocol-fault"},
        {"an unknown packet behind a good one", 200,
         "6\x1e"
         "9",
         "protocol-fault", "protocol-fault"},
        {"close", 200, "1", "protocol-fault", "link-lost"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto outcome = [&](Script& script) {
            const std::string shown = script.got(row.body, row.status);
            const auto end = shown.find("END ");
            return end == shown.npos ? kLives : shown.substr(end + 4);
        };
        Script opening(chat(TransportChoice::PollingOnly));
        opening.on(event::Start{});
        EXPECT_EQ(outcome(opening), row.opening);
        Script idle(chat(TransportChoice::PollingOnly));
        idle.joinPolling(EngineRevision::V4);
        EXPECT_EQ(outcome(idle), row.idle);
    }
    // A million packets in one answer take neither the stack nor the patience.
    Script flooded(chat(TransportChoice::PollingOnly));
    flooded.joinPolling(EngineRevision::V4);
    EXPECT_EQ(flooded.got(repeated("6\x1e", 999'999) + "6"), "GET(EIO=4&transport=polling&sid=s1)");
}

TEST(EngineSession, EndsOnceWhateverHappensAfterwards) {
    const SessionEvent ends[] = {event::Close{}, event::WebSocketClosed{}, event::WebSocketText{"9"}};
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
