// What peers can make the client hold in memory: little, whatever they send or leave unread.

#include <gtest/gtest.h>

#include <string>

#include "VexIMLib/internal/SocketIO/Transports/OutgoingBytes.h"
#include "socketio/WireFault.h"
#include "support/PeakMemory.h"

namespace vexim::testing {
namespace {

TEST(OutgoingBytes, KeepNothingOfWhatASlowPeerHasRead) {
    // The peer always leaves some bytes unread, so there is always something to send.
    OutgoingBytes bytes;
    const PeakMemory peak;
    for (int round = 0; round < 200; ++round) {
        std::string more(std::size_t{1} << 19, static_cast<char>('a' + round % 26));
        bytes.take(more);
        bytes.didSend(bytes.rest().size() - 100);
        EXPECT_EQ(bytes.rest(), std::string(100, static_cast<char>('a' + round % 26)));
    }
    EXPECT_LT(peak.grownMiB(), 16) << "100 MiB have gone";
}

TEST(WireFaults, BoundThePongsThatAPeerDoesNotRead) {
    for (const auto& ping : {frame("", 0x89), frame(std::string(125, 'p'), 0x89), frame("2")}) {
        const std::string many = repeated(ping, 1000);
        const PeakMemory peak;
        expectOutcome({"endless pings", joinedThen([&](Connection& connection) {
                           while (connection.write(many)) continue;
                       }),
                       "disconnect The server has stopped reading."},
                      {{"forceWebsockets", true}});
        EXPECT_LT(peak.grownMiB(), 32) << ping.substr(0, 8);
    }
    // A long message that is being sent does not count as pongs.
    const std::string message(20'000'000, 'x');
    ScriptedServer server([&](Connection& connection) {
        LivePeer peer(connection);
        if (!peer.open(
                R"(0{"sid":"s","pingInterval":25000,"pingTimeout":20000,"maxPayload":100000000})") ||
            !peer.readText())
            return;
        peer.sendText(R"(40/chat,{"sid":"x"})");
        std::size_t read = connection.readSome().size();
        for (int i = 0; i < 100; ++i) connection.write(frame("2"));
        while (read < message.size()) read += connection.readSome().size();
        connection.write(frame(R"(42/chat,["message",1])"));
        connection.waitForClose();
    });
    const auto client = makeClient(server.url());
    Recorder heard(*client);
    ASSERT_TRUE(heard.connect(*client));
    client->emit("say", {message});
    EXPECT_TRUE(heard.waitFor("message 1")) << heard.last();
}

TEST(WireFaults, KeepLittleOfAnAnswerWithoutEnd) {
    struct Row {
        const char* name;
        std::string head;   // behind the status
        std::string piece;  // repeated without end
        const char* heardOverPolling;
    };
    const std::string some(64 * 1024, 'x');
    const std::string chunked = "Transfer-Encoding: chunked\r\n\r\n";
    constexpr const char* kTooLong = "error The server's answer is too long.";
    const Row rows[] = {
        {"a body", "\r\n", some, kTooLong},
        {"a body of a terabyte", "Content-Length: 1099511627776\r\n\r\n", some, kTooLong},
        {"chunks", chunked, "10000\r\n" + some + "\r\n", kTooLong},
        {"a chunk's extension", chunked + "1;", some, "error The server did not answer in time."},
        {"trailers", chunked + "0\r\n", "A: " + std::string(1000, 'x') + "\r\n", kTooLong},
        {"headers", "", "A: " + std::string(1000, 'x') + "\r\n", kTooLong},
        {"one header", "A: ", some, "error"},
        {"interim answers", "\r\n", "HTTP/1.1 100 Continue\r\n\r\n", nullptr},
    };
    constexpr int kMost = PeakMemory::kIsSanitized ? 40 << 20 : 64 << 20;  // more than any limit
    for (const auto& row : rows) {
        for (const bool isPolling : {false, true}) {
            const auto endless = [&](Connection& connection) {
                connection.readRequest();
                const int status = row.heardOverPolling == nullptr ? 100 : isPolling ? 200 : 403;
                connection.write("HTTP/1.1 " + std::to_string(status) + " X\r\n" + row.head);
                for (std::size_t sent = 0; sent < kMost && connection.write(row.piece);
                     sent += row.piece.size())
                    continue;
                connection.waitForClose();
            };
            const std::string name = std::string(row.name) + (isPolling ? " over polling" : "");
            const std::string heard =
                isPolling && row.heardOverPolling ? row.heardOverPolling : "error";
            const PeakMemory peak;
            // only what ends by itself has the time of a slow machine
            expectOutcome({name.c_str(), endless, heard},
                          {{isPolling ? "forcePolling" : "forceWebsockets", true},
                           {"connectTimeout", heard == kTooLong ? 60 : 1}});
            EXPECT_LT(peak.grownMiB(), 32) << name;
        }
    }
}

}  // namespace
}  // namespace vexim::testing
