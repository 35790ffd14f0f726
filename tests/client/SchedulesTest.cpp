#include <cstdint>
#include <random>
#include <string>

#include "client/ClientFixture.h"

using namespace vexim::testing;
using vexim::Dictionary;

namespace {

/// Whatever the application and the service do, in whatever order: nothing crashes, no completion runs twice (`atMostOnce`
/// watches), and the state is one that the rules allow.
class Schedules : public ClientTest {
protected:
    static constexpr std::uint32_t kSteps = 15;

    std::uint32_t draw(std::uint32_t below) { return static_cast<std::uint32_t>(generator_() % below); }

    void step() {
        if (client == nullptr) return;
        switch (draw(16)) {
            case 0: return client->loginWithUserId("u1", completionThatMayAct());
            case 1: return client->loginWithUsername("joe", "secret", completionThatMayAct());
            case 2: return client->pause();
            case 3: return client->resume();
            case 4: return client->logoutWithCompletion(completionThatMayAct());
            case 5: return client->sendMessageToGroup(VXIMMessage::messageWithText("hi"), "g1", completionThatMayAct());
            case 6: return client->resetFlags();
            case 7: return void(vexim::MainQueue::shared().drain());
            case 8: return draw(8) == 0 ? void(client = nullptr) : void();
            default: return serverStep();
        }
    }

    void serverStep() {
        if (sockets.empty()) return;
        const auto& socket = sockets[draw(static_cast<std::uint32_t>(sockets.size()))];  // also one that was dropped
        switch (draw(6)) {
            case 0: return socket->status() == vexim::SocketIOStatusConnecting ? socket->accept() : void();
            case 1: return socket->status() == vexim::SocketIOStatusConnected ? socket->drop() : void();
            case 2: return socket->send("login", {Dictionary{{"success", draw(4) != 0}, {"id", ""}}});
            case 3: return socket->send("message", {dictionaryFrom(R"({"from":{"id":"u2","type":0},"to":{"id":"u1","type":0}})")});
            case 4: return socket->send("online", {"u2"});
            default: return socket->attemptReconnect();
        }
    }

    /// A completion that does the next thing from inside, releasing the client included.
    VXIMBooleanCompletion completionThatMayAct() {
        return atMostOnce([this](bool, const vexim::ErrorPtr&) {
            if (draw(2) == 0) step();
        });
    }

    void checkState() const {
        if (!client) return;
        EXPECT_GE(client->status(), VXIMClientStatusNone);
        EXPECT_LE(client->status(), VXIMClientStatusClosed);
        if (client->status() == VXIMClientStatusClosed) {
            EXPECT_FALSE(client->tryLogout() && client->socketio()) << state();
        }
        if (client->status() == VXIMClientStatusOpened) {
            EXPECT_NE(client->socketio(), nullptr) << state();
        }
    }

    std::mt19937_64 generator_;
};

TEST_F(Schedules, OfAllKindsAreSurvived) {
    service.configuration()->setInstallationId("");  // a logout then needs no REST, so nothing ends after its schedule
    const auto first = std::random_device{}();
    for (std::uint64_t seed = first; seed < first + 10'000; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        generator_.seed(seed);
        sockets.clear();
        client = newClient();
        client->setDelegate(journal);
        for (std::uint32_t i = 0; i < kSteps; ++i) {
            step();
            checkState();
        }
        client = nullptr;
        settle();
        journal->take();
        if (HasFailure()) return;
    }
}

}  // namespace
