// What an application sees when a REST server misbehaves: one clear error, in limited time and
// memory.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/VexIMLib.h"
#include "VexIMLib/internal/Networking/VXIMURLSessionManager.h"
#include "endtoend/Turning.h"
#include "support/Completions.h"
#include "support/Eventually.h"
#include "support/Gzip.h"
#include "support/PeakMemory.h"
#include "support/ScriptedServer.h"

namespace vexim::testing {
namespace {

using Connection = ScriptedServer::Connection;
using namespace std::chrono_literals;

void serveRequestsFrom(const std::string& origin) {
    auto configuration = VXIMClientConfiguration::defaultConfiguration();
    configuration->setAppId("app");
    configuration->setClientKey("key");
    configuration->setSocketURL(URL::parse(origin));
    vxim_configuration = configuration;
}

/// "domain code" of the error and of its underlying errors.
std::string chain(const ErrorPtr& error) {
    if (!error) return "ok";
    const ErrorPtr below = error->underlyingError();
    return error->domain() + " " + std::to_string(error->code()) +
           (below ? " < " + chain(below) : "");
}

class HostileREST : public ::testing::Test {
protected:
    HostileREST() { setKeepsFinishedDelegates(false); }  // or every answer stays in memory
    ~HostileREST() override { vxim_configuration = nullptr; }

    /// Fetches a group from `origin`, with retries. Returns the error that the completion got.
    ErrorPtr fetchGroup(const std::string& origin) {
        serveRequestsFrom(origin);
        ErrorPtr result;
        bool ended = false;
        const auto group = VXIMGroup::groupWithId("g1");
        group->fetchWithBlock(once([&](bool succeeded, const ErrorPtr& error) {
            EXPECT_EQ(succeeded, error == nullptr);
            result = error;
            ended = true;
        }));
        EXPECT_TRUE(eventuallyTurning(clock, [&] { return ended; }));
        return result;
    }

