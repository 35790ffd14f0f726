// A program that is slower than the server: reading waits for it, nothing is lost or reordered, and
// the server gets its pongs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/SocketIOClient.h"
#include "VexIMLib/Testing/ManualClock.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"
#include "socketio/Peers.h"
#include "socketio/Recorder.h"
#include "support/Gzip.h"
#include "support/PeakMemory.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

// The server pings often, and is patient, for slow machines.
constexpr const char* kPings =
    R"({"sid":"s1","upgrades":[],"pingInterval":100,"pingTimeout":20000})";

// No ping is due during the test, so a paused connection need not look for one.
constexpr const char* kRarePings =
    R"({"sid":"s1","upgrades":[],"pingInterval":600000,"pingTimeout":20000})";

// One round is more than is read ahead. Four rounds would be seen in the memory.
constexpr int kRound = 10'000;
// As many messages of 1 MiB are more than memory may grow by. Fewer under sanitizers, which make
// them slow.
constexpr int kLong = PeakMemory::kIsSanitized ? 40 : 96;

/// "message" with its number and some 200 bytes.
std::string numbered(int number, std::size_t bytes = 200) {
    return "42/chat,[\"message\"," + std::to_string(number) + ",\"" + std::string(bytes, 'x') +
           "\"]";
}

/// Receives numbered messages and reports mistakes in them.
class Counter {
public:
    explicit Counter(SocketIOClient& client) {
        client.on("message", [this](const Array& arguments, const AckEmitter&) {
            if (arguments.get(0).longLongValue() != heard++) inOrder = false;
            const auto end = std::chrono::steady_clock::now() + work;
            while (std::chrono::steady_clock::now() < end) continue;
        });
        for (const char* name : {"disconnect", "error"}) {
            client.on(name, [this, name](const Array& arguments, const AckEmitter&) {
                trouble += std::string(name) + " " + arguments.get(0).description() + " ";
            });
        }
    }
    std::chrono::microseconds work{0};
    std::int64_t heard = 0;
    bool inOrder = true;
    std::string trouble;
};

/// Waits until everything posted to the network thread is done.
void awaitNetworkThread() {
    std::atomic<bool> done{false};
    NetworkThread::shared().post([&] { done = true; });
    ASSERT_TRUE(spinUntil([&] { return done.load(); }));
}

/// Sends many messages over either transport, in `rounds` with a ping after each, and continues
/// when the pong comes.
struct Flood {
    int rounds = 1;
    int perRound = 1;
    int perAnswer = 5000;  // polling
    std::size_t bytes = 200;
    const char* open = kPings;
    std::atomic<int> pongs{0};

    ScriptedServer::Script script() {
        return [this](ScriptedServer::Connection& connection) {
            auto request = connection.readRequest();
            if (!request) return;
            if (request->header("Upgrade") == "websocket") {
                floodWebSocket(connection, std::move(request));
            } else {
                answer(connection, std::move(request));
            }
        };
    }

private:
    void floodWebSocket(ScriptedServer::Connection& connection,
                        std::optional<WireRequest> request) {
        LivePeer peer(connection, std::move(request));
        if (!peer.open(std::string("0") + open) || !peer.readText() ||
            !peer.sendText(R"(40/chat,{"sid":"s2"})"))
            return;
        for (int round = 0; round < rounds; ++round) {
            std::string frames;
            for (int i = 0; i < perRound; ++i) {
                frames += frame(numbered(next_++, bytes));
                if (frames.size() < 65536 && i + 1 < perRound) continue;
                if (!connection.write(frames)) return;
                frames.clear();
            }
            if (!peer.beat()) return;
            ++pongs;
        }
        peer.waitForClose();
    }

    void answer(ScriptedServer::Connection& connection, std::optional<WireRequest> request) {
        for (; request; request = connection.readRequest()) {
            std::string body = "ok";
            if (request->method == "POST") {
                if (request->body == "3") ++pongs;
            } else if (request->target.find("sid=") == std::string::npos) {
                body = std::string("0") + open;
            } else {
                body = nextPayload();
            }
            if (body.empty()) return connection.waitForClose();
            if (!connection.answer(200, body)) return;
        }
    }

    /// A ping is the last packet of a round. The next round begins after its pong.
    std::string nextPayload() {
        const std::lock_guard lock(mutex_);
        if (!std::exchange(hasJoined_, true)) return R"(40/chat,{"sid":"s2"})";
        if (pongs == rounds) return "";
        const int end = perRound * (pongs + 1);
        std::string body;
        for (int i = 0; i < perAnswer && next_ < end; ++i)
            body += (i > 0 ? "\x1e" : "") + numbered(next_++, bytes);
        if (next_ == end && pinged_ == pongs) {
            body += body.empty() ? "2"
                                 : "\x1e"
                                   "2";
            ++pinged_;
        }
        return body.empty() ? "6" : body;
    }

