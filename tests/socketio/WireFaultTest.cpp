// WebSockets that misbehave on a real socket: each kind once. The client ends with the right word,
// in time, and can go on.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "socketio/WireFault.h"
#include "support/Gzip.h"
#include "support/Pass.h"

namespace vexim::testing {
namespace {

ScriptedServer::Script acceptingWith(std::string fields, std::string then = {}) {
    return [fields, then](Connection& c) {
        LivePeer peer(c);
        peer.acceptWebSocket(fields, frame(LivePeer::kOpenPacket));
        if (const auto text = peer.readText(); text && text->starts_with("40"))
            peer.sendText(R"(40/chat,{"sid":"x"})");
        c.write(then);
        peer.waitForClose();
    };
}

TEST(WireFaults, SilenceEndsEachPhase) {
    const WireFault rows[] = {
        {"accepts", [](Connection&) {}, "error The server did not answer in time."},
        {"after the handshake", [](Connection& c) { LivePeer(c).acceptWebSocket(); },
         "error The server did not answer in time."},
        {"never answers the join",
         [](Connection& c) {
             LivePeer peer(c);
             peer.open();
             peer.readText();
         },
         "error The namespace was not joined in time."},
        {"joined", [](Connection& c) { LivePeer(c).join(); }, "disconnect ping timeout"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ManualClock clock;
        std::atomic<bool> isSilent{false};
        ScriptedServer server([&](Connection& connection) {
            row.script(connection);
            isSilent = true;
            connection.waitForClose();
        });
        const auto client = makeClient(server.url(), {{"reconnects", false}});
        Recorder heard(*client);
        client->connect();
        ASSERT_TRUE(eventuallyElsewhere([&] { return isSilent.load(); }));
        if (row.heard.starts_with("disconnect")) {
            ASSERT_TRUE(heard.waitFor("connect"));
            pass(clock, std::chrono::seconds(44));
            EXPECT_EQ(heard.lines().size(), 1u) << heard.last();
        }
        pass(clock, std::chrono::seconds(20));
        EXPECT_TRUE(heard.waitFor(row.heard)) << heard.last();
    }
}

TEST(WireFaults, EndAWebSocketWithTheRightWord) {
    const std::string text = frame("42/chat,[\"message\",\"x\"]");
    const std::string partial = R"(451-/chat,["message",{"_placeholder":true,"num":0}])";
    const WireFault faults[] = {
        {"closes at once", [](Connection&) {},
         "error The server closed the connection before it answered."},
        {"closes in the middle of its answer",
         [](Connection& c) {
             c.readRequest();
             c.write("HTTP/1.1 101 Switching Protocols\r\nUpgr");
         },
         "error The server closed the connection before it answered."},
        {"resets", [](Connection& c) { c.reset(); }, "error"},
        {"wrong accept",
         answeringWith(
             "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
             "Sec-WebSocket-Accept: AAAAAAAAAAAAAAAAAAAAAAAAAAA=\r\n\r\n"),
         "error The WebSocket handshake failed"},
        {"a subprotocol that we did not ask for",
         acceptingWith("Sec-WebSocket-Protocol: chat\r\n"),
         "error The WebSocket handshake failed: the server chose a subprotocol",
         {{"extraHeaders", Dictionary{{"Sec-WebSocket-Protocol", "other"}}}}},
        {"two subprotocols",
         acceptingWith("Sec-WebSocket-Protocol: a\r\nSec-WebSocket-Protocol: b\r\n"),
         "error The WebSocket handshake failed: the server chose a subprotocol",
         {{"extraHeaders", Dictionary{{"Sec-WebSocket-Protocol", "a, b"}}}}},
        {"compression that was not asked for",
         acceptingWith("Sec-WebSocket-Extensions: permessage-deflate\r\n"),
         "error The WebSocket handshake failed: the server chose an extension"},
        {"another extension",
         acceptingWith("Sec-WebSocket-Extensions: permessage-deflate, x-y\r\n"),
         "error The WebSocket handshake failed: the server chose an extension",
         {{"compress", true}}},
        {"200 instead of 101", answeringWith("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi"),
         "error The WebSocket handshake was answered with 200."},
        {"no HTTP at all", answeringWith("SSH-2.0-OpenSSH\r\n\r\n"),
         "error The WebSocket handshake failed"},
        {"a head without end", answeringWith("HTTP/1.1 101 X\r\nA: " + std::string(200'000, 'a')),
         "error The WebSocket handshake failed"},
        {"closes when joined", joinedThen([](Connection&) {}), "disconnect transport close"},
        {"half-close", joinedThen([](Connection& c) {
             c.shutDown();
             c.waitForClose();
         }),
         "disconnect transport close"},
        {"reset when joined", joinedThen([](Connection& c) { c.reset(); }), "disconnect"},
        {"truncated frame", joinedThen([text](Connection& c) { c.write(text.substr(0, 9)); }),
         "disconnect transport close"},
        {"a masked frame, of which no more comes", joinedThenSend("\x81\x85"),
         "disconnect A malformed frame"},
        {"a reserved bit, and no more", joinedThenSend("\xC1"), "disconnect A malformed frame"},
        {"bad UTF-8", joinedThenSend(frame("42/chat,[\"\xff\"]")), "disconnect A malformed frame"},
        {"bad UTF-8 in fragments",
         joinedThenSend(frame("42/chat,[\"\xc3", 0x01) + frame("\"]", 0x80)),
         "disconnect A malformed frame"},
        {"oversize",
         joinedThenSend(frame(std::string(2000, 'x'))),
         "disconnect The server sent a message that is too long.",
         {{"maxMessageSize", 1000}}},
        {"oversize, once it is inflated",
         acceptingWith("Sec-WebSocket-Extensions: permessage-deflate\r\n",
                       frame(deflated(std::string(100'000, 'x')), 0xC1)),
         "error The server sent a message that is too long.",
         {{"maxMessageSize", 1000}, {"compress", true}}},
        {"an announced exabyte",
         joinedThenSend(std::string("\x81\x7f\x0f\xff\xff\xff\xff\xff\xff\xff", 10)),
         "disconnect The server sent a message that is too long."},
        {"fragments without end",
         joinedThenSend(frame("", 0x01) + repeated(frame("", 0x00), 40'000)),
         "disconnect The server sent a message that is too long.",
         {{"maxMessageSize", 1000}}},
        {"zero for a ping interval",
         openingWith(R"(0{"sid":"s","pingInterval":0,"pingTimeout":20})"),
         "error The server's open packet is invalid."},
        {"a huge ping timeout", openingWith(R"(0{"sid":"s","pingInterval":1,"pingTimeout":1e300})"),
         "error The server's open packet is invalid."},
        {"deep JSON", joinedThenSend(frame("42/chat,[\"message\"," + repeated("[", 100'000))),
         "disconnect"},
        {"a count that lies",
         joinedThenSend(frame("451-/chat,[\"message\"]") + frame("x", 0x82) + frame("x", 0x82)),
         "disconnect"},
        {"attachments never sent", joinedThenSend(frame(partial) + text), "disconnect"},
    };
    for (const auto& fault : faults) expectOutcome(fault, {{"forceWebsockets", true}});
}

TEST(WireFaults, HandshakesThatAreRefusedAreToldWithTheirStatus) {
    for (const int status : {200, 301, 302, 401, 403, 404, 429, 500, 503}) {
        const std::string line = std::to_string(status);
        const auto answer =
            answeringWith(ScriptedServer::text(status, "no", "Location: http://127.0.0.1:1/\r\n"));
        expectOutcome(
            {line.c_str(), answer, "error The WebSocket handshake was answered with " + line + "."},
            {{"forceWebsockets", true}});
        expectOutcome({line.c_str(), answer,
                       status == 200 ? "error" : "error The server answered " + line + "."},
                      {{"forcePolling", true}});
    }
}

TEST(WireFaults, EveryCloseCodeEndsTheConnectionInEveryPhase) {
    std::vector<int> codes{0, 999, 1016, 2999, 3000, 3999, 4000, 4999, 5000, 65535};
    for (int code = 1000; code <= 1015; ++code) codes.push_back(code);
    std::vector<std::pair<std::string, bool>> frames{
        // and whether a server may send it
        {frame("", 0x88), true},
        {closeFrame(1000, "reason"), true},
        {frame("x", 0x88), false},
        {closeFrame(1000, "\xff\xfe"), false},
        {closeFrame(1000, std::string(200, 'x')), false},
        {frame("\x03\xe8", 0x08), false},
    };
    for (const int code : codes) {
        // RFC 6455, section 7.4: some codes are never sent, some are not assigned yet.
        const bool isRegistered = (code >= 1000 && code <= 1003) || (code >= 1007 && code <= 1014);
        const bool mayBeSent = isRegistered || (code >= 3000 && code <= 4999);
        frames.emplace_back(closeFrame(code), mayBeSent);
    }
    for (const auto& [bytes, mayBeSent] : frames) {
        const std::string name =
            "close of " + std::to_string(static_cast<unsigned char>(bytes[2 % bytes.size()]) * 256 +
                                         static_cast<unsigned char>(bytes[3 % bytes.size()]));
        const std::string heard =
            mayBeSent ? "disconnect transport close" : "disconnect A malformed frame";
        const std::string begun = LivePeer::frame(LivePeer::Text, "42/chat,[\"mess", 0x01);
        const WireFault faults[] = {
            {name.c_str(),
             [bytes](Connection& c) {
                 LivePeer(c).acceptWebSocket({}, bytes) && (c.waitForClose(), true);
             },
             mayBeSent ? "error The connection was lost: closed by the server"
                       : "error A malformed frame"},
            {name.c_str(), joinedThenSend(bytes), heard},
            {name.c_str(), joinedThenSend(begun + bytes), heard},
        };
        for (const auto& fault : faults) expectOutcome(fault, {{"forceWebsockets", true}});
    }
}

TEST(WireFaults, DoNotDisturbWhatIsOnlyUnusual) {
    const std::string open = frame(LivePeer::kOpenPacket);
    const WireFault faults[] = {
        {"trickle",
         [&](Connection& c) {
             LivePeer peer(c);
             peer.acceptWebSocket();
             for (const char byte : open) c.write({&byte, 1});
             peer.readText();
             for (const char byte : frame(R"(40/chat,{"sid":"x"})")) c.write({&byte, 1});
             c.waitForClose();
         },
         "connect"},
        {"much behind the answer to the handshake, at once",
         [&](Connection& c) {
             LivePeer peer(c);
             peer.acceptWebSocket({}, open + repeated(frame("6"), 60'000));
             peer.readText();
             peer.sendText(R"(40/chat,{"sid":"x"})");
             peer.waitForClose();
         },
         "connect"},
        {"a subprotocol that was asked for",
         acceptingWith("Sec-WebSocket-Protocol: b\r\n"),
         "connect",
         {{"extraHeaders", Dictionary{{"Sec-WebSocket-Protocol", "a, b"}}}}},
        {"fragments with pings between them",
         joinedThenSend(frame("42/chat,[\"mes", 0x01) + frame("hello", 0x89) +
                        frame("sage\",\"\xc3", 0x00) + frame("\xa9\"]", 0x80)),
         "message é"},
        {"a storm of pongs that nobody asked for",
         joinedThenSend(frame("", 0x89) + repeated(frame("x", 0x8A), 10'000) +
                        repeated(frame("3"), 10'000) + frame("42/chat,[\"message\",1]")),
         "message 1"},
        {"a big message in small reads",
         joinedThenSend(frame("42/chat,[\"message\",\"" + std::string(3'000'000, 'y') + "\"]")),
         "message yyy"},
    };
    for (const auto& fault : faults) expectOutcome(fault, {{"forceWebsockets", true}});
}

TEST(WireFaults, AnswerAPingAtOnce) {
    const std::pair<std::string, std::string> around[] = {
        {"", "42/chat,[\"message\",1]"},  // while nothing else comes
        {"42/chat,[\"mess", "age\",1]"},  // between the fragments of a message
    };
    for (const auto& [before, behind] : around) {
        std::string answered;
        ScriptedServer server(joinedThen([&](Connection& connection) {
            LivePeer peer(connection, std::nullopt);
            if (!before.empty()) connection.write(frame(before, 0x01));
            connection.write(frame("are you there", 0x89));
            const auto pong = peer.readFrame();
            answered = pong && pong->opcode == LivePeer::Pong ? pong->payload : "nothing";
            connection.write(frame(behind, before.empty() ? 0x81 : 0x80));
            connection.waitForClose();
        }));
        const auto client = makeClient(server.url());
        Recorder heard(*client);
        client->connect();
        EXPECT_TRUE(heard.waitFor("message 1"));
        EXPECT_EQ(answered, "are you there");
    }
}

}  // namespace
}  // namespace vexim::testing
