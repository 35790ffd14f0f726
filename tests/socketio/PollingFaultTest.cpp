// Polling servers and upgrades that misbehave on a real socket, and a deadline for each stage of
// connecting.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "socketio/WireFault.h"
#include "support/Pass.h"

namespace vexim::testing {
namespace {

TEST(PollingFaults, EndPollingWithTheRightWord) {
    const std::string open =
        R"(0{"sid":"s1","upgrades":[],"pingInterval":25000,"pingTimeout":20000})";
    const auto polling = [open](std::function<std::string(const WireRequest&)> afterJoin) {
        return ScriptedServer::answering([open, afterJoin](const WireRequest& request) {
            if (request.target.find("sid=") == std::string::npos)
                return ScriptedServer::text(200, open);
            if (request.method == "POST") return ScriptedServer::text(200, "ok");
            return afterJoin(request);
        });
    };
    const WireFault faults[] = {
        {"accepts and stays silent",
         [](Connection& c) { c.waitForClose(); },
         "error The server did not answer in time.",
         {{"connectTimeout", 0.1}}},
        {"a web page", ScriptedServer::answering([](const WireRequest&) {
             return ScriptedServer::text(200, "<html>");
         }),
         "error The answer does not come from a Socket.IO server."},
        {"truncated body",
         answeringWith("HTTP/1.1 200 OK\r\nContent-Length: 500\r\n\r\n0{"),
         "error",
         {{"connectTimeout", 0.1}}},
        {"closes at once", [](Connection& c) { c.readRequest(); },
         "error The server closed the connection before it answered."},
        {"closes in the middle of its answer",
         [](Connection& c) {
             c.readRequest();
             c.write("HTTP/1.1 200 OK\r\nContent-Length: 500\r\n\r\n0{");
         },
         "error The server closed the connection in the middle of an answer."},
        {"no HTTP at all", answeringWith("SSH-2.0-OpenSSH\r\n\r\n"),
         "error The server's answer is not HTTP."},
        {"a chunk that is none",
         answeringWith("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\n"),
         "error The server's answer is not valid HTTP."},
        {"compressed by half",
         answeringWith(
             "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 4\r\n\r\nnone"),
         "error The server's answer cannot be decompressed."},
        {"unknown session", polling([](const WireRequest&) {
             return ScriptedServer::text(400, R"({"code":1,"message":"Session ID unknown"})");
         }),
         "error The server does not know the session."},
        {"an answer over the limit",
         polling(
             [](const WireRequest&) { return ScriptedServer::text(200, std::string(2000, '6')); }),
         "error The server's answer is too long.",
         {{"maxMessageSize", 1000}}},
        {"a million packets, then a malformed one", polling([](const WireRequest&) {
             return ScriptedServer::text(200, repeated("6\x1e", 1'000'000) + "9");
         }),
         "error The server sent a malformed payload."},
        {"a malformed payload", polling([](const WireRequest&) {
             return ScriptedServer::text(200,
                                         "40/chat,{\"sid\":\"x\"}\x1e"
                                         "9");
         }),
         "disconnect"},
    };
    for (const auto& fault : faults) expectOutcome(fault, {{"forcePolling", true}});
}

TEST(PollingFaults, FallBackToPollingWhereWebSocketsAreRefused) {
    const std::string open =
        R"(0{"sid":"s1","upgrades":["websocket"],"pingInterval":25000,"pingTimeout":20000})";
    std::vector<std::string> cookies;
    std::mutex mutex;
    ScriptedServer server(ScriptedServer::answering([&](const WireRequest& request) {
        if (request.target.find("transport=websocket") != std::string::npos)
            return ScriptedServer::text(426, "");
        {
            const std::lock_guard lock(mutex);
            cookies.push_back(request.header("Cookie") + "|" + request.header("X-Extra"));
        }
        if (request.method == "POST") return ScriptedServer::text(200, "ok");
        if (request.target.find("sid=") == std::string::npos) {
            return ScriptedServer::text(200, open, "Set-Cookie: AWSALB=node7; Path=/\r\n");
        }
        return ScriptedServer::text(200, R"(40/chat,{"sid":"x"})");
    }));
    const auto client = makeClient(server.url(), {{"transports", Array{"websocket", "polling"}},
                                                  {"extraHeaders", Dictionary{{"X-Extra", "e"}}}});
    Recorder heard(*client);
    ASSERT_TRUE(heard.connect(*client));
    const std::lock_guard lock(mutex);
    ASSERT_GE(cookies.size(), 2u);
    EXPECT_EQ(cookies[0], "|e");
    EXPECT_EQ(cookies[1], "AWSALB=node7|e") << "the balancer's cookie goes back";
}

TEST(PollingFaults, CloseTheConnectionsOfAClientThatHasLeft) {
    std::atomic<int> open{0};
    std::atomic<int> gets{0};
    std::atomic<bool> isReleased{false};
    ScriptedServer server([&](Connection& connection) {
        ++open;
        while (const auto request = connection.readRequest()) {
            std::string body = "ok";
            if (request->target.find("sid=") == std::string::npos) {
                body = R"(0{"sid":"s1","upgrades":[],"pingInterval":25000,"pingTimeout":20000})";
            } else if (request->method == "GET") {
                body = R"(40/chat,{"sid":"x"})";
                if (++gets % 2 == 0) {
                    while (!isReleased && connection.pause(std::chrono::milliseconds(1))) continue;
                    body = "1";
                }
            }
            connection.answer(200, body);
        }
        --open;
    });
    for (const bool isLost : {false, true}) {
        isReleased = false;
        const auto client =
            makeClient(server.url(), {{"forcePolling", true}, {"reconnects", false}});
        Recorder heard(*client);
        ASSERT_TRUE(heard.connect(*client));
        ASSERT_TRUE(eventuallyElsewhere([&] { return gets % 2 == 0; }));
        if (!isLost) client->disconnect();
        isReleased = true;
        ASSERT_TRUE(heard.waitFor("disconnect"));
        EXPECT_TRUE(eventuallyElsewhere([&] { return open == 0; })) << (isLost ? "lost" : "left");
    }
}

/// Offers an upgrade. It answers the GET when the upgrade is done, or, if it never answers the
/// probe, when the client has given up.
class UpgradingServer {
public:
    explicit UpgradingServer(bool answersProbe)
        : answersProbe_(answersProbe),
          server_([this](Connection& connection) { serve(connection); }) {}
    std::string url() const { return server_.url(); }
    bool isProbed() const { return isProbed_; }
    /// The upgrade's, once it is probed.
    const std::string& cookies() const { return cookies_; }

private:
    void serve(Connection& connection) {
        while (auto request = connection.readRequest()) {
            if (request->header("Upgrade") == "websocket") {
                cookies_ = request->header("Cookie");
                return upgrade(LivePeer(connection, std::move(request)));
            }
            std::string body = "ok";
            if (request->target.find("sid=") == std::string::npos) {
                body =
                    R"(0{"sid":"s1","upgrades":["websocket"],"pingInterval":25000,"pingTimeout":20000})";
            } else if (request->method == "GET" && !joined_.exchange(true)) {
                body = R"(40/chat,{"sid":"x"})";
            } else if (request->method == "GET") {
                while (!isReleased_ && connection.pause(std::chrono::milliseconds(1))) continue;
                body = R"(42/chat,["message","over polling"])";
                isReleased_ = false;
            }
            connection.answer(200, body, "Set-Cookie: AWSALB=node7; Path=/\r\n");
        }
    }
    void upgrade(LivePeer peer) {
        peer.acceptWebSocket();
        isProbed_ = peer.readText() == "2probe";
        if (isProbed_ && answersProbe_) {
            peer.sendText("3probe");
            isReleased_ = true;
            if (peer.readText() == "5")
                peer.sendText(R"(42/chat,["message","over the WebSocket"])");
        }
        peer.waitForClose();
        isReleased_ = true;
    }

