// The answers that an application asks servers for: each comes once, or an error in its place.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "VexIMLib/SocketIOClient.h"
#include "VexIMLib/Testing/ManualClock.h"
#include "socketio/Peers.h"
#include "socketio/Recorder.h"
#include "support/Completions.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

TEST(SocketIOClient, CompletesEachAcknowledgementOnce) {
    ScriptedServer server(joined([](LivePeer& peer) {
        while (const auto message = peer.readText()) {
            if (message->starts_with("42/chat,0")) {
                peer.sendText("43/chat,0[1]");
                peer.sendText("43/chat,0[2]");   // twice
                peer.sendText("43/chat,77[3]");  // never asked for
            }
            if (message->starts_with("42/chat,3")) return;
        }
    }));
    const auto client = makeClient(server.url(), {{"reconnects", false}});
    Recorder heard(*client);
    std::vector<std::string> ends;
    const auto note = [&](const char* name) {
        return once([&ends, name](const Array& answer, const ErrorPtr& error) {
            ends.push_back(std::string(name) + (error ? " error " + std::to_string(error->code())
                                                      : " " + answer.description()));
        });
    };
    client->emitWithAck("a", {}, 0ms, note("early"));
    ASSERT_TRUE(heard.connect(*client));
    client->emitWithAck("a", {}, 0ms, note("answered"));
    ASSERT_TRUE(eventually([&] { return ends.size() == 2; }))
        << "before a deadline that a busy machine may pass first";
    client->emitWithAck("a", {}, 20ms, note("timed out"));
    ASSERT_TRUE(eventually([&] { return ends.size() == 3; }))
        << Value(Array::fromStrings(ends)).description() << heard.last();
    client->emitWithAck("a", {}, std::chrono::milliseconds::max(), note("lost"));
    client->emitWithAck("disconnect", {}, 0ms, note("reserved"));
    client->emitWithAck("cut", {}, 0ms, note("also lost"));
    ASSERT_TRUE(eventually([&] { return ends.size() == 6; }));
    EXPECT_EQ(ends, (Lines{"early error 1", "answered [1]", "timed out error 3", "reserved error 5",
                           "lost error 2", "also lost error 2"}));

    ASSERT_TRUE(heard.connect(*client));
    client->emitWithAck("a", {}, 60s, note("abandoned"));
    const_cast<std::shared_ptr<SocketIOClient>&>(client).reset();
    EXPECT_TRUE(eventually([&] { return ends.size() == 7; })) << "also when the client goes";
}

TEST(SocketIOClient, FailsEveryAcknowledgementAtItsOwnDeadline) {
    ManualClock clock;
    ScriptedServer server([](ScriptedServer::Connection& connection) {
        LivePeer peer(connection);
        if (peer.join()) peer.waitForClose();
    });
    const auto client = makeClient(server.url());
    Recorder heard(*client);
    ASSERT_TRUE(heard.connect(*client));
    const auto begin = clock.now();
    std::vector<std::chrono::nanoseconds> ends;
    for (int round = 0; round < 2; ++round) {
        for (const auto timeout : {4s, 2s, 6s}) {
            client->emitWithAck("ask", {}, timeout, once([&](const Array&, const ErrorPtr& error) {
                                    EXPECT_EQ(error->code(), SocketIOErrorAckTimedOut);
                                    ends.push_back(clock.now() - begin);
                                }));
        }
        ASSERT_TRUE(clock.runUntil(
            [&] { return ends.size() == static_cast<std::size_t>(3 * (round + 1)); }, 60s));
    }
    for (std::size_t i = 0; i < ends.size(); ++i) {
        const auto due = std::chrono::seconds(2 * (i + 1));  // 2, 4, 6 and 8, 10, 12
        EXPECT_GE(ends[i], due) << i;
        EXPECT_LT(ends[i], due + 2s) << i;
    }
}

}  // namespace
}  // namespace vexim::testing
