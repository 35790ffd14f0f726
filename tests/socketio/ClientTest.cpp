// The client's contract with applications, over real sockets: connections, their ends and
// reconnects.
#include "VexIMLib/SocketIOClient.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "VexIMLib/Testing/ManualClock.h"
#include "VexIMLib/internal/Platform/Facts/EventRecord.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"
#include "VexIMLib/internal/SocketIO/Client/RecordedClient.h"
#include "socketio/Peers.h"
#include "socketio/Recorder.h"
#include "support/Pass.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

std::set<int> openDescriptors() {
    std::set<int> all;
    for (int each = 0; each < 1024; ++each)
        if (::fcntl(each, F_GETFD) != -1) all.insert(each);
    return all;
}

std::shared_ptr<SocketIOClient> makeRecordedClient(const std::string& url,
                                                   const std::shared_ptr<EventRecord>& record,
                                                   const char* transport = "websocket") {
    auto client = makeSocketIOClient(URL::parse(url), {{"transports", Array{transport}}}, record);
    client->joinNamespace("/chat");
    return client;
}

TEST(SocketIOClient, GivesAnErrorAloneWhenTheFirstConnectFails) {
    ManualClock clock;
    for (const auto& url : {"http://127.0.0.1:" + std::to_string(deadPort()),
                            std::string("ftp://127.0.0.1"), std::string("http:///x")}) {
        SCOPED_TRACE(url);
        const auto client = makeClient(url);
        EXPECT_EQ(client->status(), SocketIOStatusNotConnected);
        Recorder heard(*client);
        client->connect();
        ASSERT_TRUE(heard.waitFor("error"));
        EXPECT_EQ(client->status(), SocketIOStatusDisconnected);
        pass(clock, 60s);
        EXPECT_EQ(heard.lines().size(), 1u) << heard.last();
    }
    const auto none = SocketIOClient::create(std::nullopt, {});
    Recorder heard(*none);
    none->connect();
    EXPECT_TRUE(heard.waitFor("error"));
}

