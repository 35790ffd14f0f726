// Neither the exit of the process nor a destructor ever waits for a server.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "endtoend/LiveWorld.h"
#include "support/ChildProcess.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"

namespace vexim::testing {
namespace {

using Connection = ScriptedServer::Connection;
using namespace std::chrono_literals;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(VEXIM_EMULATED)
// looking for leaks takes time, and an emulator is slow
constexpr double kSlowness = 10;
#else
constexpr double kSlowness = 1;
#endif

// Shorter than the seconds that an exit, or the close of a connection, may wait for a peer, and
// still enough for a busy machine.
constexpr double kExit = 800 * kSlowness;
constexpr double kDestructor = 100 * kSlowness;

/// Milliseconds from the call of exit, whose time the child prints, to the end of the process.
double exitTime(ChildProcess& child, int& status) {
    const std::string left = child.readLine().value_or("0");
    status = child.wait();
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return (static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec) -
            std::stod(left)) /
           1e6;
}

TEST(Leaving, TheProcessExitsAtOnceWhateverIsUnderWay) {
    const TemporaryFolder folder;  // for what a child leaves that does not end by itself
    const TemporaryFilesIn here(folder.path());
    struct Case {
        const char* how;
        int connections;  // that the server must have seen before
        bool resolves = true;
    };
    const Case cases[] = {
        {"nothing", 0},
        {"requests", 1},
        {"requests, released", 1},
        {"requests, in a callback", 1},
        {"login", 1},
        {"login, released", 1},
        {"login, in a callback", 1},
        {"upload", 1},
        {"requests, login and upload", 3},
        {"requests with a resolver that hangs", 0, false},
        {"login with a resolver that hangs", 0, false},
        {"requests and login with a resolver that hangs, released", 0, false},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.how);
        double best = 1e9;
        for (int run = 0; run < 3; ++run) {  // the best of three, because the machine may be busy
            std::atomic<int> reached{0};
            ScriptedServer server([&](Connection& connection) {
                connection.readHead();
                ++reached;
                MainQueue::shared().async([] {});  // wakes the queue, so that the test checks again
                while (connection.pause(1h)) continue;  // neither reads nor answers
            });
            ChildProcess child({VEXIM_EXIT_CHILD, each.how,
                                each.resolves ? server.url("") : "http://hanging.blocked.test"});
            EXPECT_EQ(child.readLine(), "begun");
            EXPECT_TRUE(eventually([&] { return reached >= each.connections; }));
            child.writeLine("exit");
            int status = -1;
            best = std::min(best, exitTime(child, status));
            EXPECT_EQ(status, 0);
        }
        EXPECT_LT(best, kExit);
    }
}

/// How long this thread has waited for a processor, in milliseconds. On a busy machine that is most
/// of any wait.
double millisecondsInLine() {
    std::ifstream file("/proc/thread-self/schedstat");  // nanoseconds: run, in line; times run
    double run = 0;
    double inLine = 0;
    return file >> run >> inLine ? inLine / 1e6 : 0;
}

double millisecondsOf(const std::function<void()>& work) {
    const double before = millisecondsInLine();
    const auto start = std::chrono::steady_clock::now();
    work();
    const auto end = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::milli>(end - start).count() -
           (millisecondsInLine() - before);
}

double percentile99(const std::function<double()>& measure) {
    std::vector<double> times(100);
    std::ranges::generate(times, measure);
    std::ranges::sort(times);
    return times[98];
}

TEST(Leaving, DestructorsWaitForNobody) {
    const auto silent = [](Connection& c) { c.waitForClose(); };
    const auto afterUpgrade = [](Connection& c) {
        LivePeer peer(c);
        if (peer.acceptWebSocket()) peer.waitForClose();
    };
    const auto flooding = [](Connection& c) {
        LivePeer peer(c);
        if (!peer.join()) return;
        peer.emit("login", R"({"success":true,"id":"u1"})");
        for (int i = 0; i < 2000 && peer.emit("message", R"({"to":{"id":"u1","type":0}})"); ++i)
            continue;
        peer.waitForClose();
    };
    const auto deaf = [](Connection& c) {  // joins and never reads again
        LivePeer peer(c);
        if (!peer.join()) return;
        peer.emit("login", R"({"success":true,"id":"u1"})");
        while (c.pause(1h)) continue;
    };
    const struct {
        const char* why;
        ScriptedServer::Script script;
        bool isUp;
    } cases[] = {{"silent", silent, false},
                 {"after the upgrade", afterUpgrade, false},
                 {"flooding", flooding, true},
                 {"deaf", deaf, true}};
    for (const auto& each : cases) {
        ScriptedServer server(each.script);
        EXPECT_LT(percentile99([&] {
                      auto ears = LiveClient::make(server.url(""));
                      ears->login();
                      if (each.isUp) {
                          EXPECT_TRUE(eventually(
                              [&] { return ears->client->status() == VXIMClientStatusOpened; }));
                          const auto message =
                              VXIMMessage::messageWithText(std::string(100'000, 'x'));
                          for (int i = 0; i < 10; ++i)
                              ears->client->sendMessageToFriend(message, "u2", {});
                      }
                      MainQueue::shared().drain();
                      const std::weak_ptr<VXIMClient> alive = ears->client;
                      const double time = millisecondsOf([&] { ears->client = nullptr; });
                      EXPECT_TRUE(eventuallyElsewhere([&] { return alive.expired(); }));
                      return time;
                  }),
                  kDestructor)
            << each.why;
    }

    ScriptedServer server(silent);
    auto configuration = VXIMClientConfiguration::defaultConfiguration();
    configuration->setSocketURL(URL::parse(server.url("")));
    vxim_configuration = configuration;
    EXPECT_LT(percentile99([&] {
                  auto group = VXIMGroup::groupWithId("g1");
                  auto transfer = VXIMTransfer::transfer();
                  auto message = VXIMMessage::messageWithImageFileAtPath(std::nullopt);
                  message->setAttachmentUrl(server.url("/files/x"));
                  group->fetchAttributesWithCompletion({});
                  message->downloadAttachment("/nonexistent/file", {},
                                              once([](const Value&, const ErrorPtr&) {}), transfer);
                  return millisecondsOf([&] {
                      transfer->cancel();
                      group = nullptr;
                      message = nullptr;
                      transfer = nullptr;
                  });
              }),
              kDestructor);
    EXPECT_TRUE(eventually([] { return pendingCompletions() == 0; }));
    vxim_configuration = nullptr;
}

}  // namespace
}  // namespace vexim::testing
