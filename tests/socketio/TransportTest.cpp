// What the transports owe to servers: cookies, the goodbye of a WebSocket, further addresses, and
// going on after a server was slow.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Random.h"
#include "VexIMLib/internal/SocketIO/Client/LinkKeeper.h"
#include "socketio/Peers.h"
#include "socketio/Recorder.h"
#include "support/Eventually.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;

TEST(Transports, SendCookiesBackOverEachOther) {
    constexpr const char* kUnknown = R"({"code":0,"message":"Transport unknown"})";
    for (const bool beginsWithWebSocket : {true, false}) {
        std::mutex mutex;
        std::set<std::string> cookies;  // of what was sent over the other transport
        ScriptedServer server(serveEitherTransport([&](const WireRequest& request) -> std::string {
            const bool isWebSocket = request.header("Upgrade") == "websocket";
            if (isWebSocket == beginsWithWebSocket)
                return ScriptedServer::text(400, kUnknown, "Set-Cookie: node=7; Path=/\r\n");
            const std::lock_guard lock(mutex);
            cookies.insert(request.header("Cookie"));
            return "";
        }));
        const Array transports =
            beginsWithWebSocket ? Array{"websocket", "polling"} : Array{"polling", "websocket"};
        const auto client = makeClient(server.url(), {{"transports", transports}});
        Recorder heard(*client);
        ASSERT_TRUE(heard.connect(*client));
        const std::lock_guard lock(mutex);
        EXPECT_EQ(cookies, std::set<std::string>{"node=7"});
    }
}

TEST(Transports, CloseAWebSocketWithAFrameAndDoNotWaitLongForTheAnswer) {
    for (const bool serverCloses : {false, true}) {
        SCOPED_TRACE(serverCloses);
        std::atomic<int> closeFrames{0};
        std::atomic<bool> isClosed{false};
        ScriptedServer server(joined([&](LivePeer& peer) {
            if (serverCloses) peer.connection().write(LivePeer::frame(LivePeer::Close, "\x03\xE8"));
            // It never answers, and never hangs up by itself.
            while (const auto received = peer.readFrame())
                closeFrames += received->opcode == LivePeer::Close;
            isClosed = true;
        }));
        const auto client = makeClient(server.url(), {{"reconnects", false}});
        Recorder heard(*client);
        client->connect();
        ASSERT_TRUE(heard.waitFor(serverCloses ? "disconnect" : "connect"));
        client->disconnect();
        EXPECT_TRUE(eventuallyElsewhere([&] { return isClosed.load(); }));
        EXPECT_EQ(closeFrames, 1);
    }
}

TEST(Transports, PingTheServerWhenTheNetworkHasChanged) {
    std::atomic<bool> isPinged{false};
    ScriptedServer server(joined([&](LivePeer& peer) {
        while (const auto received = peer.readFrame()) {
            if (received->opcode == LivePeer::Ping) isPinged = true;
        }
    }));
    const auto client = makeClient(server.url());
    Recorder heard(*client);
    ASSERT_TRUE(heard.connect(*client));
    client->networkDidChange();
    EXPECT_TRUE(eventuallyElsewhere([&] { return isPinged.load(); }));
}

TEST(Transports, GoOnWhenASlowServerReadsAgainAndBeginAnewWhenItIsGone) {
    constexpr int kMessages = 400;  // 64 KiB each: more than the system's buffers take
    const std::string text(64 * 1024, 'x');
    for (const bool isGone : {false, true}) {
        SCOPED_TRACE(isGone);
        std::atomic<bool> mayGoOn{false};
        std::atomic<int> received{0}, last{0};
        ScriptedServer server(joined([&](LivePeer& peer) {
            while (!mayGoOn && peer.connection().pause(1ms)) continue;
            if (isGone && peer.connection().index() == 0) return;
            while (const auto message = peer.readText())
                ++(*message == R"(42/chat,["last"])" ? last : received);
        }));
        const auto metrics = VXIMMetrics::init();
        const auto client = makeClient(server.url(), {{"metrics", metrics}});
        Recorder heard(*client);
        ASSERT_TRUE(heard.connect(*client));
        for (int i = 0; i < kMessages; ++i) ASSERT_TRUE(client->emit("say", {text}));
        // Until the connection has taken what it can.
        double waiting = -1;
        ASSERT_TRUE(eventuallyElsewhere([&] {
            const double before =
                std::exchange(waiting, metrics->total("vexim_send_queue_events").value_or(0));
            return waiting > 0 && waiting < kMessages && waiting == before;
        }));
        std::promise<void> done;  // what was posted to the network thread before
        NetworkThread::shared().post([&] { done.set_value(); });
        done.get_future().wait();
        EXPECT_GT(metrics->total("vexim_send_queue_events"), 0) << "the rest still counts";
        mayGoOn = true;
        if (isGone) {
            ASSERT_TRUE(heard.waitFor("disconnect"));
            client->networkDidChange();  // no wait for the next attempt
            ASSERT_TRUE(heard.waitFor("connect"));
        }
        client->emit("last", {});
        EXPECT_TRUE(eventuallyElsewhere([&] { return last == 1; }));
        EXPECT_EQ(received, isGone ? 0 : kMessages);
    }
}

