// What a session counts as silence, and when something has taken too long.

#include <gtest/gtest.h>

#include "platform/SessionProbe.h"
#include "support/Certificates.h"
#include "support/Eventually.h"
#include "support/ScriptedServer.h"

namespace vexim::testing {
namespace {

using Connection = ScriptedServer::Connection;
using namespace std::chrono_literals;

TEST(URLSession, GivesTheDelegateTimeToDecideButTheTaskNoMoreThanItMayTake) {
    ScriptedServer server(ScriptedServer::answering([&](const WireRequest& request) {
        if (request.target == "/aaa") return ScriptedServer::text(200, "end");
        return ScriptedServer::text(302, "", "Location: " + request.target + "a\r\n");
    }));
    URLSessionConfiguration configuration;
    configuration.timeoutForResource = 1h;
    const struct {
        std::chrono::minutes decision;  // of each of three redirections
        std::int64_t code;
    } cases[] = {{15min, 0}, {25min, URLErrorTimedOut}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.decision.count());
        ManualClock clock;
        const auto probe = SessionProbe::make(configuration);
        std::atomic<int> asked{0};
        probe->onRedirection = [&](auto&, const URLRequest& next, auto handler) {
            MainQueue::shared().async([&, next, handler = std::move(handler)] {
                pass(clock, each.decision);
                handler(next);
                ++asked;
            });
        };
        const auto task = probe->task(server.url());
        task->resume();
        EXPECT_TRUE(eventually([&] { return asked == 3; }));
        const auto story = probe->waitForEnd(task);
        EXPECT_EQ(story.code(), each.code) << story.detail();
        EXPECT_EQ(story.body, each.code ? "" : "end");
    }
}

TEST(URLSession, PausesADownloadWhoseConsumerLags) {
    constexpr std::size_t kTotal = 64 << 20;
    std::string whole;
    for (char letter = '0'; whole.size() < kTotal; ++letter) whole.append(1 << 20, letter);
    ManualClock clock;
    std::atomic<std::size_t> written{0};
    ScriptedServer server([&](ScriptedServer::Connection& connection) {
        connection.readRequest();
        connection.write("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kTotal) +
                         "\r\n\r\n");
        while (written < kTotal && connection.write(whole.substr(written, 1 << 20)))
            written += 1 << 20;
    });
    const auto probe = SessionProbe::make();
    std::mutex gate;
    gate.lock();
    std::atomic<std::size_t> largestLead{0};
    std::atomic<std::size_t> consumed{0};
    std::vector<std::pair<std::size_t, Data>> kept;
    probe->onData = [&](auto&, const Data& data) {
        const std::lock_guard wait(gate);
        if (kept.size() < 8) kept.emplace_back(consumed, data);
        // bytes that were just read may not be counted as written yet
        const std::size_t sent = std::max<std::size_t>(written, consumed);
        largestLead = std::max<std::size_t>(largestLead, sent - consumed);
        consumed += data.size();
    };
    auto request = SessionProbe::request(server.url());
    request.acceptsCompression = false;
    const auto task = probe->session->dataTaskWithRequest(request);
    task->setAnswerIsStreamed(true);
    task->resume();
    ScriptedServer quick(ScriptedServer::answering(
        [](const WireRequest&) { return ScriptedServer::text(200, "ok"); }));
    const auto otherProbe = SessionProbe::make();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(otherProbe->load(quick.url()).status, 200) << "the network thread goes on";
    // we cause the pause, so it may last long
    EXPECT_TRUE(spinUntil([&] { return written > (4 << 20); }));
    for (int i = 0; i < 3; ++i) pass(clock, 15s);
    gate.unlock();
    EXPECT_TRUE(probe->waitForEnd(task).body == whole) << probe->story(task).detail();
    for (const auto& [at, data] : kept)
        EXPECT_TRUE(!data.empty() && whole.substr(at, data.size()) == data.view())
            << "what the consumer keeps is not written again";
    // One MiB on our side; the rest is in the system's socket buffers.
    EXPECT_LT(largestLead, std::size_t{24} << 20);
}

TEST(URLSessionFaults, OneSilentAnswerHoldsUpNoOther) {
    const CertificateAuthority authority;
    const struct {
        const char* why;
        bool tls, handshake;
    } cases[] = {
        {"over plain HTTP", false, true},
        {"over TLS, without HTTP/2", true, true},
        {"over TLS, before it is known what the server speaks", true, false},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.why);
        std::atomic<int> silent{0};
        const auto beSilent = [&](Connection& connection) {
            ++silent;
            connection.waitForClose();
        };
        ScriptedServer server(
            [&](Connection& connection) {
                if (connection.index() == 0) return beSilent(connection);
                while (connection.readRequest()) connection.answer(200, "ok");
            },
            each.tls ? std::optional(authority.issue()) : std::nullopt,
            [&](Connection& connection) {
                if (each.handshake || connection.index() > 0) return true;
                beSilent(connection);
                return false;
            });
        const auto probe = SessionProbe::trusting(authority.certificatePEM());
        const auto first = probe->task(server.url());
        first->resume();
        ASSERT_TRUE(spinUntil([&] { return silent == 1; }));
        std::vector<std::shared_ptr<URLSessionTask>> others;
        for (int i = 0; i < 5; ++i) {
            others.push_back(probe->task(server.url()));
            others.back()->resume();
        }
        for (const auto& other : others)
            EXPECT_EQ(probe->waitForEnd(other).body, "ok") << probe->story(other).detail();
        EXPECT_EQ(probe->story(first).ends, 0) << "it has waited all the while";
        first->cancel();
        probe->waitForEnd(first);
    }
}

