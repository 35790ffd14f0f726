// The client over thousands of connections: nothing leaks, and nothing comes twice or out of order.
// VEXIM_INTEROP_ALL=1 runs it at full length.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/SocketIOClient.h"
#include "interop/NodeServer.h"
#include "support/Completions.h"
#include "support/Eventually.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;  // sanitizers keep freed memory
#else
constexpr bool kIsSanitized = false;
#endif

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;

bool isFullLength() { return std::getenv("VEXIM_INTEROP_ALL") != nullptr; }

long entriesOf(const char* folder) {
    return static_cast<long>(std::distance(std::filesystem::directory_iterator(folder),
                                           std::filesystem::directory_iterator{}));
}

long residentKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) return std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return 0;
}

std::shared_ptr<SocketIOClient> makeClient(const NodeServer& server, const char* transport) {
    auto client = SocketIOClient::create(URL::parse(server.url()), {{transport, true}});
    client->joinNamespace("/chat");
    return client;
}

TEST(SocketIOSoak, CyclesOfConnectingAndDroppingLeaveNothingBehind) {
    NodeServer server({{"version", "4.8"}});
    const int cycles = isFullLength() ? 10'000 : 200;
    long files = 0;
    long threads = 0;
    long resident = 0;
    for (int cycle = 0; cycle < cycles; ++cycle) {
        auto client = makeClient(server, cycle % 50 == 49 ? "forcePolling" : "forceWebsockets");
        bool gone = false;
        client->on("disconnect", [&](const Array&, const AckEmitter&) { gone = true; });
        client->connect();
        if (cycle % 10 != 9) {  // the others are dropped while they connect
            ASSERT_TRUE(eventually([&] { return client->status() == SocketIOStatusConnected; }))
                << cycle;
        }
        if (cycle % 3 == 0) {
            client->disconnect();
            ASSERT_TRUE(eventually([&] { return gone; })) << cycle;
        }
        client.reset();
        if (cycle == cycles / 10) {
            // Closing takes up to a second.
            (void)eventually([] { return false; }, 1500ms);
            files = entriesOf("/proc/self/fd");
            threads = entriesOf("/proc/self/task");
            resident = residentKiB();
        }
    }
    // Polling keeps some connections to the server open for later requests; their number changes.
    EXPECT_TRUE(eventually([&] { return entriesOf("/proc/self/fd") <= files + 4; }))
        << entriesOf("/proc/self/fd") << " of " << files;
    EXPECT_LE(entriesOf("/proc/self/task"), threads);
    if (isFullLength() && !kIsSanitized) {
        EXPECT_LE(residentKiB(), resident + 1024);
    }
}

TEST(SocketIOSoak, AHundredPollingClientsShareOneProcess) {
    NodeServer server({{"version", "4.8"}});
    std::vector<std::shared_ptr<SocketIOClient>> clients;
    int heard = 0;
    for (int i = 0; i < 100; ++i) {
        clients.push_back(makeClient(server, "forcePolling"));
        clients.back()->on("message", [&heard, i](const Array& arguments, const AckEmitter&) {
            heard += arguments.get(0) == Value(i);
        });
        clients.back()->connect();
    }
    const auto areConnected = [&] {
        return std::ranges::all_of(clients, [](const auto& client) {
            return client->status() == SocketIOStatusConnected;
        });
    };
    ASSERT_TRUE(eventually(areConnected))
        << "each holds a GET open, for as long as it is connected";
    for (int i = 0; i < 100; ++i) clients[static_cast<std::size_t>(i)]->emit("say", {i});
    EXPECT_TRUE(eventually([&] { return heard == 100; })) << heard;
}

TEST(SocketIOSoak, CutsLoseButNeverRepeatOrReorder) {
    for (const char* transport : {"forceWebsockets", "forcePolling"}) {
        SCOPED_TRACE(transport);
        NodeServer server({{"version", "4.8"}});
        const int messages = isFullLength() ? 10'000 : 1000;
        const int cuts = isFullLength() ? 200 : 20;
        std::mt19937 random(11);
        std::uniform_int_distribution<int> gap(1, 2 * messages / cuts - 1);

        const auto client = makeClient(server, transport);
        std::int64_t lastHeard = -1;
        bool isOrdered = true;
        client->on("message", [&](const Array& arguments, const AckEmitter&) {
            const std::int64_t n = arguments.get(0).longLongValue();
            isOrdered = isOrdered && n > lastHeard;
            lastHeard = n;
        });
        int losses = 0;
        client->on("disconnect", [&](const Array&, const AckEmitter&) {
            ++losses;
            client->networkDidChange();  // otherwise it would wait
        });
        client->on("error", [&](const Array&, const AckEmitter&) { client->networkDidChange(); });
        client->connect();

        std::vector<std::int64_t> answered;
        int lost = 0;
        int cutsDone = 0;
        int nextCut = gap(random);
        for (int n = 0; n < messages; ++n) {
            ASSERT_TRUE(eventually([&] { return client->status() == SocketIOStatusConnected; }));
            client->emitWithAck("count", {n}, 30s,
                                once([&, n](const Array& answer, const ErrorPtr& error) {
                                    if (error) {
                                        ++lost;
                                    } else {
                                        answered.push_back(n);
                                        EXPECT_EQ(answer, Array{n});
                                    }
                                }));
            if (n >= nextCut) {
                // Cut while data is on its way in both directions.
                server.command({{"cut", true}});
                ++cutsDone;
                ASSERT_FALSE(server.nextLine().isNil());
                // A cut between two requests does not matter to polling: then everything is
                // answered.
                const bool mustLose = std::string(transport) == "forceWebsockets";
                ASSERT_TRUE(eventually([&] {
                    return mustLose ? losses == cutsDone
                                    : static_cast<int>(answered.size()) + lost == n + 1;
                }));
                nextCut = n + gap(random);
            }
            if (n % 7 == 0) MainQueue::shared().drain();
        }
        ASSERT_TRUE(
            eventually([&] { return static_cast<int>(answered.size()) + lost == messages; }));
        EXPECT_GT(cutsDone, cuts / 2);
        EXPECT_GT(losses, cuts / 5);
        EXPECT_TRUE(isOrdered) << "a message came twice or late";

        Array counted;
        // The last cut may be noticed late.
        for (int attempt = 0; attempt < 3 && counted.empty(); ++attempt) {
            ASSERT_TRUE(eventually([&] { return client->status() == SocketIOStatusConnected; }));
            bool done = false;
            client->emitWithAck("counted", {}, 30s,
                                once([&](const Array& answer, const ErrorPtr& error) {
                                    if (!error) counted = *answer.get(0).asArray();
                                    done = true;
                                }));
            ASSERT_TRUE(eventually([&] { return done; }));
        }
        ASSERT_FALSE(counted.empty());
        std::int64_t last = -1;
        std::size_t matched = 0;
        for (const Value& n : counted) {
            EXPECT_GT(n.longLongValue(), last) << "the server got it twice or late";
            last = n.longLongValue();
            if (matched < answered.size() && answered[matched] == last) ++matched;
        }
        EXPECT_EQ(matched, answered.size()) << "answered, but never counted";
    }
}

}  // namespace
}  // namespace vexim::testing