TEST(Transports, PreferAWebSocketWherePollingRequestsReachDifferentServers) {
    std::mutex mutex;
    std::vector<std::string> opened;
    int gets = 0;  // of the polling session
    ScriptedServer server(serveEitherTransport([&](const WireRequest& request) -> std::string {
        const std::lock_guard lock(mutex);
        const bool isPolling = request.header("Upgrade").empty();
        if (request.target.find("&sid=") == std::string::npos) {
            opened.emplace_back(isPolling ? "polling" : "WebSocket");
            return "";
        }
        const bool isLost = request.method == "GET" && ++gets == 2;  // behind the join's answer
        return isLost ? ScriptedServer::text(400, R"({"code":1,"message":"Session ID unknown"})")
                      : "";
    }));
    const auto client = makeClient(server.url(), {{"transports", Array{"polling", "websocket"}}});
    Recorder heard(*client);
    client->connect();
    ASSERT_TRUE(heard.waitFor("disconnect"));
    client->networkDidChange();
    ASSERT_TRUE(heard.waitFor("connect"));
    const std::lock_guard lock(mutex);
    EXPECT_EQ(opened, (std::vector<std::string>{"polling", "WebSocket"}));
}

TEST(Transports, TryTheNextAddressWhenOneRefusesOrIsSilent) {
    struct TwoAddresses final : HostResolver {
        struct Answer final : Lookup {
            NetworkTimer timer;
        };
        std::unique_ptr<Lookup> resolve(std::string, Completion completion) override {
            auto answer = std::make_unique<Answer>();
            answer->timer.start(0ns, [completion = std::move(completion)] {
                completion({"no address", "127.0.0.2", "127.0.0.1"}, nullptr);
            });
            return answer;
        }
    };
    for (const bool isSilent : {false, true}) {
        SCOPED_TRACE(isSilent);
        ScriptedServer server(echo);
        const auto silent = isSilent ? std::make_unique<SilentPort>(server.port()) : nullptr;
        TwoAddresses resolver;
        auto parsed = parseSocketIOOptions({{"forceWebsockets", true}});
        const auto core = std::make_shared<SocketIOCore>(parsed.options, Clock::shared());
        const auto url = URL::parse("http://im.example:" + std::to_string(server.port()));
        auto keeper = std::make_shared<LinkKeeper>(
            core, endpointOf(url, false), std::move(parsed.options),
            SocketIOEnvironment{Clock::shared(), Random::shared(), &resolver}, nullptr);
        core->attach(keeper);
        core->joinNamespace("/chat");
        core->connect();
        EXPECT_TRUE(eventuallyElsewhere([&] { return core->status() == SocketIOStatusConnected; }));
        core->shutDown();
        const std::weak_ptr<LinkKeeper> gone = std::exchange(keeper, nullptr);
        EXPECT_TRUE(eventuallyElsewhere([&] { return gone.expired(); })) << "with the connection";
    }
}

TEST(Transports, AllowEachPollingAnswerTheSameHead) {
    std::atomic<int> gets{0};
    const std::string field = "X-Long: " + std::string(8000, 'x') + "\r\n";
    ScriptedServer server(ScriptedServer::answering([&](const WireRequest& request) {
        std::string body = "ok";
        if (request.method == "GET") {
            const int index = gets++;
            body = index == 0   ? LivePeer::kOpenPacket
                   : index == 1 ? R"(40/chat,{"sid":"x"})"
                                : "42/chat,[\"message\"," + std::to_string(index) + "]";
        }
        return ScriptedServer::text(200, body, field);
    }));
    const auto client = makeClient(server.url(), {{"transports", Array{"polling"}}});
    Recorder heard(*client);
    client->connect();
    EXPECT_TRUE(eventually([&] { return heard.lines().size() > 30; })) << heard.last();
    client->disconnect();
}

}  // namespace
}  // namespace vexim::testing