TEST(URLSessionFaults, TimesOutOnlyForSilence) {
    ManualClock clock;
    std::atomic<int> heard{0}, told{0};  // requests, and bytes that "/slow" may write to each
    ScriptedServer server([&](Connection& connection) {
        const auto request = connection.readRequest();
        if (!request) return;
        ++heard;
        if (request->target == "/slow") {
            connection.write("HTTP/1.1 200 OK\r\nContent-Length: 6\r\nConnection: close\r\n\r\n");
            for (int i = 0; i < 6; ++i) {
                while (told <= i && connection.pause(1ms)) continue;
                connection.write({&"slowly"[i], 1});
            }
            return;
        }
        if (request->target == "/middle")
            connection.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
        connection.waitForClose();
    });
    URLSessionConfiguration configuration;
    const auto probe = SessionProbe::make(configuration);
    for (const auto& [path, body] : {std::pair{"/silent", ""}, std::pair{"/middle", "half"}}) {
        const auto task = probe->task(server.url(path));
        heard = 0;
        task->resume();
        EXPECT_TRUE(spinUntil([&] { return heard == 1 && probe->story(task).body == body; }));
        pass(clock, 19s);
        EXPECT_EQ(probe->story(task).ends, 0) << path;
        pass(clock, 1s);
        EXPECT_EQ(probe->waitForEnd(task).code(), URLErrorTimedOut) << path;
    }
    heard = 0;
    std::vector<std::shared_ptr<URLSessionTask>> crowd;  // more than a host may have connections
    for (int i = 0; i < 20; ++i) {
        crowd.push_back(probe->task(server.url("/slow")));
        crowd.back()->resume();
    }
    const auto bytes = [&] {
        std::size_t sum = 0;
        for (const auto& task : crowd) sum += probe->story(task).body.size();
        return sum;
    };
    EXPECT_TRUE(spinUntil([&] { return heard == 16; }));
    for (std::size_t i = 0; i < 6; ++i) {
        pass(clock, 15s);
        ++told;
        EXPECT_TRUE(spinUntil([&] { return bytes() >= 16 * (i + 1); }));
    }
    for (const auto& task : crowd)
        EXPECT_EQ(probe->waitForEnd(task).body, "slowly")
            << "never silent for 20 seconds; who waits for a turn is not silent either";

    configuration.timeoutForResource = 1s;
    const auto hasty = SessionProbe::make(configuration);
    const auto task = hasty->task(server.url("/silent"));
    task->resume();
    EXPECT_TRUE(spinUntil([&] { return heard == 21; }));
    pass(clock, 1s);
    const auto altogether = hasty->waitForEnd(task);
    EXPECT_EQ(altogether.code(), URLErrorTimedOut);
    ASSERT_TRUE(altogether.error);
    EXPECT_EQ(altogether.error->info("NSDebugDescription"), "the task took too long");
}

}  // namespace
}  // namespace vexim::testing
