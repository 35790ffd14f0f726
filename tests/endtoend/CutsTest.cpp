// Ten thousand numbered messages through a client whose connection is cut two hundred times, at
// random and in every way.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "VexIMLib/SocketIOClient.h"
#include "endtoend/LiveWorld.h"

namespace vexim::testing {
namespace {

constexpr int kMessages = 10'000;
constexpr int kCuts = 200;
constexpr int kOnTheirWay = 20;  // sent, but not yet read by the server

/// Records the numbers that come over each connection, sends each back, and cuts the connection
/// after some of them.
class CuttingServer {
public:
    explicit CuttingServer(std::uint32_t seed)
        : random_(seed),
          server_([this](ScriptedServer::Connection& connection) { serve(connection); }) {}

    std::string url() const { return server_.url(); }
    int last() const { return last_; }
    std::vector<std::vector<int>> connections() const {
        const std::lock_guard lock(mutex_);
        return connections_;
    }

private:
    void serve(ScriptedServer::Connection& connection) {
        LivePeer peer(connection);
        if (!peer.join() || !peer.emit("login", R"({"success":true,"id":"u1"})")) return;
        std::size_t index = 0;
        int left = 0;
        int way = 0;
        {
            const std::lock_guard lock(mutex_);
            index = connections_.size();
            connections_.emplace_back();
            left = index < kCuts ? std::uniform_int_distribution(0, kMessages / kCuts)(random_)
                                 : kMessages;
            way = std::uniform_int_distribution(0, 4)(random_);
        }
        for (; left > 0; --left) {
            const auto text = peer.readText();
            if (!text) return;
            const auto body = text->find("\"number ");
            const int number = body == text->npos ? -1 : std::atoi(text->c_str() + body + 8);
            {
                const std::lock_guard lock(mutex_);
                connections_[index].push_back(number);
            }
            last_ = number;
            peer.emit("message",
                      R"({"content":{"media":0,"body":"number )" + std::to_string(number) +
                          R"("},"from":{"id":"u2","type":0},"to":{"id":"u1","type":0}})");
        }
        switch (way) {
            case 0: return;  // an orderly close, with unread data
            case 1: return connection.reset();
            case 2:
                peer.connection().write(LivePeer::frame(LivePeer::Close, ""));
                return peer.waitForClose();
            case 3:
                peer.connection().write(
                    LivePeer::frame(LivePeer::Text, "42/chat,[\"message\"").substr(0, 9));
                return;
            case 4: peer.sendText("1"); return connection.waitForClose();  // and the peer closes
        }
    }

    mutable std::mutex mutex_;
    std::mt19937 random_;
    std::vector<std::vector<int>> connections_;
    std::atomic<int> last_{-1};
    ScriptedServer server_;  // last: its connections use the rest
};

TEST(Cuts, LoseAtMostWhatWasOnItsWayAndRepeatNothing) {
    CuttingServer server(4);
    const auto ears = LiveClient::make(server.url(), {{"reconnects", true}});
    ears->login();
    const auto reconnected = [&] {
        // Skip the wait before an attempt; after a failed one there is another.
        return eventually([&] {
            if (ears->client->socketio()->status() == SocketIOStatusConnecting)
                ears->client->socketio()->networkDidChange();
            return ears->client->status() == VXIMClientStatusOpened &&
                   ears->client->socketio()->status() == SocketIOStatusConnected;
        });
    };
    ASSERT_TRUE(eventually([&] { return ears->client->socketio() != nullptr; }));
    ASSERT_TRUE(reconnected());

    int refusals = 0;
    int begun = 0;  // the first number of this connection
    int losses = 0;
    for (int number = 0; number < kMessages;) {
        const auto isDown = [&] {
            return ears->disconnects > losses ||
                   ears->client->socketio()->status() != SocketIOStatusConnected;
        };
        ASSERT_TRUE(eventually(
            [&] { return isDown() || number - std::max(server.last(), begun) <= kOnTheirWay; }));
        if (ears->disconnects > losses) begun = number;
        losses = ears->disconnects;
        const auto message = VXIMMessage::messageWithText("number " + std::to_string(number));
        ears->client->sendMessageToFriend(
            message, "u2", once([&](bool succeeded, const ErrorPtr& error) {
                if (succeeded) return;
                ++refusals;
                EXPECT_TRUE(error->is(VXIMErrorDomain, 1));
                EXPECT_EQ(error->localizedDescription(),
                          "Message cannot send when connection disconnected");
            }));
        const bool wasRefused = message->status() == VXIMMessageStatusFailed;
        MainQueue::shared().drain();
        if (wasRefused) {
            ASSERT_TRUE(reconnected());
        } else {
            ++number;
        }
    }
    ASSERT_TRUE(
        eventually([&] { return server.last() == kMessages - 1 && pendingCompletions() == 0; }));

    int next = 0;
    std::vector<int> arrived;
    const auto connections = server.connections();
    int cutsBefore = 0;  // since the last arrival
    for (const auto& numbers : connections) {
        for (const int& number : numbers) {
            EXPECT_GE(number, next) << "twice, or out of order";
            if (&number == &numbers.front()) {
                EXPECT_LE(number - next, cutsBefore * (kOnTheirWay + 1))
                    << "lost, but not just before a cut";
            } else {
                EXPECT_EQ(number, next) << "lost on a connection that lived";
            }
            next = number + 1;
            arrived.push_back(number);
        }
        cutsBefore = numbers.empty() ? cutsBefore + 1 : 1;
    }
    EXPECT_EQ(next, kMessages);
    EXPECT_EQ(connections.size(), kCuts + 1u);
    EXPECT_GT(refusals, kCuts / 2);
    EXPECT_GT(arrived.size(), kMessages / 2u);

    ASSERT_TRUE(eventually(
        [&] { return ears->received.back() == "number " + std::to_string(kMessages - 1); }));
    int lastHeard = -1;
    for (const auto& text : ears->received) {
        const int number = std::atoi(text.c_str() + 7);
        EXPECT_GT(number, lastHeard) << "heard twice, or out of order";
        lastHeard = number;
    }
}

}  // namespace
}  // namespace vexim::testing