    ManualClock clock;
};

std::string nested(int depth) {
    const auto levels = static_cast<std::size_t>(depth);
    return "{\"id\":" + std::string(levels, '[') + std::string(levels, ']') + "}";
}

TEST_F(HostileREST, EveryAnswerEndsTheOperationOnce) {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string lost = "VXErrorDomain 100 < NSURLErrorDomain -1005";
    const std::string unparsable = "VXErrorDomain 100 < NSURLErrorDomain -1017";
    const std::string useless = "VXIMErrorDomain 2";
    const struct {
        const char* why;
        std::string answer;
        std::string error;
        int attempts;
    } cases[] = {
        {"as it should be", ScriptedServer::text(200, R"({"id":"g1"})"), "ok", 1},
        {"nothing", "", lost, 3},
        {"a body cut short", ok + "Content-Length: 12\r\n\r\n{\"id\":\"g1\"", lost, 3},
        {"a body that is too long",
         ok + "Content-Length: 11\r\n\r\n{\"id\":\"g1\"}HTTP/1.1 500 Oops\r\n\r\n", "ok", 1},
        {"two lengths", ok + "Content-Length: 2\r\nContent-Length: 3\r\n\r\n{}", unparsable, 3},
        {"a length that is none", ok + "Content-Length: -1\r\n\r\n{}", unparsable, 3},
        {"a bad chunk", ok + "Transfer-Encoding: chunked\r\n\r\nxyz\r\n{}\r\n", lost, 3},
        {"a first line without end", std::string(200'000, 'A'), unparsable, 3},
        {"a chunk without end", ok + "Transfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n", lost, 3},
        {"malformed JSON", ScriptedServer::text(200, R"({"id":"g1",)"), useless, 1},
        {"two JSON texts", ScriptedServer::text(200, "{}{}"), useless, 1},
        {"JSON as deep as it may be", ScriptedServer::text(200, nested(500)), "ok", 1},
        {"JSON 100 000 deep", ScriptedServer::text(200, nested(100'000)), useless, 1},
        {"JSON 100 000 deep, of objects",
         ScriptedServer::text(200,
                              [] {
                                  std::string text;
                                  for (int i = 0; i < 100'000; ++i) text += "{\"a\":";
                                  return text;
                              }()),
         useless, 1},
        {"broken UTF-8", ScriptedServer::text(200, "{\"id\":\"\xff\"}"), useless, 1},
        {"a number beyond all bounds", ScriptedServer::text(200, "{\"id\":1e999999999}"), useless,
         1},
        {"an error code of a wrong type",
         ScriptedServer::text(400, R"({"errorCode":{},"errorMessage":[]})"),
         "VXErrorDomain 100 < NSURLErrorDomain -1011", 1},
        {"an error code as text",
         ScriptedServer::text(400, R"({"errorCode":"77","errorMessage":null})"),
         "VXErrorDomain 77 < NSURLErrorDomain -1011", 1},
        {"an error code with a success", ScriptedServer::text(200, R"({"errorCode":5})"),
         "VXErrorDomain 5", 3},
        {"a status beyond all classes", ScriptedServer::text(999, "{}"),
         "VXErrorDomain 100 < NSURLErrorDomain -1011", 3},
        {"an unusable redirection",
         "HTTP/1.1 302 Found\r\nLocation: file:///etc/passwd\r\nContent-Length: 0\r\n\r\n",
         "VXErrorDomain 100 < NSURLErrorDomain -1002", 3},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.why);
        // Announce the close, because otherwise the next attempt may use the connection while it
        // closes.
        std::string answer = each.answer;
        if (const auto line = answer.find("\r\n"); line != std::string::npos)
            answer.insert(line, "\r\nConnection: close");
        ScriptedServer server([&](Connection& connection) {
            if (connection.readRequest()) connection.write(answer);
        });
        EXPECT_EQ(chain(fetchGroup(server.url(""))), each.error);
        EXPECT_EQ(server.connectionCount(), each.attempts);
    }
}

TEST_F(HostileREST, ALoopOfRedirectionsEnds) {
    std::atomic<int> hops{0};
    ScriptedServer server(ScriptedServer::answering([&](const WireRequest& request) {
        ++hops;
        return ScriptedServer::text(307, "", "Location: " + request.target + "x\r\n");
    }));
    EXPECT_EQ(chain(fetchGroup(server.url(""))), "VXErrorDomain 100 < NSURLErrorDomain -1007");
    EXPECT_EQ(hops, 3 * 21) << "three attempts of a request and 20 hops";
}

TEST_F(HostileREST, WhatTheServerKeepsSendingIsBounded) {
    const std::string bomb = gzipped(std::string(std::size_t{256} << 20, ' '));
    const std::string block(1 << 20, ' ');
    const struct {
        const char* why;
        std::function<void(Connection&)> answer;
        const char* error;
    } cases[] = {
        {"256 MiB in 256 KiB",
         [&](Connection& c) { c.answer(200, bomb, "Content-Encoding: gzip\r\n"); }, "-1103"},
        {"a body without end",
         [&](Connection& c) {
             c.write("HTTP/1.1 200 OK\r\n\r\n");
             while (c.write(block)) continue;
         },
         "-1103"},
        {"an array without end",  // parsing it would take ten times as much again
         [&](Connection& c) {
             std::string ones = "1,";
             while (ones.size() < 1 << 20) ones += ones;
             c.write("HTTP/1.1 200 OK\r\n\r\n[");
             while (c.write(ones)) continue;
         },
         "-1103"},
        {"a length of an exabyte",
         [&](Connection& c) {
             c.write("HTTP/1.1 200 OK\r\nContent-Length: 1000000000000000000\r\n\r\n");
             while (c.write(block)) continue;
         },
         "-1103"},
        {"a head without end",
         [&](Connection& c) {
             c.write("HTTP/1.1 200 OK\r\n");
             while (c.write("X-Padding: " + block + "\r\n")) continue;
         },
         "-1017"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.why);
        ScriptedServer server([&](Connection& connection) {
            if (connection.readRequest()) each.answer(connection);
        });
        PeakMemory peak;
        EXPECT_EQ(chain(fetchGroup(server.url(""))),
                  std::string("VXErrorDomain 100 < NSURLErrorDomain ") + each.error);
        EXPECT_LT(peak.grownMiB(), 32) << "16 MiB are kept at most, and let go when there is more";
    }
}

/// One request in a separate session with other limits.
class Load {
public:
    Load(URLSessionConfiguration configuration, const std::string& origin)
        : manager_(VXIMURLSessionManager::initWithSessionConfiguration(std::move(configuration))) {
        serveRequestsFrom(origin);
        const auto request = VXIMRequest::request();
        request->setPath("/groups/g1");
        manager_
            ->dataTaskWithRequest(*request, once([this](const Value& value, const ErrorPtr& error) {
                EXPECT_TRUE(!error || value.isNil());
                outcome_ = chain(error);
            }))
            ->resume();
    }
    bool hasEnded() const { return !outcome_.empty(); }
    /// Returns what the completion got.
    std::string outcome() {
        EXPECT_TRUE(eventually([&] { return !outcome_.empty(); }));
        return outcome_;
    }

private:
    const std::shared_ptr<VXIMURLSessionManager> manager_;
    std::string outcome_;
};

TEST_F(HostileREST, SilenceAndDribbleEndWithATimeout) {
    const struct {
        const char* why;
        std::function<void(Connection&)> play;
    } cases[] = {
        {"nothing is read", [](Connection&) {}},
        {"nothing is answered", [](Connection& c) { c.readRequest(); }},
        {"half a status line", [](Connection& c) { c.write("HTTP/1."); }},
        {"half a head", [](Connection& c) { c.write("HTTP/1.1 200 OK\r\nContent-Le"); }},
        {"half a body",
         [](Connection& c) { c.write("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n{}"); }},
        {"half a chunk",
         [](Connection& c) {
             c.write("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\n{}");
         }},
        {"byte by byte, and never done",
         [](Connection& c) {
             if (!c.write("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n")) return;
             while (c.pause(20ms) && c.write(" ")) continue;
         }},
    };
    URLSessionConfiguration impatient;
    impatient.timeoutForResource = 1s;
    std::vector<std::unique_ptr<ScriptedServer>> servers;
    std::vector<std::unique_ptr<Load>> loads;
    for (const auto& each : cases) {
        servers.push_back(std::make_unique<ScriptedServer>([&each](Connection& connection) {
            each.play(connection);
            connection.waitForClose();
        }));
        loads.push_back(std::make_unique<Load>(impatient, servers.back()->url("")));
    }
    EXPECT_TRUE(clock.runUntil([&] {
        return std::ranges::all_of(loads, [](const auto& load) { return load->hasEnded(); });
    }));
    for (std::size_t i = 0; i < loads.size(); ++i) {
        EXPECT_EQ(loads[i]->outcome(), "VXErrorDomain 100 < NSURLErrorDomain -1001")
            << cases[i].why;
    }
}

TEST_F(HostileREST, AResolverThatNeverAnswersHoldsUpOnlyWhoAsked) {
    ScriptedServer server(ScriptedServer::answering(
        [](const WireRequest&) { return ScriptedServer::text(200, "{}"); }));
    URLSessionConfiguration impatient;
    impatient.timeoutForResource = 2s;
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::unique_ptr<Load>> blocked;
    for (const char* host : {"a", "b", "c", "d"}) {
        blocked.push_back(
            std::make_unique<Load>(impatient, std::string("http://") + host + ".blocked.test"));
    }
    for (int i = 0; i < 10; ++i) EXPECT_EQ(chain(fetchGroup(server.url(""))), "ok");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 30s) << "while the others wait";
    EXPECT_TRUE(clock.runUntil([&] {
        return std::ranges::all_of(blocked, [](const auto& load) { return load->hasEnded(); });
    }));
    for (const auto& load : blocked)
        EXPECT_EQ(load->outcome(), "VXErrorDomain 100 < NSURLErrorDomain -1001");
    EXPECT_EQ(chain(fetchGroup(server.url(""))), "ok");
}

TEST_F(HostileREST, AnUnreachableServiceIsAnError) {
    EXPECT_EQ(chain(fetchGroup("http://127.0.0.1:" + std::to_string(deadPort()))),
              "VXErrorDomain 100 < NSURLErrorDomain -1004");
    // RFC 6761: never resolves
    EXPECT_EQ(chain(fetchGroup("http://name.invalid")),
              "VXErrorDomain 100 < NSURLErrorDomain -1003");
    EXPECT_EQ(chain(fetchGroup("gopher://127.0.0.1")),
              "VXErrorDomain 100 < NSURLErrorDomain -1002");
}

}  // namespace
}  // namespace vexim::testing
