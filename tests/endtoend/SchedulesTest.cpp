// Ten thousand random runs of an application: no completion runs twice, none is forgotten, and no
// object leaks.
//
//   VEXIM_SCHEDULE_SEED=n    runs only this seed
//   VEXIM_SCHEDULES=n        runs this many seeds

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "VexIMLib/VXIMSettings.h"
#include "client/FakeSocket.h"
#include "endtoend/ScheduleWorld.h"
#include "endtoend/Turning.h"
#include "support/LivePeer.h"
#include "support/LogCapture.h"
#include "support/ScriptedServer.h"

namespace vexim::testing {
namespace {

constexpr const char* kMessage =
    R"({"content":{"media":0,"body":"hi"},"from":{"id":"u2","type":0},"to":{"id":"u1","type":0}})";

std::uint32_t numberFrom(const char* variable, std::uint32_t otherwise) {
    const char* text = std::getenv(variable);
    return text ? static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10)) : otherwise;
}

class Schedules : public ::testing::Test {
protected:
    Schedules() {
        setKeepsFinishedDelegates(false);
        std::ofstream(folder / ScheduleWorld::kPicture) << "bytes of a picture";
    }
    ~Schedules() override { vxim_configuration = nullptr; }

    static void serveFrom(const ScriptedServer& server) {
        auto configuration = VXIMClientConfiguration::defaultConfiguration();
        configuration->setAppId("app");
        configuration->setClientKey("key");
        configuration->setInstallationId("install");
        configuration->setSocketURL(URL::parse(server.url("")));
        vxim_configuration = configuration;
    }

    /// Runs one seed to its end. Returns false if no further seed needs to run.
    bool live(std::uint32_t seed, VXIMClient::Impl::SocketFactory makeSocket,
              ScheduleWorld::ServerAct server) {
        SCOPED_TRACE("VEXIM_SCHEDULE_SEED=" + std::to_string(seed));
        const auto world = std::make_shared<ScheduleWorld>(
            seed, clock, folder, std::move(makeSocket), std::move(server));
        world->live(10 + static_cast<int>(seed % 50));
        EXPECT_TRUE(eventuallyTurning(clock, [] { return pendingCompletions() == 0; }))
            << "never called: " << describePendingCompletions();
        EXPECT_TRUE(eventuallyTurning(clock, [&] { return world->leftovers().empty(); }))
            << "left behind: " << world->leftovers();
        EXPECT_LE(folder.count(), 2u) << "a temporary file is left behind";
        return !HasFailure();
    }

    template <class Live>
    void forEachSeed(std::uint32_t count, const Live& liveWith) {
        if (std::getenv("VEXIM_SCHEDULE_SEED")) {
            liveWith(numberFrom("VEXIM_SCHEDULE_SEED", 0));
            return;
        }
        const std::uint32_t end = numberFrom("VEXIM_SCHEDULES", count);
        for (std::uint32_t seed = 1; seed <= end; ++seed) {
            if (!liveWith(seed)) return;
        }
    }

    ManualClock clock;
    const TemporaryFolder folder;
    LogCapture log;  // drops the many warnings about messages without a receiver
};

/// The service's side of fake connections.
void play(std::mt19937& chance, const std::vector<std::weak_ptr<FakeSocket>>& sockets) {
    const auto socket = sockets.empty() ? nullptr : sockets[chance() % sockets.size()].lock();
    if (!socket) return;
    const bool isConnected = socket->status() == SocketIOStatusConnected;
    switch (chance() % 10) {
        case 0:
        case 1:
            if (socket->status() == SocketIOStatusConnecting) socket->accept();
            break;
        case 2: socket->send("login", {Dictionary{{"success", true}, {"id", "u1"}}}); break;
        case 3: socket->send("login", {Dictionary{{"success", false}, {"error", 5}}}); break;
        case 4:
            socket->send(chance() % 2 ? "message" : "yourself", {parseJSON(kMessage).value});
            break;
        case 5: socket->send("sys", {parseJSON(kMessage).value}); break;
        case 6:
            socket->send(chance() % 2 ? "online" : "offline",
                         {"u" + std::to_string(chance() % 10)});
            break;
        case 7: socket->send("error", {"trouble"}); break;
        case 8:
            if (isConnected) socket->drop();
            break;
        default:
            if (socket->status() == SocketIOStatusDisconnected) socket->attemptReconnect();
    }
}

TEST_F(Schedules, OverFakeConnections) {
    std::unique_ptr<ScriptedServer> server;
    forEachSeed(10'000, [&](std::uint32_t seed) {
        // a new server now and then, because each connection keeps a thread until its server ends
        if (!server || seed % 200 == 0) {
            server = std::make_unique<ScriptedServer>([](ScriptedServer::Connection& connection) {
                auto request = connection.readRequest();
                while (request && ScheduleWorld::answer(connection, *request))
                    request = connection.readRequest();
            });
            serveFrom(*server);
        }
        std::vector<std::weak_ptr<FakeSocket>> sockets;
        const auto makeSocket = [&](const std::optional<URL>& url, const Dictionary& options) {
            auto socket = vexim::create<FakeSocket>(url, options);
            sockets.push_back(socket);
            return socket;
        };
        return live(seed, makeSocket, [&](std::mt19937& chance) { play(chance, sockets); });
    });
}

/// One live connection of a server that behaves at random.
void playLive(LivePeer& peer, std::uint32_t seed) {
    std::mt19937 chance(seed);
    if (chance() % 8 == 0) return;
    if (chance() % 8 == 0) return peer.connection().waitForClose();
    if (!peer.join()) return;
    for (auto events = chance() % 40; events > 0; --events) {
        switch (chance() % 6) {
            case 0: peer.emit("login", R"({"success":true,"id":"u1"})"); break;
            case 1: peer.emit("sys", kMessage); break;
            case 2: peer.emit("online", "\"u2\""); break;
            case 3: peer.emit("login", R"({"success":false,"error":{"errorCode":7}})"); break;
            default: peer.emit("message", kMessage);
        }
    }
    switch (chance() % 4) {
        case 0: return;
        case 1: return peer.connection().reset();
        case 2: return static_cast<void>(peer.sendText("41" + peer.nsp() + ","));
        default: peer.waitForClose();
    }
}

TEST_F(Schedules, OverRealConnections) {
    std::unique_ptr<ScriptedServer> server;
    forEachSeed(300, [&](std::uint32_t seed) {
        if (!server || seed % 50 == 0) {
            server =
                std::make_unique<ScriptedServer>([seed](ScriptedServer::Connection& connection) {
                    while (const auto request = connection.readRequest()) {
                        if (!request->header("Upgrade").empty()) {
                            LivePeer peer(connection, request);
                            return playLive(peer,
                                            seed + static_cast<std::uint32_t>(connection.index()));
                        }
                        if (!ScheduleWorld::answer(connection, *request)) return;
                    }
                });
            serveFrom(*server);
        }
        return live(seed, &SocketIOClient::create, [](std::mt19937&) {});
    });
}

}  // namespace
}  // namespace vexim::testing
