// Peers that misbehave on a real socket: each kind once. The client ends with the right word, in time, and can go on.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include "VexIMLib/internal/SocketIO/SocketIOClient.h"
#include "socketio/Recorder.h"
#include "socketio/WebSocketPeer.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;
using Connection = ScriptedServer::Connection;

struct WireFault {
    const char* name;
    Dictionary options;
    ScriptedServer::Script script;
    std::string heard;  // the beginning of the last line
};

std::string closeFrame(int code) {
    return WebSocketPeer::frame(std::string{static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)}, 0x88);
}

ScriptedServer::Script joinedThen(std::function<void(Connection&)> then) {
    return [then](Connection& connection) {
        WebSocketPeer peer(connection);
        if (peer.join()) then(connection);
    };
}

ScriptedServer::Script joinedThenSend(std::string bytes) {
    return joinedThen([bytes](Connection& connection) {
        connection.write(bytes);
        connection.waitForClose();
    });
}

ScriptedServer::Script answeringWith(std::string answer) {
    return [answer](Connection& connection) {
        connection.readRequest();
        connection.write(answer);
        connection.waitForClose();
    };
}

void expectOutcome(const WireFault& fault, Dictionary base) {
    SCOPED_TRACE(fault.name);
    ScriptedServer server(fault.script);
    Dictionary options = std::move(base);
    options.set("reconnects", false);
    options.addEntries(fault.options);
    const auto client = SocketIOClient::create(URL::parse(server.url()), options);
    client->joinNamespace("/chat");
    Recorder heard;
    heard.listen(*client);
    client->connect();
    EXPECT_TRUE(heard.waitFor(fault.heard)) << Value(Array::fromStrings(heard.lines())).description();
}

