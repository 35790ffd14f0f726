// How events go between a connection and the application: handlers, order, the bounds of both
// queues, threads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/SocketIOClient.h"
#include "VexIMLib/VXIMMetrics.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"
#include "socketio/Peers.h"
#include "socketio/Recorder.h"
#include "support/LogCapture.h"
#include "support/Pass.h"
#include "support/PeakMemory.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

TEST(SocketIOClient, CallsNothingAfterRemoval) {
    ManualClock clock;
    ScriptedServer server(joined([](LivePeer& peer) {
        // they come together
        peer.connection().write(frame("42/chat,[\"message\",0]") +
                                frame("42/chat,[\"message\",1]") +
                                frame("42/chat,[\"message\",2]"));
        peer.waitForClose();
    }));
    auto client = makeClient(server.url());
    int first = 0;
    int second = 0;
    int third = 0;
    SocketIOClient::HandlerId secondId = 0;
    client->on("message", [&](const Array&, const AckEmitter&) {
        if (++first == 1) client->off(secondId);
    });
    secondId = client->on("message", [&](const Array&, const AckEmitter&) { ++second; });
    client->on("message", [&](const Array&, const AckEmitter&) {
        if (++third == 2) client->removeAllHandlers();
    });
    client->connect();
    ASSERT_TRUE(eventually([&] { return third == 2; }));
    pass(clock, 1s);
    EXPECT_EQ(first, 2);
    EXPECT_EQ(third, 2);
    EXPECT_EQ(second, 0);

    auto other = makeClient(server.url());
    int heard = 0;
    other->on("message", [&](const Array&, const AckEmitter&) {
        ++heard;
        other.reset();  // inside its own handler
    });
    other->connect();
    ASSERT_TRUE(eventually([&] { return heard > 0; }));
    pass(clock, 1s);
    EXPECT_EQ(heard, 1);
}

TEST(SocketIOClient, IsCountedWhereItsOptionsSay) {
    ScriptedServer server(echo);
    const auto metrics = VXIMMetrics::init();
    auto client = makeClient(server.url(), {{"metrics", metrics}});
    const auto total = [&](const char* name, const VXIMMetricLabels& labels = {}) {
        return metrics->total(std::string("vexim_") + name, labels).value_or(-1);
    };
    Recorder heard(*client);
    EXPECT_EQ(total("connections", {{"status", "disconnected"}}), 1);
    client->emit("say", {"too early"});
    ASSERT_TRUE(heard.connect(*client));
    EXPECT_EQ(total("connections", {{"status", "connected"}}), 1);

    std::promise<void> mayGoOn;  // the network thread, which holds the queue until then
    NetworkThread::shared().post([future = mayGoOn.get_future().share()] { future.wait(); });
    client->emit("say", {"hello"});
    EXPECT_EQ(total("send_queue_events"), 1);
    EXPECT_GE(total("send_queue_bytes"), 23);
    mayGoOn.set_value();
    ASSERT_TRUE(spinUntil([&] { return total("undelivered_events") == 1; }));
    EXPECT_GE(total("undelivered_bytes"), 27);
    ASSERT_TRUE(heard.waitFor("message hello"));
    EXPECT_TRUE(spinUntil([&] { return total("undelivered_bytes") == 0; }));
    EXPECT_EQ(total("undelivered_events"), 0);
    EXPECT_EQ(total("send_queue_events"), 0);
    EXPECT_EQ(total("send_queue_bytes"), 0);
    EXPECT_EQ(total("events_sent_total"), 1);
    EXPECT_EQ(total("events_sent_bytes_total"), 23) << R"(42/chat,["say","hello"])";
    EXPECT_EQ(total("events_received_total"), 1);
    EXPECT_EQ(total("events_received_bytes_total"), 26 + 19)
        << R"(2/chat,["message","hello"], and the join's answer 0/chat,{"sid":"s2"})";

    client->emit("cut", {});
    ASSERT_TRUE(heard.waitFor("disconnect"));
    client->networkDidChange();  // no wait for the next attempt
    ASSERT_TRUE(heard.waitFor("connect"));
    client->disconnect();
    ASSERT_TRUE(heard.waitFor("disconnect"));
    client.reset();
    EXPECT_TRUE(spinUntil([&] { return total("connections") == 0; }));

    const std::tuple<const char*, VXIMMetricLabels, double> counted[] = {
        {"connection_attempts_total", {{"kind", "first"}}, 1},
        {"connection_attempts_total", {{"kind", "reconnect"}}, 1},
        {"connections_joined_total", {{"kind", "reconnect"}}, 1},
        {"connections_ended_total", {{"cause", "connection lost"}}, 1},
        {"connections_ended_total", {{"cause", "asked"}}, 1},
        {"connections_ended_total", {}, 2},
        {"connect_duration_seconds", {}, 2},
        {"emits_refused_total", {{"reason", "not connected"}}, 1},
        {"emits_refused_total", {}, 1},
    };
    for (const auto& [name, labels, expected] : counted)
        EXPECT_EQ(total(name, labels), expected) << name;
}

