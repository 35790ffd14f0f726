// Runs the main queue in event loops that we did not write. If one stalls, the test's time limit
// ends it.

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "VexIMLib/Testing/ManualClock.h"
#include "VexIMLib/VexIMLib.h"
#include "loops/Hosts.h"
#include "support/Completions.h"
#include "support/LivePeer.h"
#include "support/ScriptedServer.h"

using namespace vexim;
using namespace vexim::testing;
using namespace std::chrono_literals;

namespace {

MainQueue& queue() { return MainQueue::shared(); }

template <class Host>
class LoopsTest : public ::testing::Test {
protected:
    LoopsTest() { host.attach(); }
    ~LoopsTest() override {
        host.detach();
        while (queue().drain() > 0) continue;
    }
    /// Waits for what the host is told to run.
    void runUntilSaid(const std::string& all) {
        host.run([&] { return said == all; });
    }
    auto say(const char* word) {
        return [this, word] { said += word; };
    }

    Host host;
    std::string said;
};

struct Names {
    template <class Host>
    static std::string GetName(int) {
        return Host::kName;
    }
};
#if defined(VEXIM_TEST_GLIB_AND_QT)
using Hosts = ::testing::Types<AsioHost, GlibHost, QtHost, PollHost>;
#else
using Hosts = ::testing::Types<AsioHost, PollHost>;
#endif
TYPED_TEST_SUITE(LoopsTest, Hosts, Names);

/// Receives messages, and may block the loop in one.
struct Delegate : VXIMClientDelegate {
    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&,
                                           const std::shared_ptr<VXIMMessage>& message,
                                           const std::shared_ptr<VXIMFriendInfo>&) override {
        heard.push_back(message->text().value_or(""));
        if (heard.back() == "hold") {
            EXPECT_EQ(held.wait_for(60s), std::future_status::ready) << "no heartbeats meanwhile";
        }
    }
    void clientDidDisconnect(const std::shared_ptr<VXIMClient>&) override {
        heard.emplace_back("disconnected");
    }

    std::vector<std::string> heard;
    std::future<void> held;
};

}  // namespace

TYPED_TEST(LoopsTest, RunsWhatAnyThreadQueuesAndWhatIsDue) {
    const auto began = std::chrono::steady_clock::now();
    queue().async(this->say("a"));
    queue().after(1h, this->say("never "));
    this->runUntilSaid("a");
    std::thread other([this] {
        queue().async(this->say("b"));
        queue().after(30ms, this->say("d"));  // earlier than what the loop waits for
        queue().after(20ms, this->say("c"));
    });
    // on a slow machine, d may be due before c is queued
    this->host.run([this] { return this->said.size() == 4; });
    other.join();
    EXPECT_GE(std::chrono::steady_clock::now() - began, 30ms);
    EXPECT_TRUE(queue().isMainThread());
}

TYPED_TEST(LoopsTest, ACallbackMayRunTheLoop) {
    queue().after(5ms, this->say("later "));
    queue().after(0ms, [this] {
        queue().async(this->say("inner "));
        queue().after(1ms, this->say("timed "));
        // All of it, in an order that a slow machine may change.
        this->host.run([this] {
            return this->said.size() == std::string_view("behind inner timed later ").size();
        });
        this->said += "outer";
    });
    queue().after(0ms, this->say("behind "));
    this->host.run([this] { return this->said.ends_with("outer"); });
}

TYPED_TEST(LoopsTest, AnExceptionLeavesTheRestToBeRun) {
    queue().async([] { throw std::runtime_error("the application's"); });
    queue().async(this->say("b"));
    queue().after(1ms, this->say("c"));
    this->runUntilSaid("bc");
    ASSERT_TRUE(this->host.caught);
    EXPECT_THROW(std::rethrow_exception(this->host.caught), std::runtime_error);
}

