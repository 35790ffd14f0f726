// A hostile server as event scripts: each fault in each phase. The result is one word. Nothing
// crashes or hangs.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "socketio/Peers.h"
#include "socketio/SessionScript.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;

constexpr const char* kLives = "lives";
constexpr const char* kBad = "protocol-fault";
constexpr const char* kFailed = "connect-failed";
constexpr const char* kLost = "link-lost";

struct Fault {
    const char* name;
    std::vector<std::string> frames;
    const char* opening = kBad;  // outcome before the open packet
    const char* idle = kBad;     // joined
    const char* busy = kBad;     // joined, with attachments due
};

/// The cause of the end in the list of actions, if there is one.
std::string outcomeIn(std::string_view shown) {
    const auto end = shown.find("END ");
    return end == shown.npos ? kLives : std::string(shown.substr(end + 4));
}

std::string outcomeOf(Script& script, const std::vector<std::string>& frames) {
    std::string shown;
    for (const auto& frame : frames) {
        const bool isBinary = frame.starts_with("bytes:");
        shown +=
            " " + (isBinary ? script.on(event::WebSocketBinary{std::string_view(frame).substr(6)})
                            : script.text(frame));
        if (script.session.hasEnded()) break;
    }
    return outcomeIn(shown);
}

TEST(HostileSession, MeetsEachFrameWithTheRightEnd) {
    const std::vector<std::string> storm(1000, "3");
    const Fault faults[] = {
        {"nothing at all", {""}},
        {"unknown packet type", {"9"}},
        {"a letter for a type", {"x"}},
        {"a second open", {kOpen, kOpen}},
        {"open that is no JSON", {"0{"}},
        {"open without sid", {R"(0{"pingInterval":1,"pingTimeout":1})"}},
        {"open with an empty sid", {R"(0{"sid":"","pingInterval":1,"pingTimeout":1})"}},
        {"zero ping interval", {R"(0{"sid":"a","pingInterval":0,"pingTimeout":1})"}},
        {"zero ping timeout", {R"(0{"sid":"a","pingInterval":1,"pingTimeout":0})"}},
        {"ping interval over 31 bits",
         {R"(0{"sid":"a","pingInterval":2147483648,"pingTimeout":1})"}},
        {"the longest ping interval",
         {R"(0{"sid":"a","pingInterval":2147483647,"pingTimeout":1})"},
         kLives,
         kBad,
         kBad},
        {"ping interval that is text", {R"(0{"sid":"a","pingInterval":"25000","pingTimeout":1})"}},
        {"open that is an array", {"0[]"}},
        {"close packet", {"1"}, kBad, kLost, kLost},
        {"noop", {"6"}, kBad, kLives, kLives},
        {"upgrade from the server", {"5"}, kBad, kLives, kLives},
        {"pong storm", storm, kBad, kLives, kLives},
        {"probe answer out of place", {"3probe"}, kBad, kLives, kLives},
        {"empty message", {"4"}},
        {"unknown message type", {"47"}},
        {"event without a name", {"42/chat,[]"}},
        {"event that is an object", {"42/chat,{}"}},
        {"event whose name is an object", {"42/chat,[{}]"}},
        {"event whose name is a number", {"42/chat,[1]"}},
        {"event with a reserved name", {R"(42/chat,["connect"])"}},
        {"event cut short", {R"(42/chat,["a")"}},
        {"event for another namespace", {R"(42/other,["a"])"}, kBad, kLives, kBad},
        {"deep JSON", {"42/chat,[\"a\"," + repeated("[", 100'000)}},
        {"closed deep JSON", {"42/chat,[\"a\"," + repeated("[", 2000) + repeated("]", 2000) + "]"}},
        {"as many values as are taken",
         {"42/chat,[\"a\"" + repeated(",0", 99'998) + "]"},
         kBad,
         kLives,
         kBad},
        {"one value more", {"42/chat,[\"a\"" + repeated(",0", 99'999) + "]"}},
        {"one key more", {"42/chat,[\"a\",{\"k\":0" + repeated(",\"k\":0", 49'998) + "}]"}},
        {"bad UTF-8 in JSON", {"42/chat,[\"a\xff\"]"}},
        {"answer for an unknown id", {"43/chat,99[]"}, kBad, kLives, kBad},
        {"the same answer twice", {"43/chat,0[]", "43/chat,0[]"}, kBad, kLives, kBad},
        {"answer without id", {"43/chat,[]"}},
        {"id over 64 bits", {R"(42/chat,99999999999999999999["a"])"}},
        {"attachment nobody announced", {"bytes:\x04xyz"}, kBad, kBad, kLives},
        {"attachment that is no base64", {"b4!!!"}},
        {"empty binary frame", {"bytes:"}},
        {"count of nothing", {R"(450-/chat,["a"])"}},
        {"huge count", {R"(4599999999999-/chat,["a"])"}},
        {"count over 64 bits", {R"(4599999999999999999999999-/chat,["a"])"}},
        {"count without a dash", {R"(451/chat,["a"])"}},
        {"placeholder out of range",
         {R"(451-/chat,["a",{"_placeholder":true,"num":7}])", "bytes:\x04x"}},
        {"placeholder below zero",
         {R"(451-/chat,["a",{"_placeholder":true,"num":-1}])", "bytes:\x04x"}},
        {"more attachments than announced", {R"(451-/chat,["a"])", "bytes:\x04x", "bytes:\x04x"}},
        {"attachments never sent",
         {R"(451-/chat,["a",{"_placeholder":true,"num":0}])", R"(42/chat,["b"])"}},
        {"join answered twice", {"40/chat,"}, kBad, kLives, kBad},
        {"namespace taken away", {"41/chat,"}, kBad, "server-disconnect", kBad},
        {"disconnect with a payload", {R"(41/chat,{"a":1})"}},
        {"error for the joined namespace", {R"(44/chat,"oops")"}, kBad, kLives, kBad},
        {"error with an id", {R"(44/chat,7"oops")"}},
        {"error with nothing but an id", {"44/chat,7"}},
        {"raw HTTP on the open socket", {"HTTP/1.1 400 Bad Request"}},
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

TEST(HostileSession, MeetsHostileAnswersToPolling) {
    struct Row {
        const char* name;
        int status;
        std::string body;
        const char* opening = kBad;
        const char* idle = kBad;
        const char* busy = kBad;  // attachments are due, and a POST is under way
    };
    const Row rows[] = {
        {"moved", 301, "", kFailed, kLost, kLost},
        {"not authorised", 401, "", kFailed, kLost, kLost},
        {"forbidden", 403, R"({"code":4,"message":"Forbidden"})", kFailed, kLost, kLost},
        {"not found", 404, "", kFailed, kLost, kLost},
        {"too many", 429, "", kFailed, kLost, kLost},
        {"broken", 500, "", kFailed, kLost, kLost},
        {"unknown session", 400, R"({"code":1,"message":"Session ID unknown"})", kLives, kLost,
         kLost},
        {"empty body", 200, ""},
        {"a web page", 200, "<html>"},
        {"only a separator", 200, "\x1e"},
        {"the other revision's framing", 200, "8:40/chat,"},
        {"an unknown packet behind a good one", 200,
         "6\x1e"
         "9"},
        {"a second open", 200, std::string(kOpen) + "\x1e" + kOpen},
        {"an attachment that is no base64", 200, "b!!!"},
        {"an attachment nobody announced", 200, "bAAAA", kBad, kBad, kLives},
        {"another message before the attachments", 200, "42/chat,[\"a\"]", kBad, kLives, kBad},
        {"deep JSON", 200, "42/chat,[" + repeated("[", 100'000)},
        {"close", 200, "1", kBad, kLost, kLost},
        {"a million packets", 200, repeated("6\x1e", 999'999) + "6", kBad, kLives, kLives},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Script opening(chat(TransportChoice::PollingOnly));
        opening.on(event::Start{});
        EXPECT_EQ(outcomeIn(opening.got(row.body, row.status)), row.opening);
        Script idle(chat(TransportChoice::PollingOnly));
        idle.joinPolling(EngineRevision::V4);
        EXPECT_EQ(outcomeIn(idle.got(row.body, row.status)), row.idle);
        Script busy(chat(TransportChoice::PollingOnly));
        busy.joinPolling(EngineRevision::V4);
        busy.got(R"(452-/chat,["file",{"_placeholder":true,"num":0}])");
        busy.emit("42/chat,[1]");
        EXPECT_EQ(outcomeIn(busy.got(row.body, row.status)), row.busy);
    }
    const std::pair<int, const char*> posts[] = {
        {200, kLives}, {413, kLives}, {302, kLost}, {400, kLost}, {500, kLost}};
    for (const auto& [status, outcome] : posts) {
        Script script(chat(TransportChoice::PollingOnly));
        script.joinPolling(EngineRevision::V4);
        script.emit("42/chat,[1]");
        EXPECT_EQ(outcomeIn(script.posted(status, "anything")), outcome)
            << "a POST answered with " << status;
    }
}

TEST(HostileSession, AnswersAStormOfPingsOverPollingOnce) {
    Script script(chat(TransportChoice::PollingOnly));
    script.joinPolling(EngineRevision::V4);
    script.emit("42/chat,[1]");  // its POST is never answered
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(outcomeIn(script.got(repeated("2\x1e", 1000) + "2")), kLives);
    EXPECT_EQ(script.posted(), "POST 3")
        << "what waits for a POST must not grow with what a GET brings";
}

TEST(HostileSession, EndsWhenItsTransportDoes) {
    using Cause = event::WebSocketClosed::Cause;
    struct Row {
        SessionEvent what;
        TransportChoice transport;
        const char* opening;
        const char* joining;
        const char* joined;
    };
    const Row rows[] = {
        {event::WebSocketClosed{Cause::Peer, "1001"}, TransportChoice::WebSocketOnly, kFailed,
         kLost, kLost},
        {event::WebSocketClosed{Cause::Network, ""}, TransportChoice::WebSocketOnly, kFailed, kLost,
         kLost},
        {event::WebSocketClosed{Cause::Malformed, ""}, TransportChoice::WebSocketOnly, kFailed,
         kBad, kBad},
        {event::WebSocketClosed{Cause::TooLarge, ""}, TransportChoice::WebSocketOnly, kFailed,
         "limit-passed", "limit-passed"},
        {event::RequestFailed{"reset"}, TransportChoice::PollingOnly, kFailed, kFailed, kLost},
        {event::RequestFailed{"too large", true}, TransportChoice::PollingOnly, "limit-passed",
         "limit-passed", "limit-passed"},
    };
    for (const auto& row : rows) {
        const bool isPolling = row.transport == TransportChoice::PollingOnly;
        SCOPED_TRACE(isPolling ? "polling" : "websocket");
        Script opening(chat(row.transport));
        opening.on(event::Start{});
        EXPECT_EQ(outcomeIn(opening.on(row.what)), row.opening);
        Script joining(chat(row.transport));
        joining.on(event::Start{});
        isPolling ? joining.got(kOpen) : joining.text(kOpen);
        EXPECT_EQ(outcomeIn(joining.on(row.what)), row.joining);
        Script joined(chat(row.transport));
        isPolling ? joined.joinPolling(EngineRevision::V4) : joined.join(EngineRevision::V4);
        EXPECT_EQ(outcomeIn(joined.on(row.what)), row.joined);
    }
}

TEST(HostileSession, EndsInTimeWhenThePeerFallsSilent) {
    struct Row {
        const char* phase;
        TransportChoice transports;
        std::vector<SessionEvent> before;
        std::chrono::seconds time;
        const char* outcome;
    };
    const std::string join = R"(40/chat,{"sid":"x"})";
    constexpr const char* kMissed = "heartbeat-missed";
    const auto webSocket = TransportChoice::WebSocketOnly;
    const auto polling = TransportChoice::PollingOnly;
    const auto upgrading = TransportChoice::PollingThenWebSocket;
    const Row rows[] = {
        {"no handshake", webSocket, {}, 20s, kFailed},
        {"no open packet", webSocket, {event::WebSocketOpened{}}, 20s, kFailed},
        {"no revision", webSocket, {event::WebSocketText{kOpen}}, 20s, kFailed},
        {"no join", webSocket, {event::WebSocketText{kOpenWithMaxPayload}}, 20s, kFailed},
        {"no heartbeat",
         webSocket,
         {event::WebSocketText{kOpen}, event::WebSocketText{join}},
         45s,
         kMissed},
        {"no pong to an old server's client, which pings again meanwhile",
         webSocket,
         {event::WebSocketText{
              R"(0{"sid":"s1","upgrades":[],"pingInterval":25000,"pingTimeout":60000})"},
          event::WebSocketText{"40/chat,"}},
         85s,
         kMissed},
        {"no answer", polling, {}, 20s, kFailed},
        {"no join over polling", polling, {event::GetAnswered{200, kOpen}}, 20s, kFailed},
        {"no heartbeat over polling",
         polling,
         {event::GetAnswered{200, kOpen}, event::GetAnswered{200, join}},
         45s,
         kMissed},
        {"nothing runs dry for the upgrade",
         upgrading,
         {event::GetAnswered{200, kOpen}, event::GetAnswered{200, join}, event::WebSocketOpened{},
          event::WebSocketText{"3probe"}},
         45s,
         kMissed},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.phase);
        Script script(chat(row.transports));
        script.on(event::Start{});
        for (const auto& event : row.before) script.on(event);
        EXPECT_EQ(outcomeIn(script.wait(row.time - 1s)), kLives);
        EXPECT_EQ(outcomeIn(script.wait(1s)), row.outcome);
    }
}

}  // namespace
}  // namespace vexim::testing
