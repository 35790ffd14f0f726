// The process as a whole: its exit, its environment, a name server that does not answer.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Platform/Threads/HostResolver.h"
#include "VexIMLib/internal/Platform/Threads/LibraryThreads.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"
#include "platform/SessionProbe.h"
#include "support/ScriptedServer.h"
#include "support/WrittenStream.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;

std::chrono::steady_clock::time_point exitBegan;

std::atomic<bool> networkThreadIsBusy{false};

std::atomic<bool> exitHookRan{false};
/// Sets `exitHookRan` when the library's exit hook interrupts its threads.
void watchExitHook() {
    LibraryThreads::start(
        "exit-watch", LibraryThreads::AtExit::Leave, [] { exitHookRan.wait(false); },
        [] {
            exitHookRan = true;
            exitHookRan.notify_all();
        });
}

/// Registered before the library's hook, so it runs after it. The limit holds on a busy machine,
/// and is shorter than the three seconds for which the exit waits for what must end.
void judgeExit() {
    const auto took = std::chrono::steady_clock::now() - exitBegan;
    if (took > 2500ms) ::_exit(2);
    if (networkThreadIsBusy) ::_exit(3);
}

[[noreturn]] void exitWithEverythingPending() {
    std::atexit(judgeExit);
    // Static, so that a leak checker sees who holds them: nothing here is ever released.
    static auto& server =
        *new ScriptedServer([](ScriptedServer::Connection& connection) { connection.pause(60s); });
    static auto& probe = *new std::shared_ptr<SessionProbe>(SessionProbe::make());
    probe->task(server.url())->resume();
    probe->task("http://a.blocked.test/")->resume();

    static auto& body = *new auto(WrittenStream::make());  // never written
    auto request = SessionProbe::request(server.url());
    request.method = "POST";
    request.bodyStream = body;
    probe->session->dataTaskWithRequest(request)->resume();

    std::atomic<int> ready{0};
    // as if the application's code waited for the main thread
    probe->session->delegateQueue()->addOperation([&ready] {
        ++ready;
        MainQueue::shared().sync([] {});
    });
    NetworkThread::shared().post([&ready] {
        static const auto lookup =
            HostResolver::system().resolve("b.blocked.test", [](auto, auto) {});
        ++ready;
        // as when it reads a store of certificates: longer than the exit waits for stuck threads
        networkThreadIsBusy = true;
        while (!exitHookRan) std::this_thread::yield();
        for (const auto begin = std::chrono::steady_clock::now();
             std::chrono::steady_clock::now() - begin < 100ms;)
            continue;
        networkThreadIsBusy = false;
    });
    watchExitHook();
    while (ready < 2) std::this_thread::yield();
    exitBegan = std::chrono::steady_clock::now();
    std::exit(0);
}

TEST(ProcessDeathTest, ExitsWhateverIsPending) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(exitWithEverythingPending(), ::testing::ExitedWithCode(0), "");
}

TEST(ProcessDeathTest, AForkedChildWaitsForNoThread) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto body = [] {
        std::atexit([] { ::_exit(exitHookRan ? 2 : 0); });
        watchExitHook();
        std::atomic<bool> runs{false};
        NetworkThread::shared().post([&] { runs = true; });
        while (!runs) std::this_thread::yield();
        const pid_t child = ::fork();
        if (child == 0) std::exit(0);
        int status = -1;
        ::_exit(::waitpid(child, &status, 0) == child && status == 0 ? 0 : 1);
    };
    EXPECT_EXIT(body(), ::testing::ExitedWithCode(0), "");
}

TEST(ProcessDeathTest, GoesThroughTheEnvironmentsProxyButNotToItself) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto body = [] {
        ScriptedServer proxy(ScriptedServer::answering([](const WireRequest& request) {
            return ScriptedServer::text(200, "proxy saw " + request.target);
        }));
        ::setenv("http_proxy", proxy.url().c_str(), 1);  // before the library has started a thread
        ::setenv("no_proxy", "direct.invalid", 1);
        const auto probe = SessionProbe::make();
        bool through = true;  // also to a name that looks like this machine's address
        for (const std::string url : {"http://service.example/x", "http://127.0.0.1.example/x"}) {
            through = through && probe->load(url).body == "proxy saw " + url;
        }
        const bool around = probe->load("http://direct.invalid/").code() == URLErrorCannotFindHost;
        const bool itself = probe->load(proxy.url("/own")).body == "proxy saw /own";
        ::_exit(through && around && itself ? 0 : 1);
    };
    EXPECT_EXIT(body(), ::testing::ExitedWithCode(0), "");
}

TEST(Addresses, ASilentOneIsLeftForTheNext) {
    ScriptedServer server(ScriptedServer::answering(
        [](const WireRequest&) { return ScriptedServer::text(200, "ok"); }));
    const SilentPort silent(server.port());
    auto request =
        SessionProbe::request("http://twice.loopback.test:" + std::to_string(server.port()));
    request.timeout = 4s;  // half of it for each address
    const auto probe = SessionProbe::make();
    const auto story = probe->load(request);
    EXPECT_EQ(story.body, "ok") << story.detail();
}

TEST(BlockedResolver, HoldsUpOnlyWhoAsked) {
    ScriptedServer server(ScriptedServer::answering(
        [](const WireRequest&) { return ScriptedServer::text(200, "ok"); }));
    const auto probe = SessionProbe::make();
    const auto cancelled = probe->task("http://c.blocked.test/");
    cancelled->resume();
    auto impatient = SessionProbe::request("http://d.blocked.test/");
    impatient.timeout = 200ms;
    EXPECT_EQ(probe->load(impatient).code(), URLErrorTimedOut);
    EXPECT_EQ(probe->load(server.url()).body, "ok");
    cancelled->cancel();
    EXPECT_EQ(probe->waitForEnd(cancelled).code(), URLErrorCancelled);
    EXPECT_EQ(probe->load(server.url()).body, "ok");
}

}  // namespace
}  // namespace vexim::testing