TEST(SocketIOClient, KeepsTheRestInLineWhenAHandlerThrows) {
    ScriptedServer server(joined([](LivePeer& peer) {
        std::string frames;
        for (int i = 0; i < 4; ++i)
            frames += frame("42/chat,[\"message\"," + std::to_string(i) + "]");
        peer.connection().write(frames);
        peer.waitForClose();
    }));
    const auto client = makeClient(server.url());
    std::vector<std::int64_t> heard;
    client->on("message", [&](const Array& arguments, const AckEmitter&) {
        heard.push_back(arguments.get(0).longLongValue());
        if (heard.size() == 2) throw std::runtime_error("from the application");
    });
    client->connect();
    EXPECT_THROW((void)eventually([&] { return heard.size() == 4; }), std::runtime_error);
    EXPECT_TRUE(eventually([&] { return heard.size() == 4; }));
    EXPECT_EQ(heard, (std::vector<std::int64_t>{0, 1, 2, 3}));
}

TEST(SocketIOClient, KeepsTheOrderWhenAHandlerRunsTheQueue) {
    ScriptedServer server(joined([](LivePeer& peer) {
        peer.connection().write(frame("42/chat,[\"message\",0]") +
                                frame("42/chat,[\"message\",1]"));
        if (peer.readText()) peer.sendText("42/chat,[\"message\",2]");
        peer.waitForClose();
    }));
    const auto client = makeClient(server.url());
    std::vector<std::int64_t> heard;
    client->on("message", [&](const Array& arguments, const AckEmitter&) {
        heard.push_back(arguments.get(0).longLongValue());
        if (heard.size() > 1) return;
        client->emit("more", {});
        EXPECT_TRUE(eventually([&] { return heard.size() == 3; }));
    });
    client->connect();
    ASSERT_TRUE(eventually([&] { return heard.size() == 3; }));
    EXPECT_EQ(heard, (std::vector<std::int64_t>{0, 1, 2}));
}

TEST(SocketIOClient, HoldsNoLockWhileTheHostIsWoken) {
    ScriptedServer server(echo);
    const auto client = makeClient(server.url());
    Recorder heard(*client);
    MainQueue::shared().setWake([&] { (void)client->nsp(); });
    client->connect();
    const bool connected = heard.waitFor("connect");
    for (int i = 0; i < 100; ++i) client->emit("say", {i});
    const bool answered = heard.waitFor("message 99");
    MainQueue::shared().setWake(nullptr);
    EXPECT_TRUE(connected && answered);
}