TEST(WireFaults, EndAWebSocketWithTheRightWord) {
    const std::string text = WebSocketPeer::frame("42/chat,[\"message\",\"x\"]");
    const Dictionary quick{{"connectTimeout", 0.1}};
    std::string masked = text;
    masked[1] = static_cast<char>(masked[1] | 0x80);
    const WireFault faults[] = {
        {"accepts and stays silent", quick, [](Connection& c) { c.waitForClose(); }, "error The server did not answer in time."},
        {"silent after the handshake", quick,
         [](Connection& c) {
             WebSocketPeer(c).accept();
             c.waitForClose();
         },
         "error The server did not answer in time."},
        {"never answers the join", quick,
         [](Connection& c) {
             WebSocketPeer(c).accept(WebSocketPeer::frame(R"(0{"sid":"s","pingInterval":25000,"pingTimeout":20000})"));
             c.waitForClose();
         },
         "error The namespace was not joined in time."},
        {"closes at once", {}, [](Connection&) {}, "error The WebSocket handshake failed"},
        {"resets", {}, [](Connection& c) { c.reset(); }, "error"},
        {"wrong accept",
         {},
         answeringWith("HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                       "Sec-WebSocket-Accept: AAAAAAAAAAAAAAAAAAAAAAAAAAA=\r\n\r\n"),
         "error The WebSocket handshake failed"},
        {"200 instead of 101",
         {},
         answeringWith("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi"),
         "error The WebSocket handshake was answered with 200."},
        {"301",
         {},
         answeringWith("HTTP/1.1 301 Moved\r\nLocation: /\r\nContent-Length: 0\r\n\r\n"),
         "error The WebSocket handshake was answered with 301."},
        {"401",
         {},
         answeringWith("HTTP/1.1 401 No\r\nContent-Length: 0\r\n\r\n"),
         "error The WebSocket handshake was answered with 401."},
        {"403",
         {},
         answeringWith("HTTP/1.1 403 No\r\nContent-Length: 0\r\n\r\n"),
         "error The WebSocket handshake was answered with 403."},
        {"404",
         {},
         answeringWith("HTTP/1.1 404 No\r\nContent-Length: 0\r\n\r\n"),
         "error The WebSocket handshake was answered with 404."},
        {"429",
         {},
         answeringWith("HTTP/1.1 429 No\r\nContent-Length: 0\r\n\r\n"),
         "error The WebSocket handshake was answered with 429."},
        {"500",
         {},
         answeringWith("HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n"),
         "error The WebSocket handshake was answered with 500."},
        {"no HTTP at all", {}, answeringWith("SSH-2.0-OpenSSH\r\n\r\n"), "error The WebSocket handshake failed"},
        {"a head without end",
         {},
         answeringWith("HTTP/1.1 101 X\r\nA: " + std::string(200'000, 'a')),
         "error The WebSocket handshake failed"},
        {"half-close", {}, joinedThen([](Connection&) {}), "disconnect transport close"},
        {"reset when joined", {}, joinedThen([](Connection& c) { c.reset(); }), "disconnect"},
        {"truncated frame", {}, joinedThen([text](Connection& c) { c.write(text.substr(0, 9)); }), "disconnect transport close"},
        {"masked frame", {}, joinedThenSend(masked + "1234"), "disconnect A malformed frame"},
        {"reserved bits", {}, joinedThenSend(WebSocketPeer::frame("x", 0xC1)), "disconnect A malformed frame"},
        {"reserved opcode", {}, joinedThenSend(WebSocketPeer::frame("x", 0x83)), "disconnect A malformed frame"},
        {"bad UTF-8", {}, joinedThenSend(WebSocketPeer::frame("42/chat,[\"\xff\"]")), "disconnect A malformed frame"},
        {"a continuation of nothing", {}, joinedThenSend(WebSocketPeer::frame("x", 0x80)), "disconnect A malformed frame"},
        {"a long ping", {}, joinedThenSend(WebSocketPeer::frame(std::string(200, 'x'), 0x89)), "disconnect A malformed frame"},
        {"oversize",
         {{"maxMessageSize", 1000}},
         joinedThenSend(WebSocketPeer::frame(std::string(2000, 'x'))),
         "disconnect The server sent a message over the limit."},
        {"an announced exabyte",
         {},
         joinedThenSend(std::string("\x81\x7f\x0f\xff\xff\xff\xff\xff\xff\xff", 10)),
         "disconnect The server sent a message over the limit."},
        {"missing heartbeat",
         {},
         [](Connection& c) {
             WebSocketPeer peer(c);
             peer.accept(WebSocketPeer::frame(R"(0{"sid":"s","pingInterval":20,"pingTimeout":20,"maxPayload":1000})"));
             peer.next();
             peer.send(R"(40/chat,{"sid":"x"})");
             c.waitForClose();
         },
         "disconnect ping timeout"},
        {"close 1000", {}, joinedThenSend(closeFrame(1000)), "disconnect transport close"},
        {"close 1001", {}, joinedThenSend(closeFrame(1001)), "disconnect transport close"},
        {"close 1009", {}, joinedThenSend(closeFrame(1009)), "disconnect transport close"},
        {"close 1011", {}, joinedThenSend(closeFrame(1011)), "disconnect transport close"},
        {"close 4999", {}, joinedThenSend(closeFrame(4999)), "disconnect transport close"},
        {"close 1005, which may not be sent", {}, joinedThenSend(closeFrame(1005)), "disconnect"},
        {"close 1015, which may not be sent", {}, joinedThenSend(closeFrame(1015)), "disconnect"},
        {"close with one byte", {}, joinedThenSend(WebSocketPeer::frame("x", 0x88)), "disconnect A malformed frame"},
        {"close with junk for a reason", {}, joinedThenSend(WebSocketPeer::frame("\x03\xe8\xff\xfe", 0x88)), "disconnect"},
    };
    for (const auto& fault : faults) expectOutcome(fault, {{"forceWebsockets", true}});
}

TEST(WireFaults, DoNotDisturbWhatIsOnlyUnusual) {
    const std::string open = WebSocketPeer::frame(R"(0{"sid":"s","pingInterval":25000,"pingTimeout":20000,"maxPayload":1000})");
    const WireFault faults[] = {
        {"trickle",
         {},
         [&](Connection& c) {
             WebSocketPeer peer(c);
             peer.accept();
             for (const char byte : open) c.write({&byte, 1});
             peer.next();
             for (const char byte : WebSocketPeer::frame(R"(40/chat,{"sid":"x"})")) c.write({&byte, 1});
             c.waitForClose();
         },
         "connect"},
        {"fragments with pings between them",
         {},
         joinedThenSend(WebSocketPeer::frame("42/chat,[\"mes", 0x01) + WebSocketPeer::frame("hello", 0x89) +
                        WebSocketPeer::frame("sage\",\"\xc3", 0x00) + WebSocketPeer::frame("\xa9\"]", 0x80)),
         "message é"},
        {"pings and pongs nobody asked for",
         {},
         joinedThenSend(WebSocketPeer::frame("", 0x89) + WebSocketPeer::frame("x", 0x8A) +
                        WebSocketPeer::frame("42/chat,[\"message\",1]")),
         "message 1"},
        {"a big message in small reads",
         {},
         joinedThenSend(WebSocketPeer::frame("42/chat,[\"message\",\"" + std::string(3'000'000, 'y') + "\"]")),
         "message yyy"},
    };
    for (const auto& fault : faults) expectOutcome(fault, {{"forceWebsockets", true}});
}

TEST(WireFaults, AnswerAPingWhileNothingElseComes) {
    std::string answered;
    ScriptedServer server(joinedThen([&](Connection& connection) {
        connection.write(WebSocketPeer::frame("are you there", 0x89));
        WebSocketPeer peer(connection);
        answered = peer.next().value_or("nothing");
        connection.write(WebSocketPeer::frame("42/chat,[\"message\",1]"));
        connection.waitForClose();
    }));
    const auto client = SocketIOClient::create(URL::parse(server.url()), {{"forceWebsockets", true}});
    client->joinNamespace("/chat");
    Recorder heard;
    heard.listen(*client);
    client->connect();
    EXPECT_TRUE(heard.waitFor("message 1"));
    EXPECT_EQ(answered, "are you there");
}

TEST(WireFaults, EndPollingWithTheRightWord) {
    const std::string open = R"(0{"sid":"s1","upgrades":[],"pingInterval":25000,"pingTimeout":20000})";
    const auto polling = [open](std::function<std::string(const WireRequest&)> afterJoin) {
        return ScriptedServer::answering([open, afterJoin](const WireRequest& request) {
            if (request.target.find("sid=") == std::string::npos) return ScriptedServer::text(200, open);
            if (request.method == "POST") return ScriptedServer::text(200, "ok");
            return afterJoin(request);
        });
    };
    const WireFault faults[] = {
        {"accepts and stays silent", {{"connectTimeout", 0.1}}, [](Connection& c) { c.waitForClose(); }, "error"},
        {"a web page",
         {},
         ScriptedServer::answering([](const WireRequest&) { return ScriptedServer::text(200, "<html>"); }),
         "error The answer is none of a Socket.IO server."},
        {"403",
         {},
         ScriptedServer::answering([](const WireRequest&) { return ScriptedServer::text(403, "no"); }),
         "error The server answered 403."},
        {"truncated body", {{"connectTimeout", 0.1}}, answeringWith("HTTP/1.1 200 OK\r\nContent-Length: 500\r\n\r\n0{"), "error"},
        {"a redirection is not followed",
         {},
         answeringWith("HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1:1/\r\nContent-Length: 0\r\n\r\n"),
         "error The server answered 302."},
        {"unknown session",
         {},
         polling([](const WireRequest&) { return ScriptedServer::text(400, R"({"code":1,"message":"Session ID unknown"})"); }),
         "error The server does not know the session."},
        {"an answer over the limit",
         {{"maxMessageSize", 1000}},
         polling([](const WireRequest&) { return ScriptedServer::text(200, std::string(2000, '6')); }),
         "error The server's answer is over the limit."},
        {"a malformed payload",
         {},
         polling([](const WireRequest&) {
             return ScriptedServer::text(200,
                                         "40/chat,{\"sid\":\"x\"}\x1e"
                                         "9");
         }),
         "disconnect"},
    };
    for (const auto& fault : faults) expectOutcome(fault, {{"forcePolling", true}});
}

TEST(WireFaults, FallBackToPollingWhereWebSocketsAreRefused) {
    const std::string open = R"(0{"sid":"s1","upgrades":["websocket"],"pingInterval":25000,"pingTimeout":20000})";
    std::vector<std::string> cookies;
    std::mutex mutex;
    ScriptedServer server(ScriptedServer::answering([&](const WireRequest& request) {
        if (request.target.find("transport=websocket") != std::string::npos) return ScriptedServer::text(426, "");
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
    const auto client = SocketIOClient::create(URL::parse(server.url()), {{"extraHeaders", Dictionary{{"X-Extra", "e"}}}});
    client->joinNamespace("/chat");
    Recorder heard;
    heard.listen(*client);
    client->connect();
    ASSERT_TRUE(heard.waitFor("connect"));
    const std::lock_guard lock(mutex);
    ASSERT_GE(cookies.size(), 2u);
    EXPECT_EQ(cookies[0], "|e");
    EXPECT_EQ(cookies[1], "AWSALB=node7|e") << "the balancer's cookie goes back";
}

}  // namespace
}  // namespace vexim::testing