    std::mutex mutex_;
    bool hasJoined_ = false;
    int pinged_ = 0;
    int next_ = 0;
};

struct Way {
    const char* name;
    bool isSecure;
    bool polls;
};
constexpr Way kWays[] = {{"WebSocket", false, false},
                         {"WebSocket over TLS", true, false},
                         {"polling", false, true},
                         {"polling over TLS", true, true}};

struct Connected {
    Connected(Flood& flood, const Way& way, Dictionary options = {})
        : server(flood.script(),
                 way.isSecure ? std::optional(CertificateAuthority::selfSigned()) : std::nullopt) {
        options.set("selfSigned", true);
        options.set("reconnects", false);
        options.set("transports", Array{way.polls ? "polling" : "websocket"});
        client = makeClient(server.url(), options);
    }
    ScriptedServer server;
    std::shared_ptr<SocketIOClient> client;
};

}  // namespace

TEST(Flow, AFloodIsDeliveredWholeAndTakesLittleMemory) {
    for (const auto& way : kWays) {
        SCOPED_TRACE(way.name);
        Flood flood;
        flood.open = kRarePings;
        flood.rounds = 4;
        flood.perRound = kRound;
        Connected connected(flood, way);
        Counter counter(*connected.client);
        counter.work = 5us;
        const PeakMemory peak;
        connected.client->connect();
        EXPECT_TRUE(eventually(
            [&] { return counter.heard == 4 * kRound || !counter.trouble.empty(); }, 200s));
        EXPECT_TRUE(counter.inOrder);
        EXPECT_EQ(counter.heard, 4 * kRound);
        EXPECT_EQ(counter.trouble, "");
        EXPECT_LT(peak.grownMiB(), 32) << "with what the server has in hand";
    }
}

TEST(Flow, NothingIsReadAheadForAProgramThatStandsStill) {
    for (const auto& way : kWays) {
        SCOPED_TRACE(way.name);
        Flood flood;
        flood.open = kRarePings;
        flood.perRound = kLong;  // more than may ever be undelivered
        flood.perAnswer = 1;
        flood.bytes = 1 << 20;
        Connected connected(flood, way);
        Counter counter(*connected.client);
        const PeakMemory peak;
        connected.client->connect();
        EXPECT_TRUE(
            spinUntil([&] { return connected.client->status() == SocketIOStatusConnected; }));
        EXPECT_FALSE(spinUntil(
            [&] { return connected.client->status() != SocketIOStatusConnected; }, 500ms));
        EXPECT_TRUE(eventually([&] { return counter.heard == kLong; }, 100s));
        EXPECT_TRUE(counter.inOrder);
        EXPECT_EQ(counter.trouble, "");
        EXPECT_LT(peak.grownMiB(), 32) << "with what the server has in hand";
    }
}

TEST(Flow, ATurnEndsBetweenTwoEvents) {
    Flood flood;
    flood.perRound = 100;
    Connected connected(flood, kWays[0]);
    Counter counter(*connected.client);
    connected.client->connect();
    MainQueue::shared().setTurnLimit(0ns);
    EXPECT_TRUE(spinUntil([&] {
        const auto before = counter.heard;
        MainQueue::shared().turn();
        EXPECT_LE(counter.heard, before + 1);
        return counter.heard == 100;
    }));
    MainQueue::shared().setTurnLimit(4ms);
    EXPECT_TRUE(counter.inOrder);
}

TEST(Flow, ThePeerHearsItsPongsWhileTheProgramStandsStill) {
    for (const auto& way : kWays) {
        SCOPED_TRACE(way.name);
        Flood flood;
        flood.rounds = 3;
        flood.perRound = kRound;
        Connected connected(flood, way);
        Counter counter(*connected.client);
        connected.client->connect();
        EXPECT_TRUE(spinUntil([&] { return flood.pongs == 3; }, 200s)) << flood.pongs;
        EXPECT_EQ(connected.client->status(), SocketIOStatusConnected);
        EXPECT_TRUE(eventually([&] { return counter.heard == 3 * kRound; }, 100s));
        EXPECT_TRUE(counter.inOrder);
        EXPECT_EQ(counter.trouble, "");
    }
}

// With one byte of room each event stops the reading until it is delivered.

