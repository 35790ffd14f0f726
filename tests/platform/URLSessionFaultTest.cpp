// How a session handles servers that misbehave or have a wrong certificate.

#include <gtest/gtest.h>

#include "platform/SessionProbe.h"
#include "support/Certificates.h"
#include "support/Eventually.h"
#include "support/Gzip.h"
#include "support/ScriptedServer.h"

namespace vexim::testing {
namespace {

using Connection = ScriptedServer::Connection;
using namespace std::chrono_literals;

TEST(URLSessionFaults, EndsWithAClearErrorOrTheAnswer) {
    struct Case {
        const char* why;
        std::string answer;
        std::int64_t code;
        const char* body;
    };
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const Case cases[] = {
        {"nothing at all", "", URLErrorNetworkConnectionLost, ""},
        {"no HTTP", "SSH-2.0-OpenSSH_9.2\r\n", URLErrorCannotParseResponse, ""},
        {"a head cut short", "HTTP/1.1 200 OK\r\nContent-", URLErrorNetworkConnectionLost, ""},
        {"a body cut short", ok + "Content-Length: 10\r\n\r\nhalf", URLErrorNetworkConnectionLost,
         "half"},
        {"no length, ended by closing", ok + "\r\nall of it", 0, "all of it"},
        {"more than announced", ok + "Content-Length: 3\r\n\r\nabcHTTP/1.1 200 OK\r\n\r\n", 0,
         "abc"},
        {"the same length twice", ok + "Content-Length: 2\r\nContent-Length: 2\r\n\r\nab", 0, "ab"},
        {"two lengths", ok + "Content-Length: 2\r\nContent-Length: 3\r\n\r\nab",
         URLErrorCannotParseResponse, ""},
        {"two lengths in one", ok + "Content-Length: 2, 3\r\n\r\nab", URLErrorCannotParseResponse,
         ""},
        {"a negative length", ok + "Content-Length: -5\r\n\r\nab", URLErrorCannotParseResponse, ""},
        {"a length that is no number", ok + "Content-Length: 2x\r\n\r\nab",
         URLErrorCannotParseResponse, ""},
        {"a length beyond 64 bits", ok + "Content-Length: 99999999999999999999\r\n\r\nab",
         URLErrorCannotParseResponse, ""},
        {"chunks win over a length",
         ok + "Content-Length: 99\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab\r\n0\r\n\r\n", 0,
         "ab"},
        {"a chunk size that is none", ok + "Transfer-Encoding: chunked\r\n\r\nzz\r\n",
         URLErrorNetworkConnectionLost, ""},
        {"a chunk cut short", ok + "Transfer-Encoding: chunked\r\n\r\n9\r\nab",
         URLErrorNetworkConnectionLost, "ab"},
        {"no last chunk", ok + "Transfer-Encoding: chunked\r\n\r\n2\r\nab\r\n",
         URLErrorNetworkConnectionLost, "ab"},
        {"no gzip though it says so",
         ok + "Content-Encoding: gzip\r\nContent-Length: 5\r\n\r\nplain",
         URLErrorCannotDecodeContentData, ""},
        {"interim answers first",
         "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Hints\r\nX: y\r\n\r\n" + ok +
             "Content-Length: 2\r\n\r\nok",
         0, "ok"},
        {"no content", "HTTP/1.1 204 No Content\r\n\r\n", 0, ""},
        {"a head without end", ok + std::string(2'000'000, 'x'), URLErrorCannotParseResponse, ""},
        {"endless fields",
         ok +
             [] {
                 std::string fields;
                 for (int i = 0; i < 40'000; ++i)
                     fields += "X-Field-Number: " + std::to_string(i) + "\r\n";
                 return fields;
             }(),
         URLErrorCannotParseResponse, ""},
        {"endless trailers",
         ok + "Transfer-Encoding: chunked\r\n\r\n2\r\nab\r\n0\r\n" +
             [] {
                 std::string trailers;
                 for (int i = 0; i < 40'000; ++i) trailers += "X-Trailer: 12345678\r\n";
                 return trailers;
             }(),
         URLErrorCannotParseResponse, "ab"},
        {"endless interim answers",
         [] {
             std::string answers;
             for (int i = 0; i < 20'000; ++i) answers += "HTTP/1.1 103 Hints\r\n\r\n";
             return answers;
         }(),
         URLErrorCannotParseResponse, ""},
        {"a redirection to another scheme",
         "HTTP/1.1 302 Found\r\nLocation: file:///etc/passwd\r\nContent-Length: 0\r\n\r\n",
         URLErrorUnsupportedURL, ""},
        {"a redirection to nowhere",
         "HTTP/1.1 302 Found\r\nLocation: http://[\r\nContent-Length: 2\r\n\r\nab", 0, "ab"},
    };
    const auto probe = SessionProbe::make();
    for (const auto& each : cases) {
        ScriptedServer server([&](Connection& connection) {
            connection.readRequest();
            connection.write(each.answer);
        });
        const auto story = probe->load(server.url());
        EXPECT_EQ(story.code(), each.code) << each.why << ": " << story.detail();
        EXPECT_EQ(story.body, each.body) << each.why;
        EXPECT_EQ(story.ends, 1) << each.why;
        EXPECT_NE(story.status / 100, 1) << "an interim answer is none: " << each.why;
        if (story.error) {
            EXPECT_EQ(story.error->domain(), kURLErrorDomain);
            EXPECT_FALSE(story.error->localizedDescription().empty());
        }
    }
}

/// The state of a connection when the server fails: what it has done by then, and how a lost
/// connection ends.
struct FaultPhase {
    const char* name;
    /// what the server has written after reading the request's head; nullopt: it has not read
    /// anything
    std::optional<std::string> written;
    std::int64_t cut;
    std::int64_t nonsense;
};

/// What the server does then. Silence ends with -1001.
enum class Fault { Close, Reset, Silence, Nonsense };

TEST(URLSessionFaults, EndsAsDocumentedAtEveryPhase) {
    constexpr std::int64_t kLost = URLErrorNetworkConnectionLost;
    constexpr std::int64_t kUnparsable = URLErrorCannotParseResponse;
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
    const FaultPhase phases[] = {
        {"when it has accepted", std::nullopt, kLost, kUnparsable},
        {"when it has read the head", "", kLost, kUnparsable},
        {"in the status line", "HTTP/1.1 2", kLost, kUnparsable},
        {"between fields", ok + "A: b\r\n", kLost, kUnparsable},
        {"in a field", ok + "A: b\r\nContent-Le", kLost, kUnparsable},
        {"after an interim answer", "HTTP/1.1 100 Continue\r\n\r\n", kLost, kUnparsable},
        {"after the head", ok + "Content-Length: 99\r\n\r\n", kLost, kLost},
        {"in the body", ok + "Content-Length: 99\r\n\r\nhalf", kLost, kLost},
        {"in a chunk's size", chunked + "1", kLost, kLost},
        {"in a chunk", chunked + "20\r\nhalf", kLost, kLost},
        {"between chunks", chunked + "2\r\nab\r\n", kLost, kLost},
        {"in the trailers", chunked + "2\r\nab\r\n0\r\nA: ", kLost, 0},
        {"in a redirection's body",
         "HTTP/1.1 302 Found\r\nLocation: /x\r\nContent-Length: 99\r\n\r\nhalf", kLost, kLost},
        {"in a refusal's body", "HTTP/1.1 500 No\r\nContent-Length: 99\r\n\r\nhalf", kLost, kLost},
    };
    const CertificateAuthority authority;
    const TLSIdentity identity = authority.issue();
    const auto probe = SessionProbe::trusting(authority.certificatePEM());

    for (const bool tls : {false, true}) {
        for (const Fault fault : {Fault::Close, Fault::Reset, Fault::Nonsense, Fault::Silence}) {
            // All at the same time, because the silent ones take their whole timeout.
            std::vector<std::unique_ptr<ScriptedServer>> servers;
            std::vector<std::pair<std::string, std::shared_ptr<URLSessionTask>>> tasks;
            std::vector<std::int64_t> codes;
            for (const FaultPhase& phase : phases) {
                const auto script = [&phase, fault](Connection& connection) {
                    if (phase.written &&
                        (!connection.readHead() || !connection.write(*phase.written)))
                        return;
                    if (!phase.written && fault == Fault::Reset)
                        connection.readSome(
                            1);  // otherwise it may not know yet that it is connected
                    switch (fault) {
                        case Fault::Close: return connection.shutDown();
                        case Fault::Reset: return connection.reset();
                        case Fault::Silence: return connection.waitForClose();
                        case Fault::Nonsense:
                            connection.write("\x01\x02 nonsense\r\n\r\n");
                            connection.shutDown();
                            return connection.waitForClose();  // unread bytes would make it a reset
                    }
                };
                servers.push_back(std::make_unique<ScriptedServer>(
                    script, tls ? std::optional(identity) : std::nullopt));
                for (const char* method : {"GET", "POST", "PUT"}) {
                    auto request = SessionProbe::request(servers.back()->url());
                    request.method = method;
                    request.trust = probe->trust;
                    if (*method == 'P')
                        request.body = Data(std::string(method[1] == 'O' ? 10 : 100'000,
                                                        'x'));  // in one go, or not
                    if (fault == Fault::Silence) request.timeout = 500ms;
                    tasks.emplace_back(
                        std::string(tls ? "TLS " : "plain ") + method + ' ' + phase.name,
                        probe->session->dataTaskWithRequest(request));
                    codes.push_back(fault == Fault::Silence    ? URLErrorTimedOut
                                    : fault == Fault::Nonsense ? phase.nonsense
                                                               : phase.cut);
                    tasks.back().second->resume();
                }
            }
            for (std::size_t i = 0; i < tasks.size(); ++i) {
                const auto story = probe->waitForEnd(tasks[i].second);
                EXPECT_EQ(story.code(), codes[i])
                    << tasks[i].first << ", fault " << static_cast<int>(fault) << story.detail();
                EXPECT_EQ(story.ends, 1) << tasks[i].first;
            }
        }
    }
}

TEST(URLSessionFaults, EndsAsDocumentedWhenTheHandshakeFails) {
    const CertificateAuthority authority;
    const auto probe = SessionProbe::trusting(authority.certificatePEM());
    using Greeting = std::function<bool(Connection&)>;
    const auto afterHello = [](Connection& connection) { return connection.readSome(); };
    const struct {
        const char* why;
        Greeting greeting;
        std::int64_t code;
    } cases[] = {
        {"closes at once", [](Connection&) { return false; }, URLErrorNetworkConnectionLost},
        {"resets after the hello", [&](Connection& c) { return afterHello(c), c.reset(), false; },
         URLErrorNetworkConnectionLost},
        {"speaks HTTP", [&](Connection& c) { return afterHello(c), c.answer(400, "no"), false; },
         URLErrorSecureConnectionFailed},
        {"cuts a record short",
         [&](Connection& c) { return afterHello(c), c.write("\x16\x03\x03\x40"), false; },
         URLErrorNetworkConnectionLost},
        {"refuses by an alert",
         [&](Connection& c) {
             return afterHello(c), c.write({"\x15\x03\x03\x00\x02\x02\x28", 7}), false;
         },
         URLErrorSecureConnectionFailed},
        {"is silent", [](Connection& c) { return c.waitForClose(), false; }, URLErrorTimedOut},
    };
    for (const auto& each : cases) {
        ScriptedServer server([](Connection&) {}, authority.issue(), each.greeting);
        auto request = SessionProbe::request(server.url());
        if (each.code == URLErrorTimedOut) request.timeout = 300ms;
        const auto story = probe->load(request);
        EXPECT_EQ(story.code(), each.code) << each.why << ": " << story.detail();
    }
}

TEST(URLSessionFaults, SendsOnceWhatAKeptConnectionDoesNotAnswer) {
    std::atomic<int> requests{0};
    ScriptedServer server([&](Connection& connection) {
        for (int i = 0; connection.readRequest(); ++i) {
            ++requests;
            if (connection.index() > 0 || i > 0) return;
            connection.answer(200, "ok");
        }
    });
    const auto probe = SessionProbe::make();
    EXPECT_EQ(probe->load(server.url()).body, "ok");
    auto request = SessionProbe::request(server.url());
    request.method = "POST";
    request.body = Data("pay");
    EXPECT_EQ(probe->load(request).code(), URLErrorNetworkConnectionLost);
    EXPECT_EQ(requests, 2) << "libcurl sends again by itself what a kept connection took";
}

TEST(URLSessionFaults, RefusesWhatIsNoRequest) {
    const auto probe = SessionProbe::make();
    EXPECT_EQ(probe->load("http://a b").code(), URLErrorBadURL) << "no URL at all";
    EXPECT_EQ(probe->load("/relative").code(), URLErrorBadURL);
    EXPECT_EQ(probe->load("ftp://127.0.0.1/x").code(), URLErrorUnsupportedURL);
    auto request = SessionProbe::request("http://127.0.0.1:1/");
    request.method = "GET / HTTP/1.1\r\nX-Evil: 1\r\n\r\nGET";
    EXPECT_EQ(probe->load(request).code(), URLErrorBadURL);
}

TEST(URLSessionFaults, SaysWhatIsWrongWithTheWayToTheServer) {
    const auto probe = SessionProbe::make();
    EXPECT_EQ(probe->load("http://127.0.0.1:" + std::to_string(deadPort()) + "/").code(),
              URLErrorCannotConnectToHost);
    // RFC 6761: never resolves
    EXPECT_EQ(probe->load("http://name.invalid/").code(), URLErrorCannotFindHost);

    ScriptedServer resetting([](Connection& connection) {
        connection.readRequest();
        connection.reset();
    });
    EXPECT_EQ(probe->load(resetting.url()).code(), URLErrorNetworkConnectionLost);
}

TEST(URLSessionFaults, BoundsACompressedBomb) {
    const std::string bomb = gzipped(std::string(std::size_t{128} << 20, '\0'));
    ScriptedServer server(ScriptedServer::answering([&](const WireRequest&) {
        return ScriptedServer::text(200, bomb, "Content-Encoding: gzip\r\n");
    }));
    URLSessionConfiguration configuration;
    configuration.maximumAnswerBytes = 8 << 20;
    const auto story = SessionProbe::make(configuration)->load(server.url());
    EXPECT_EQ(story.code(), URLErrorDataLengthExceedsMaximum) << story.detail();
    EXPECT_LE(story.body.size(), std::size_t{8} << 20);
}

TEST(URLSessionFaults, TrustsOnlyWhomItShould) {
    const CertificateAuthority authority;
    const CertificateAuthority stranger("Stranger");
    struct Case {
        const char* why;
        TLSIdentity identity;
        std::int64_t code;
    };
    const Case cases[] = {
        {"as it should be", authority.issue(), 0},
        {"for another host", authority.issue({.host = "other.example"}),
         URLErrorServerCertificateUntrusted},
        {"expired", authority.issue({.endsIn = std::chrono::hours(-1)}),
         URLErrorServerCertificateHasBadDate},
        {"from tomorrow on", authority.issue({.startsIn = std::chrono::hours(20)}),
         URLErrorServerCertificateNotYetValid},
        {"by an unknown authority", stranger.issue(), URLErrorServerCertificateHasUnknownRoot},
    };
    const auto probe = SessionProbe::trusting(authority.certificatePEM());
    const auto plain = SessionProbe::make();
    for (const auto& each : cases) {
        std::atomic<int> requests{0};
        ScriptedServer server(ScriptedServer::answering([&](const WireRequest&) {
                                  ++requests;
                                  return ScriptedServer::text(200, "ok");
                              }),
                              each.identity);
        const auto story = probe->load(server.url());
        EXPECT_EQ(story.code(), each.code) << each.why << ": " << story.detail();
        EXPECT_EQ(story.body, each.code ? "" : "ok") << each.why;
        EXPECT_NE(plain->load(server.url()).code(), 0)
            << "the system knows none of them, whoever was trusted before";
        EXPECT_EQ(requests, each.code ? 0 : 1) << "what is signed must not reach the wrong server";
    }
}

}  // namespace
}  // namespace vexim::testing