TEST(SocketIOClient, ReachesAServerThatAcceptsLate) {
    // Usually a connection to this machine is complete at once. This server's queue is full, so the
    // system answers only when the client asks again, after a second.
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const bare = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof address;
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval patience{60, 0};
    ::setsockopt(listener, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ASSERT_EQ(::bind(listener, bare, length), 0);
    ASSERT_EQ(::listen(listener, 0), 0);
    ASSERT_EQ(::getsockname(listener, bare, &length), 0);
    const int first = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::connect(first, bare, length), 0);

    const auto client = makeClient("http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)),
                                   {{"reconnects", false}, {"connectTimeout", 60}});
    Recorder heard(*client);
    const auto before = openDescriptors();
    client->connect();
    for (int step = 0; step < 3; ++step) {  // the start, the lookup's answer, and what it queued
        std::promise<void> done;
        NetworkThread::shared().post([&] { done.set_value(); });
        done.get_future().wait();
    }
    for (const int descriptor : openDescriptors()) {
        const bool isNew = before.count(descriptor) == 0;
        EXPECT_TRUE(!isNew || (::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0)
            << "a child would inherit it";
    }
    ::close(::accept(listener, nullptr, nullptr));
    const int late = ::accept(listener, nullptr, nullptr);
    char request[1024];
    EXPECT_GT(::recv(late, request, sizeof request, 0), 0);
    const std::string refusal = "HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\n\r\n";
    ::send(late, refusal.data(), refusal.size(), MSG_NOSIGNAL);
    EXPECT_TRUE(heard.waitFor("error The WebSocket handshake was answered with 403."));
    for (const int each : {listener, first, late}) ::close(each);
}

TEST(SocketIOClient, GivesOneDisconnectForEachThatWasAskedFor) {
    ScriptedServer server(echo);
    const auto client = makeClient(server.url(), {{"reconnects", false}});
    Recorder heard(*client);
    client->disconnect();
    MainQueue::shared().drain();
    EXPECT_EQ(heard.lines(), Lines{}) << "never asked to connect";

    ScriptedServer silent(
        [](ScriptedServer::Connection& connection) { connection.waitForClose(); });
    const auto connecting = makeClient(silent.url(), {{"reconnects", false}});
    heard.listen(*connecting);
    connecting->connect();
    connecting->disconnect();
    ASSERT_TRUE(heard.waitFor("disconnect"));
    EXPECT_EQ(heard.lines(), Lines{"disconnect io client disconnect"}) << "while connecting";

    ASSERT_TRUE(heard.connect(*client));
    EXPECT_EQ(client->status(), SocketIOStatusConnected);
    heard.clear();
    client->emit("cut", {});
    ASSERT_TRUE(heard.waitFor("disconnect"));
    client->disconnect();
    ASSERT_TRUE(eventually([&] { return heard.lines().size() == 2; }))
        << "the link is already down";
    client->disconnect();
    ASSERT_TRUE(eventually([&] { return heard.lines().size() == 3; }));
    EXPECT_TRUE(heard.connect(*client)) << "and it works again with the same handlers";
}

TEST(SocketIOClient, ReconnectsAfterALossAndSaysSo) {
    const ManualClock clock;  // no attempt comes by itself
    ScriptedServer server(echo);
    const auto client = makeClient(server.url());
    Recorder heard(*client);
    ASSERT_TRUE(heard.connect(*client));
    int attempt = 0;
    client->on("disconnect", [&](const Array&, const AckEmitter&) {
        EXPECT_FALSE(client->emit("say", {"nothing is queued for later"}));
        if (attempt == 0) client->connect();
    });
    // Calling connect while a connection is scheduled or being made gives exactly one connection.
    const std::function<void()> hurries[] = {
        [] {},  // the handler has done it
        [&] { client->networkDidChange(); },
        [&] { client->connect(); },
        [&] {
            for (int i = 0; i < 20; ++i)
                i % 2 == 0 ? client->connect() : client->networkDidChange();
        },
    };
    for (const auto& hurry : hurries) {
        heard.clear();
        client->emit("cut", {});
        ASSERT_TRUE(eventually([&] { return heard.lines().size() >= 2; }));
        hurry();
        ASSERT_TRUE(heard.waitFor("connect"));
        client->connect();
        client->emit("say", {"here"});
        ASSERT_TRUE(heard.waitFor("message here"));
        const Lines expected{"disconnect transport close",
                             "error \"say\" was not sent: the socket is not connected.",
                             "reconnect " + std::to_string(++attempt), "connect /chat",
                             "message here"};
        EXPECT_EQ(heard.lines(), expected);
    }
}

std::ptrdiff_t countOf(const EventRecord& record, std::string_view name) {
    const auto events = record.events();
    return std::ranges::count(events, name, [](const auto& event) { return event.name; });
}

TEST(SocketIOClient, LetsNoPeerPretendToBeTheConnection) {
    ScriptedServer server(joined([](LivePeer& peer) {
        for (int i = 0; i < 100; ++i) {
            peer.sendText(R"(42/chat,7["error","not mine"])");
            peer.sendText(R"(42/chat,["reconnect",1])");
        }
        peer.emit("message", "1");
        peer.waitForClose();
    }));
    const auto record = std::make_shared<EventRecord>();
    const auto client = makeRecordedClient(server.url(), record);
    Recorder heard(*client);
    for (int connection = 1; connection <= 2; ++connection) {
        heard.clear();
        client->connect();
        ASSERT_TRUE(heard.waitFor("message 1"));
        EXPECT_EQ(heard.lines(), (Lines{"connect /chat", "message 1"}));
        EXPECT_EQ(countOf(*record, "event dropped"), connection) << "once for each connection";
        client->disconnect();
        ASSERT_TRUE(heard.waitFor("disconnect"));
    }
}

TEST(SocketIOClient, BoundsItsAttemptsAndKeepsThemApart) {
    const ManualClock clock;
    std::atomic<bool> up{true};
    ScriptedServer server([&](ScriptedServer::Connection& connection) {
        if (up) echo(connection);
    });
    const auto client = makeClient(server.url(), {{"reconnectAttempts", 2}});
    Recorder heard(*client);
    ASSERT_TRUE(heard.connect(*client));
    up = false;
    client->emit("cut", {});
    ASSERT_TRUE(heard.waitFor("disconnect"));
    for (int attempt = 1; attempt <= 2; ++attempt) {
        EXPECT_EQ(client->status(), SocketIOStatusConnecting);
        heard.clear();
        client->networkDidChange();
        ASSERT_TRUE(heard.waitFor(attempt == 2 ? "disconnect" : "error"));
    }
    EXPECT_EQ(heard.lines().size(), 3u) << "reconnect, error, and that there will be no more";
    EXPECT_EQ(client->status(), SocketIOStatusDisconnected);
    client->networkDidChange();
    client->connect();
    ASSERT_TRUE(heard.waitFor("error"));
    EXPECT_EQ(heard.lines().size(), 4u) << "a connect of its own fails with an error alone";
}

TEST(SocketIOClient, TakesAServersRefusalForAnAnswer) {
    ManualClock clock;
    struct Row {
        const char* packet;
        Lines heard;
    };
    const Row rows[] = {
        {"41/chat,", {"connect /chat", "disconnect io server disconnect"}},
        {R"(44/chat,{"message":"not you"})", {"error The server refused the connection: not you."}},
    };
    for (const auto& row : rows) {
        ScriptedServer server([&](ScriptedServer::Connection& connection) {
            LivePeer peer(connection);
            const bool isRefusal = row.packet[1] == '4';
            if (isRefusal ? peer.open() && peer.readText() : peer.join()) peer.sendText(row.packet);
        });  // and the connection ends
        const auto record = std::make_shared<EventRecord>();
        const auto client = makeRecordedClient(server.url(), record);
        Recorder heard(*client);
        client->connect();
        ASSERT_TRUE(heard.waitFor(row.heard.back()));
        EXPECT_EQ(client->status(), SocketIOStatusDisconnected) << "it is not tried again";
        client->networkDidChange();
        pass(clock, 60s);
        EXPECT_FALSE(record->events().empty());
        for (const auto& event : record->events())
            EXPECT_EQ(event.description().find("not you"), std::string::npos)
                << "the server's words are not for the record";
        EXPECT_EQ(heard.lines(), row.heard);
        EXPECT_EQ(server.connectionCount(), 1);
    }
}

TEST(SocketIOClient, CountsAttemptsAnewAfterAStableConnectionAndObeysARefusal) {
    ManualClock clock;
    std::atomic<int> connections{0};
    ScriptedServer server([&](ScriptedServer::Connection& connection) {
        if (++connections < 4) return echo(connection);
        LivePeer peer(connection);
        if (peer.open() && peer.readText()) peer.sendText(R"(44/chat,{"message":"not you"})");
    });
    const auto client = makeClient(server.url(), {{"reconnectAttempts", 1}});
    Recorder heard(*client);
    client->connect();
    for (int connection = 1; connection < 4; ++connection) {
        const char* const end = connection < 3 ? "connect" : "disconnect reconnect failed";
        ASSERT_TRUE(heard.waitFor("connect"));
        clock.advance(10s);
        heard.clear();
        client->emit("cut", {});
        ASSERT_TRUE(clock.runUntil([&] { return heard.last().starts_with(end); }));
        Lines expected{"disconnect transport close", "reconnect 1", "connect /chat"};
        if (connection == 3) {
            expected.back() = "error The server refused the connection: not you.";
            expected.emplace_back(end);
        }
        EXPECT_EQ(heard.lines(), expected);
    }
    EXPECT_EQ(client->status(), SocketIOStatusDisconnected);
}

TEST(SocketIOClient, SaysGoodbyeOnlyWhenServersHaveReadTheLastEvent) {
    ScriptedServer server(echo);
    const auto record = std::make_shared<EventRecord>();
    const auto client = makeRecordedClient(server.url(), record);
    Recorder heard(*client);
    ASSERT_TRUE(heard.connect(*client));
    const auto began = std::chrono::steady_clock::now();
    client->emit("say", {"last"});
    client->disconnect();
    ASSERT_TRUE(eventuallyElsewhere([&] { return countOf(*record, "ended") == 1; }));
    EXPECT_GE(std::chrono::steady_clock::now() - began, 50ms) << "2.x servers forget it otherwise";
}

TEST(SocketIOClient, SaysGoodbyeBehindAPostThatIsStillOnItsWay) {
    const auto record = std::make_shared<EventRecord>();
    std::mutex mutex;
    std::string last;
    std::atomic<int> posts{0};
    ScriptedServer server(serveEitherTransport([&](const WireRequest& request) -> std::string {
        if (request.method != "POST" || request.body.starts_with("40")) return "";
        {
            const std::lock_guard lock(mutex);
            last = request.body;
        }
        if (++posts == 1) {
            EXPECT_TRUE(spinUntil([&] { return countOf(*record, "ended") == 1; }));
        }
        return ScriptedServer::text(200, "ok");
    }));
    const auto client = makeRecordedClient(server.url(), record, "polling");
    Recorder heard(*client);
    ASSERT_TRUE(heard.connect(*client));
    client->emit("say", {});
    ASSERT_TRUE(eventuallyElsewhere([&] { return posts == 1; }));
    client->disconnect();
    ASSERT_TRUE(eventuallyElsewhere([&] { return posts == 2; }));
    const std::lock_guard lock(mutex);
    EXPECT_TRUE(last.starts_with("41/chat,")) << last;
}

TEST(SocketIOClient, SaysGoodbyeBehindWhatWasEmittedBefore) {
    std::mutex mutex;
    std::vector<Lines> received;
    std::atomic<int> ended{0};
    ScriptedServer server(joined([&](LivePeer& peer) {
        Lines lines;
        while (const auto text = peer.readText()) lines.push_back(*text);
        const std::lock_guard lock(mutex);
        received.push_back(std::move(lines));
        ++ended;
    }));
    const auto client = makeClient(server.url());
    Recorder heard(*client);
    Lines expected;
    for (int i = 0; i < 100; ++i) expected.push_back("42/chat,[\"say\"," + std::to_string(i) + "]");
    expected.emplace_back("41/chat,");
    for (int connection = 1; connection <= 2; ++connection) {
        EXPECT_FALSE(client->tryEmit("too early", {}) == nullptr);
        ASSERT_TRUE(heard.connect(*client));
        for (int i = 0; i < 100; ++i) EXPECT_TRUE(client->emit("say", {i}));
        client->disconnect();
        EXPECT_FALSE(client->tryEmit("too late", {}) == nullptr);
        ASSERT_TRUE(eventuallyElsewhere([&] { return ended == connection; }));
    }
    const std::lock_guard lock(mutex);
    EXPECT_EQ(received, (std::vector<Lines>{expected, expected}));
}

}  // namespace
}  // namespace vexim::testing