    const bool answersProbe_;
    std::atomic<bool> joined_{false};
    std::atomic<bool> isReleased_{false};
    std::atomic<bool> isProbed_{false};
    std::string cookies_;
    ScriptedServer server_;  // last: its connections use the rest
};

TEST(PollingFaults, UpgradesLoseNothingAndMayFail) {
    const std::pair<bool, std::vector<std::string>> rows[] = {
        {true, {"connect /chat", "message over polling", "message over the WebSocket"}},
        {false, {"connect /chat", "message over polling"}},
    };
    for (const auto& [answersProbe, lines] : rows) {
        ManualClock clock;
        UpgradingServer server(answersProbe);
        const auto client =
            makeClient(server.url(), {{"transports", Array{"polling", "websocket"}},
                                      {"extraHeaders", Dictionary{{"cookie", "mine=1"}}}});
        Recorder heard(*client);
        client->connect();
        ASSERT_TRUE(eventuallyElsewhere([&] { return server.isProbed(); }));
        EXPECT_EQ(server.cookies(), "mine=1; AWSALB=node7") << "of the balancer, to reach its node";
        if (!answersProbe) pass(clock, std::chrono::seconds(20));
        EXPECT_TRUE(heard.waitFor(lines.back())) << heard.last();
        EXPECT_EQ(heard.lines(), lines);
    }
}

TEST(Addresses, ASilentOneIsLeftForTheNext) {
    ScriptedServer server(serveEitherTransport());
    const SilentPort silent(server.port());
    const auto client = makeClient("http://twice.loopback.test:" + std::to_string(server.port()));
    Recorder heard(*client);
    EXPECT_TRUE(heard.connect(*client)) << heard.last();
}

TEST(Deadlines, EndEachStageOfConnecting) {
    const SilentPort full;
    ScriptedServer silent([](Connection& connection) { connection.waitForClose(); });
    ScriptedServer good(serveEitherTransport());
    const std::string port = std::to_string(silent.port());
    const std::pair<const char*, std::string> rows[] = {
        {"lookup", "http://never.blocked.test:8080"},
        {"lookup, and TLS", "https://never.blocked.test:8443"},
        {"connect", "http://127.0.0.2:" + std::to_string(full.port())},
        {"TLS", "https://127.0.0.1:" + port},
        {"handshake", "http://127.0.0.1:" + port},
    };
    for (const auto& [stage, url] : rows) {
        for (const auto& transports :
             {Array{"websocket"}, Array{"polling"}, Array{"websocket", "polling"}}) {
            SCOPED_TRACE(std::string(stage) + " " + Value(transports).description());
            const auto begun = std::chrono::steady_clock::now();
            const auto client = makeClient(
                url, {{"transports", transports}, {"connectTimeout", 0.1}, {"reconnects", false}});
            Recorder heard(*client);
            client->connect();
            EXPECT_TRUE(heard.waitFor("error The server did not answer in time.")) << heard.last();

            const auto other = makeClient(good.url(), {{"transports", transports}});
            Recorder elsewhere(*other);
            EXPECT_TRUE(elsewhere.connect(*other)) << "it held up nobody else";
            EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(30));
        }
    }
}

}  // namespace
}  // namespace vexim::testing