TYPED_TEST(LoopsTest, CanBeDestroyedWithWorkPendingAlsoInItsCallback) {
    queue().async(this->say("a"));
    queue().after(1ms, this->say("c"));
    this->host.detach();  // nothing has run yet
    EXPECT_EQ(this->said, "");
    this->host.attach();
    this->runUntilSaid("ac");

    bool destroyed = false;
    queue().async([this, &destroyed] {
        queue().async(this->say("e"));
        this->host.detach();
        destroyed = true;
    });
    queue().async(this->say("d"));
    this->host.run([&] { return destroyed; });
    EXPECT_EQ(this->said, "acd") << "a drain ends what it began";
    this->host.attach();
    this->runUntilSaid("acde");
}

TYPED_TEST(LoopsTest, AFloodLeavesTheLoopItsTimers) {
    constexpr int kAll = 200;
    constexpr int kTurn = 5;  // of 4 ms: the last function begins before it is over
    int ran = 0;
    int ranWhenDue = -1;
    int ranAtTimer = -1;
    this->host.after(16ms, [&] { ranAtTimer = ran; });
    const auto due = std::chrono::steady_clock::now() + 16ms;
    for (int i = 0; i < kAll; ++i) {
        queue().async([&] {  // takes at least a millisecond, so the count is a measure of time
            const auto end = std::chrono::steady_clock::now() + 1ms;
            while (std::chrono::steady_clock::now() < end) continue;
            ++ran;
            if (ranWhenDue < 0 && end >= due) ranWhenDue = ran;
        });
    }
    this->host.run([&] { return ran == kAll && ranAtTimer >= 0; });
    // Wait for the turn in which it is due; a timer that the system reports late may miss the next
    // check.
    EXPECT_LE(ranAtTimer - ranWhenDue, 2 * kTurn);
}

TYPED_TEST(LoopsTest, MessagesFlowAndABlockedLoopDropsNoConnection) {
    ManualClock clock;
    std::promise<void> release;
    std::atomic<int> beats{0};
    ScriptedServer server([&](ScriptedServer::Connection& connection) {
        LivePeer peer(connection);
        // The client gives the connection up when it has heard nothing for 750 ms.
        if (!peer.open(
                R"(0{"sid":"s1","upgrades":[],"pingInterval":500,"pingTimeout":250,"maxPayload":1000000})"))
            return;
        const auto join = peer.readText();
        if (!join || !join->starts_with("40/chat,") || !peer.sendText(R"(40/chat,{"sid":"s2"})"))
            return;
        const auto say = [&peer](const char* text) {
            return peer.emit(
                "message",
                std::string(
                    R"({"from":{"id":"u2","type":0},"to":{"id":"u1","type":0},"content":{"media":0,"body":")") +
                    text + "\"}}");
        };
        peer.emit("login", R"({"success":true,"id":"u1"})");
        say("first");
        say("hold");
        // Heartbeats for longer than the client would wait without; the loop is blocked all the
        // while.
        for (; beats < 9 && peer.beat(); ++beats) clock.advance(500ms);
        say("meanwhile");
        release.set_value();
        peer.waitForClose();
    });
    const auto client = VXIMClient::clientWithAppId("app", "key", "installation");
    client->config()->setSocketURL(URL::parse(server.url("")));
    const auto delegate = std::make_shared<Delegate>();
    delegate->held = release.get_future();
    client->setDelegate(delegate);
    bool loggedIn = false;
    client->loginWithUserId("u1",
                            once([&](bool succeeded, const ErrorPtr&) { loggedIn = succeeded; }));
    this->host.run([&] { return delegate->heard.size() == 3; });
    EXPECT_TRUE(loggedIn);
    EXPECT_EQ(delegate->heard, (std::vector<std::string>{"first", "hold", "meanwhile"}));
    EXPECT_EQ(beats, 9);
    EXPECT_EQ(client->status(), VXIMClientStatusOpened);
    client->setDelegate(nullptr);
    client->pause();
    this->host.run([&] { return client->status() == VXIMClientStatusPaused; });
}