TEST(SocketIOClient, BoundsTheComplaintsThatNobodyHears) {
    LogCapture log;
    const auto client = makeClient("http://127.0.0.1:1", {{"carrierPigeon", true}, {"log", 1}});
    Recorder heard(*client);
    for (int i = 0; i < 20'000; ++i) EXPECT_FALSE(client->emit("say", {}));
    MainQueue::shared().drain();
    EXPECT_EQ(heard.lines().size(), 10'000u);
    EXPECT_EQ(
        log.lines(),
        (Lines{"socket.io: ignored an unknown option \"carrierPigeon\"",
               "socket.io: ignored an option \"log\" with a value of the wrong type or range"}))
        << "said once";
}

TEST(SocketIOClient, BoundsWhatIsQueuedAndWhatServersTake) {
    ScriptedServer server([](ScriptedServer::Connection& connection) {
        LivePeer peer(connection);
        if (peer.join()) connection.pause(60s);  // and reads no more
    });
    const auto client = makeClient(server.url(), {{"maxQueuedBytes", 1 << 20}});
    Recorder heard(*client);
    ASSERT_TRUE(heard.connect(*client));
    EXPECT_FALSE(client->emit("say", {std::string(1'000'001, 'x')}));
    ASSERT_TRUE(heard.waitFor("error"));
    EXPECT_EQ(heard.last(), "error \"say\" was not sent: it is longer than the server accepts.");
    const std::string big(100'000, 'x');
    int taken = 0;
    while (taken < 1000 && client->emit("say", {big})) ++taken;
    EXPECT_LT(taken, 1000);
    ASSERT_TRUE(heard.waitFor("error \"say\" was not sent: the send queue is full."));
    const std::pair<Array, std::string> refusals[] = {
        {Array{"\xff"}, "5 a text in it is not valid UTF-8"},
        {Array{Dictionary{{"\xff", 1}}}, "5 a text in it is not valid UTF-8"},
        {Array{std::numeric_limits<double>::quiet_NaN()}, "5 its items are not JSON"},
        {Array{std::string(1'000'001, 'x')}, "4 it is longer than the server accepts"},
        {Array{Data(std::string(900'000, 'x')), Data(std::string(900'000, 'x'))},
         "4 it is longer than the whole send queue"},
    };
    for (const auto& [items, expected] : refusals) {
        const ErrorPtr refused = client->tryEmit("say", items);
        ASSERT_TRUE(refused) << expected;
        EXPECT_EQ(std::to_string(refused->code()) + " " +
                      refused->info(kLocalizedFailureReasonKey).description(),
                  expected);
        EXPECT_FALSE(refused->info("temporary").boolValue()) << expected;
    }
    ErrorPtr full;
    for (taken = 0; taken < 1000 && !full; ++taken) full = client->tryEmit("say", {big});
    ASSERT_TRUE(full);
    EXPECT_TRUE(full->info("temporary").boolValue());
    const auto begin = std::chrono::steady_clock::now();
    client->disconnect();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s)
        << "nobody waits for a peer that does not read";
}

TEST(SocketIOClient, ClosesWhenTheApplicationDoesNotKeepUp) {
    struct Row {
        const char* name;
        std::string packets;
        std::size_t least;  // lines that had come before
    };
    const Row rows[] = {
        {"long events", frame("42/chat,[\"message\",\"" + std::string(1 << 20, 'x') + "\"]"), 64},
        {"short events", repeated(frame("42/chat,[\"message\"]"), 10'000), 10'000},
        {"errors of the namespace", repeated(frame("44/chat,true"), 10'000), 10'000},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedServer server([&row](ScriptedServer::Connection& connection) {
            // With frequent pings: while the program is blocked, only what comes before a ping is
            // read.
            LivePeer peer(connection);
            if (!peer.open(R"(0{"sid":"s1","upgrades":[],"pingInterval":1,"pingTimeout":8000})") ||
                !peer.readText())
                return;
            if (!peer.sendText(R"(40/chat,{"sid":"s2"})")) return;
            const std::string packets = row.packets + frame("2");
            while (connection.write(packets)) {
            }
        });
        const auto client = makeClient(server.url(), {{"reconnects", false}});
        Recorder heard(*client);
        const PeakMemory peak;
        client->connect();
        // The main queue does not run, so check the status.
        ASSERT_TRUE(
            spinUntil([&] { return client->status() == SocketIOStatusDisconnected; }, 120s));
        EXPECT_LT(peak.grownMiB(), 256) << "what events take beside their text counts, too";
        ASSERT_TRUE(heard.waitFor("disconnect The application is too slow"));
        EXPECT_EQ(heard.lines()[heard.lines().size() - 2].substr(0, 33),
                  "error The application is too slow");
        EXPECT_GE(heard.lines().size(), row.least) << "what had come before is delivered";
        EXPECT_LT(heard.lines().size(), 300'000u) << "each counts a quarter of a KiB at least";
    }
}

TEST(SocketIOClient, CanBeUsedFromEveryThreadInEveryState) {
    ScriptedServer server(echo);
    for (int round = 0; round < 20; ++round) {
        auto client = makeClient(server.url());
        std::atomic<int> heard{0};
        client->on("message", [&](const Array&, const AckEmitter&) { ++heard; });
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([client, t] {
                for (int i = 0; i < 20; ++i) {
                    switch ((i * 7 + t) % 6) {
                        case 0: client->connect(); break;
                        case 1: client->emit("say", {i}); break;
                        case 2: client->emitWithAck("say", {i}, 1ms, nullptr); break;
                        case 3: client->networkDidChange(); break;
                        case 4:
                            client->off(
                                client->on("message", [](const Array&, const AckEmitter&) {}));
                            break;
                        case 5:
                            if (i % 4 == 0) client->disconnect();
                            break;
                    }
                }
            });
        }
        client.reset();
        MainQueue::shared().drain();
        for (auto& thread : threads) thread.join();
    }
    EXPECT_FALSE(eventually([] { return false; }, 20ms));
}

}  // namespace
}  // namespace vexim::testing