TEST(Flow, AnAnswerThatWaitsUnreadIsNotLate) {
    ManualClock clock;
    std::atomic<bool> goesOn{false};
    std::atomic<bool> answered{false};
    ScriptedServer server([&](ScriptedServer::Connection& connection) {
        LivePeer peer(connection);
        if (!peer.join() || !peer.readText() || !peer.sendText(numbered(0))) return;
        while (!goesOn && connection.pause(1ms)) continue;
        peer.sendText("43/chat,0[\"in time\"]");
        answered = true;
        peer.waitForClose();
    });
    const auto client = makeClient(server.url(), {{"maxReadAhead", 1}});
    Recorder heard(*client);
    ASSERT_TRUE(heard.connect(*client));
    client->on("message", [&](const Array&, const AckEmitter&) {
        awaitNetworkThread();  // which has paused by then
        goesOn = true;
        ASSERT_TRUE(spinUntil([&] { return answered.load(); }));
        clock.advance(1h);
        awaitNetworkThread();
    });
    std::string answer;
    client->emitWithAck("ask", {}, 10s, [&](const Array& items, const ErrorPtr& error) {
        answer = error ? error->localizedDescription() : items.description();
    });
    ASSERT_TRUE(eventually([&] { return !answer.empty(); }));
    EXPECT_EQ(answer, "[in time]");
    client->emitWithAck("ask again", {}, 10s, [&](const Array&, const ErrorPtr& error) {
        answer = error ? "late" : "?";
    });
    EXPECT_TRUE(clock.runUntil([&] { return answer == "late"; })) << "time goes on afterwards";
}

TEST(Flow, AHandlerMayWaitForTheNextEventOrLeave) {
    std::atomic<int> goodbyes{0};
    std::atomic<bool> written{false};
    ScriptedServer server(joined([&](LivePeer& peer) {
        std::string frames;
        for (int i = 0; i < 4; ++i) frames += frame(numbered(i));
        if (!peer.connection().write(frames)) return;
        for (int i = 4; i < 400; ++i) {
            if (!peer.sendText(numbered(i))) return;
        }
        written = true;
        while (const auto text = peer.readText()) goodbyes += text->starts_with("41/chat") ? 1 : 0;
    }));
    const auto client = makeClient(server.url(), {{"maxReadAhead", 1}, {"reconnects", false}});
    Counter counter(*client);
    int connects = 0;
    client->on("connect", [&](const Array&, const AckEmitter&) { ++connects; });
    int inside = 0;
    client->on("message", [&](const Array&, const AckEmitter&) {
        if (counter.heard == 100 && connects == 1) {
            EXPECT_TRUE(spinUntil([&] { return written.load(); }));
            return client->disconnect();
        }
        if (counter.heard != 1 && counter.heard != 10) return;
        const auto end = counter.heard + 8;  // more than came in one batch
        EXPECT_TRUE(eventually([&] { return counter.heard >= end; }));
        ++inside;
    });
    client->connect();
    ASSERT_TRUE(eventually([&] { return !counter.trouble.empty(); }));
    EXPECT_EQ(counter.trouble, "disconnect io client disconnect ");
    EXPECT_EQ(inside, 2);
    EXPECT_TRUE(counter.inOrder);
    EXPECT_TRUE(eventuallyElsewhere([&] { return goodbyes == 1; })) << "also while reading waits";
    counter.heard = 0;
    client->connect();
    EXPECT_TRUE(eventually([&] { return connects == 2 && counter.heard == 400; }))
        << "and the next connection is not held up";
}

TEST(Flow, ShortFramesOfLongMessagesWaitToo) {
    // Each MiB takes one KiB on the wire, and the connection ends right after them.
    const std::string text =
        deflated("42/chat,[\"message\",0,\"" + std::string(1 << 20, 'x') + "\"]");
    for (const bool isSecure : {false, true}) {
        SCOPED_TRACE(isSecure);
        ScriptedServer server(
            [&](ScriptedServer::Connection& connection) {
                LivePeer peer(connection);
                const bool isOpen = peer.acceptWebSocket(
                    "Sec-WebSocket-Extensions: permessage-deflate; client_no_context_takeover; server_no_context_takeover\r\n",
                    frame(LivePeer::kOpenPacket));
                if (!isOpen || !peer.readFrame() || !peer.sendText(R"(40/chat,{"sid":"s2"})"))
                    return;
                connection.write(repeated(frame(text, 0xC1), kLong));
            },
            isSecure ? std::optional(CertificateAuthority::selfSigned()) : std::nullopt);
        const auto client = makeClient(
            server.url(), {{"compress", true}, {"reconnects", false}, {"selfSigned", true}});
        Recorder heard;
        int messages = 0;
        client->on("message", [&](const Array&, const AckEmitter&) { ++messages; });
        client->on("disconnect", [&](const Array& arguments, const AckEmitter&) {
            EXPECT_EQ(arguments.get(0), Value("transport close"));
            EXPECT_EQ(std::exchange(messages, -1), kLong);
        });
        const PeakMemory peak;
        client->connect();
        EXPECT_FALSE(
            spinUntil([&] { return client->status() == SocketIOStatusDisconnected; }, 500ms));
        EXPECT_TRUE(eventually([&] { return messages == -1; }, 100s));
        EXPECT_LT(peak.grownMiB(), 24);
    }
}

}  // namespace vexim::testing
