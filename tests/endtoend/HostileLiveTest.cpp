// What an application sees when a live server misbehaves: an error or a closed session, and nothing
// lost that came before. tests/socketio has each fault; this file has each way in which one ends a
// whole client's session.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "VexIMLib/Testing/ManualClock.h"
#include "endtoend/LiveWorld.h"
#include "support/Gzip.h"
#include "support/PeakMemory.h"
#include "support/ScriptedServer.h"
#include "support/WrongKinds.h"

namespace vexim::testing {
namespace {

using Connection = ScriptedServer::Connection;
using namespace std::chrono_literals;

constexpr const char* kLoginAnswer = R"({"success":true,"id":"u1"})";
constexpr const char* kMessage =
    R"({"content":{"media":0,"body":"before"},"from":{"id":"u2","type":0},"to":{"id":"u1","type":0}})";

std::string brackets(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

/// Logs in at `origin` and expects the connection never to come up: one error, no more.
void expectNoConnection(const std::string& origin, const Dictionary& options = {}) {
    auto ears = LiveClient::make(origin, options);
    ears->login();
    EXPECT_TRUE(eventually([&] { return ears->errors > 0; }));
    MainQueue::shared().drain();
    EXPECT_EQ(ears->errors, 1);
    EXPECT_EQ(ears->disconnects, 0);
    EXPECT_TRUE(ears->logins.empty()) << "only the service's answer ends a login";
    EXPECT_EQ(ears->client->status(), VXIMClientStatusOpening);
}

TEST(HostileLive, AServerThatCannotBeTalkedToIsAnError) {
    ManualClock clock;
    const struct {
        const char* why;
        std::function<void(LivePeer&)> play;
    } cases[] = {
        {"it hangs up", [](LivePeer&) {}},
        {"it resets", [](LivePeer& p) { p.connection().reset(); }},
        {"a head byte by byte",
         [&](LivePeer& p) {
             p.connection().readHead();
             p.connection().write("HTTP/1.1 101 Switching Protocols\r\nX: ");
             while (p.connection().pause(20ms) && p.connection().write("x")) clock.advance(5s);
         }},
        {"closed after the upgrade", [](LivePeer& p) { p.acceptWebSocket(); }},
        {"an open packet of 100 000 levels",
         [](LivePeer& p) {
             p.open("0{\"sid\":" + brackets(100'000) + "}") && (p.waitForClose(), true);
         }},
        {"closed after the open packet", [](LivePeer& p) { p.open(); }},
        {"a refusal of a wrong type",
         [](LivePeer& p) {
             if (!p.open() || !p.readText()) return;
             p.sendText("44/chat," + brackets(300));
             p.waitForClose();
         }},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.why);
        ScriptedServer server([&](Connection& connection) {
            LivePeer peer(connection);
            each.play(peer);
        });
        expectNoConnection(server.url(""));
        EXPECT_EQ(server.connectionCount(), 1);
    }
}

TEST(HostileLive, AnUnreachableServerIsAnError) {
    expectNoConnection("http://127.0.0.1:" + std::to_string(deadPort()));
    expectNoConnection("http://name.invalid");  // RFC 6761: never resolves
    expectNoConnection("gopher://127.0.0.1");
}

TEST(HostileLive, AResolverThatNeverAnswersHoldsUpOnlyWhoAsked) {
    auto blocked = LiveClient::make("http://a.blocked.test", {{"connectTimeout", 600}});
    blocked->login();
    for (const char* transport : {"forceWebsockets", "forcePolling"}) {
        SCOPED_TRACE(transport);
        expectNoConnection("http://b.blocked.test", {{"connectTimeout", 0.3}, {transport, true}});
    }
    ScriptedServer right([](Connection& connection) {
        LivePeer peer(connection);
        if (peer.join()) peer.emit("login", kLoginAnswer);
        peer.waitForClose();
    });
    auto ears = LiveClient::make(right.url(""));
    ears->login();
    EXPECT_TRUE(eventually([&] { return ears->client->status() == VXIMClientStatusOpened; }));
    EXPECT_EQ(blocked->errors, 0);
    const std::weak_ptr<VXIMClient> alive = blocked->client;
    blocked->client = nullptr;
    EXPECT_TRUE(eventuallyElsewhere([&] { return alive.expired(); }));
}

TEST(HostileLive, AFaultClosesTheSessionAndLosesNothingBeforeIt) {
    const auto write = [](std::string bytes) {
        return [bytes = std::move(bytes)](LivePeer& peer) {
            peer.connection().write(bytes);
            peer.waitForClose();
        };
    };
    const auto text = [&](std::string_view packet) {
        return write(LivePeer::frame(LivePeer::Text, packet));
    };
    const std::string bomb =
        deflated("42/chat,[\"message\",\"" + std::string(std::size_t{64} << 20, ' ') + "\"]");
    const struct {
        const char* why;
        std::function<void(LivePeer&)> play;
    } cases[] = {
        {"a close",
         [](LivePeer& p) { p.connection().write(LivePeer::frame(LivePeer::Close, "\x03\xe8")); }},
        {"the connection ends", [](LivePeer&) {}},
        {"the connection is reset", [](LivePeer& p) { p.connection().reset(); }},
        {"half a frame",
         [](LivePeer& p) {
             p.connection().write(LivePeer::frame(LivePeer::Text, "2\"").substr(0, 3));
         }},
        {"a masked frame", write(std::string("\x81\x81\0\0\0\0002", 7))},
        {"a frame of 2^63 bytes", write(std::string("\x81\x7f\x80\0\0\0\0\0\0\0", 10))},
        {"a frame over the limit",
         write(LivePeer::frame(LivePeer::Text, std::string(2'000'000, 'x')))},
        {"fragments over the limit",
         [](LivePeer& p) {
             const std::string part(100'000, 'x');
             p.connection().write(LivePeer::frame(LivePeer::Text, part, 0x01));
             while (p.connection().write(LivePeer::frame(LivePeer::Continuation, part, 0x00)))
                 continue;
         }},
        {"a compressed bomb", write(LivePeer::frame(LivePeer::Text, bomb, 0xC1))},
        {"malformed JSON", text("42/chat,[\"message\",")},
        {"text where an attachment is due",
         [](LivePeer& p) {
             p.sendText(R"(451-/chat,["message",{"_placeholder":true,"num":0}])");
             p.sendText("42/chat,[\"sys\"]");
             p.waitForClose();
         }},
        {"the namespace is taken away", text("41/chat,")},
        {"the engine says goodbye", text("1")},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.why);
        ScriptedServer server([&](Connection& connection) {
            LivePeer peer(connection);
            if (each.why == std::string_view("a compressed bomb")) {
                if (!peer.acceptWebSocket(
                        "Sec-WebSocket-Extensions: permessage-deflate; server_no_context_takeover\r\n"))
                    return;
                if (!peer.sendText(LivePeer::kOpenPacket) || !peer.readText()) return;
                peer.sendText(R"(40/chat,{"sid":"s2"})");
            } else if (!peer.join()) {
                return;
            }
            peer.emit("login", kLoginAnswer);
            peer.emit("message", kMessage);
            each.play(peer);
        });
        PeakMemory peak;
        auto ears =
            LiveClient::make(server.url(""), {{"maxMessageSize", 1'000'000}, {"compress", true}});
        ears->login();
        EXPECT_TRUE(eventually([&] { return ears->disconnects > 0; }));
        MainQueue::shared().drain();
        EXPECT_EQ(ears->logins, std::vector<bool>{true});
        EXPECT_EQ(ears->received, std::vector<std::string>{"before"});
        EXPECT_EQ(ears->disconnects, 1);
        EXPECT_EQ(ears->systemMessages, 0);
        EXPECT_EQ(ears->client->status(), VXIMClientStatusPaused);
        EXPECT_EQ(server.connectionCount(), 1) << "nobody asked for reconnects";
        EXPECT_LT(peak.grownMiB(), 64);
    }
}

TEST(HostileLive, SilenceEndsASessionThatWasAlive) {
    ManualClock clock;
    ScriptedServer server([](Connection& connection) {
        LivePeer peer(connection);
        if (!peer.join() || !peer.emit("login", kLoginAnswer)) return;
        peer.waitForClose();  // and never a ping
    });
    auto ears = LiveClient::make(server.url(""));
    ears->login();
    EXPECT_TRUE(eventually([&] { return ears->client->status() == VXIMClientStatusOpened; }));
    EXPECT_TRUE(clock.runUntil([&] { return ears->disconnects > 0; }, 1min));
    EXPECT_EQ(ears->client->status(), VXIMClientStatusPaused);
}

TEST(HostileLive, WrongTypesInAnyFieldOfAnyEventLoseNothing) {
    // All fields of all events, in one object.
    const JSONResult whole = parseJSON(
        R"({"success":true,"id":"u1","error":{"errorCode":5,"errorMessage":"no"},"speaker":"u2","ts":1700000000000,)"
        R"("content":{"media":0,"body":"text"},"from":{"id":"u2","type":1,"gid":"g1"},"to":{"id":"g1","type":1}})");
    std::vector<std::string> payloads = {brackets(400)};
    for (const Wrong& wrong : everyWrongKind(whole.value)) {
        if (!wrong.text.empty()) payloads.push_back(wrong.text);
    }
    ScriptedServer server([&](Connection& connection) {
        LivePeer peer(connection);
        if (!peer.join()) return;
        peer.emit("login", kLoginAnswer);
        for (const char* event :
             {"message", "yourself", "sys", "online", "offline", "login", "say", "no such event"}) {
            peer.sendText("42/chat,[\"" + std::string(event) + "\"]");
            for (const auto& payload : payloads) peer.emit(event, payload);
        }
        peer.emit("message", R"({"content":{"media":0,"body":"the end"}})");
        peer.waitForClose();
    });
    auto ears = LiveClient::make(server.url(""));
    ears->login();
    EXPECT_TRUE(
        eventually([&] { return !ears->received.empty() && ears->received.back() == "the end"; }));
    const auto each = payloads.size() + 1;
    EXPECT_EQ(ears->received.size(), 2 * each + 1) << "\"message\" and \"yourself\"";
    EXPECT_EQ(ears->systemMessages, static_cast<int>(each));
    EXPECT_EQ(ears->presences, static_cast<int>(2 * each));
    EXPECT_EQ(ears->disconnects, 0);
    EXPECT_EQ(ears->errors, 0);
}

}  // namespace
}  // namespace vexim::testing
