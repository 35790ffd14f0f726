// What a session does when peers misbehave, or are not who they should be.

#include <gtest/gtest.h>

#include "platform/SessionProbe.h"
#include "support/Certificates.h"
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
        {"a body cut short", ok + "Content-Length: 10\r\n\r\nhalf", URLErrorNetworkConnectionLost, "half"},
        {"no length, ended by closing", ok + "\r\nall of it", 0, "all of it"},
        {"more than announced", ok + "Content-Length: 3\r\n\r\nabcHTTP/1.1 200 OK\r\n\r\n", 0, "abc"},
        {"the same length twice", ok + "Content-Length: 2\r\nContent-Length: 2\r\n\r\nab", 0, "ab"},
        {"two lengths", ok + "Content-Length: 2\r\nContent-Length: 3\r\n\r\nab", URLErrorCannotParseResponse, ""},
        {"two lengths in one", ok + "Content-Length: 2, 3\r\n\r\nab", URLErrorCannotParseResponse, ""},
        {"a negative length", ok + "Content-Length: -5\r\n\r\nab", URLErrorCannotParseResponse, ""},
        {"a length that is no number", ok + "Content-Length: 2x\r\n\r\nab", URLErrorCannotParseResponse, ""},
        {"a length beyond 64 bits", ok + "Content-Length: 99999999999999999999\r\n\r\nab", URLErrorCannotParseResponse, ""},
        {"chunks win over a length", ok + "Content-Length: 99\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab\r\n0\r\n\r\n", 0, "ab"},
        {"a chunk size that is none", ok + "Transfer-Encoding: chunked\r\n\r\nzz\r\n", URLErrorNetworkConnectionLost, ""},
        {"a chunk cut short", ok + "Transfer-Encoding: chunked\r\n\r\n9\r\nab", URLErrorNetworkConnectionLost, "ab"},
        {"no last chunk", ok + "Transfer-Encoding: chunked\r\n\r\n2\r\nab\r\n", URLErrorNetworkConnectionLost, "ab"},
        {"no gzip though it says so", ok + "Content-Encoding: gzip\r\nContent-Length: 5\r\n\r\nplain",
         URLErrorCannotDecodeContentData, ""},
        {"interim answers first",
         "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Hints\r\nX: y\r\n\r\n" + ok + "Content-Length: 2\r\n\r\nok", 0, "ok"},
        {"no content", "HTTP/1.1 204 No Content\r\n\r\n", 0, ""},
        {"a head without end", ok + std::string(2'000'000, 'x'), URLErrorCannotParseResponse, ""},
        {"endless fields",
         ok +
             [] {
                 std::string fields;
                 for (int i = 0; i < 40'000; ++i) fields += "X-Field-Number: " + std::to_string(i) + "\r\n";
                 return fields;
             }(),
         URLErrorCannotParseResponse, ""},
        {"a redirection to another scheme", "HTTP/1.1 302 Found\r\nLocation: file:///etc/passwd\r\nContent-Length: 0\r\n\r\n",
         URLErrorUnsupportedURL, ""},
        {"a redirection to nowhere", "HTTP/1.1 302 Found\r\nLocation: http://[\r\nContent-Length: 2\r\n\r\nab", 0, "ab"},
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
        if (story.error) {
            EXPECT_EQ(story.error->domain(), kURLErrorDomain);
            EXPECT_FALSE(story.error->localizedDescription().empty());
        }
    }
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
    EXPECT_EQ(probe->load("http://127.0.0.1:" + std::to_string(deadPort()) + "/").code(), URLErrorCannotConnectToHost);
    EXPECT_EQ(probe->load("http://name.invalid/").code(), URLErrorCannotFindHost);  // RFC 6761: never resolves

    ScriptedServer resetting([](Connection& connection) {
        connection.readRequest();
        connection.reset();
    });
    EXPECT_EQ(probe->load(resetting.url()).code(), URLErrorNetworkConnectionLost);
}

TEST(URLSessionFaults, TimesOutOnlyForSilence) {
    ScriptedServer server([](Connection& connection) {
        const auto request = connection.readRequest();
        if (!request) return;
        if (request->target == "/slow") {
            connection.write("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\n");
            for (const char byte : std::string_view("slowly")) {
                if (!connection.pause(120ms)) return;
                connection.write({&byte, 1});
            }
            return;
        }
        if (request->target == "/middle") connection.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
        connection.waitForClose();
    });
    URLSessionConfiguration configuration;
    const auto probe = SessionProbe::make(configuration);
    for (const char* path : {"/silent", "/middle"}) {
        auto request = SessionProbe::request(server.url(path));
        request.timeout = 200ms;
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(probe->load(request).code(), URLErrorTimedOut) << path;
        EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    }
    auto slow = SessionProbe::request(server.url("/slow"));
    slow.timeout = 400ms;
    EXPECT_EQ(probe->load(slow).body, "slowly") << "longer than the timeout, but never silent for so long";

    configuration.timeoutForResource = 1s;
    EXPECT_EQ(SessionProbe::make(configuration)->load(server.url("/silent")).code(), URLErrorTimedOut) << "altogether";
}

TEST(URLSessionFaults, BoundsACompressedBomb) {
    const std::string bomb = gzipped(std::string(std::size_t{128} << 20, '\0'));
    ScriptedServer server(ScriptedServer::answering(
        [&](const WireRequest&) { return ScriptedServer::text(200, bomb, "Content-Encoding: gzip\r\n"); }));
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
        {"for another host", authority.issue({.host = "other.example"}), URLErrorServerCertificateUntrusted},
        {"expired", authority.issue({.endsIn = std::chrono::hours(-1)}), URLErrorServerCertificateHasBadDate},
        {"from tomorrow on", authority.issue({.startsIn = std::chrono::hours(20)}), URLErrorServerCertificateNotYetValid},
        {"by an unknown authority", stranger.issue(), URLErrorServerCertificateHasUnknownRoot},
    };
    URLSessionConfiguration configuration;
    configuration.certificateAuthorityPEM = authority.certificatePEM();
    const auto probe = SessionProbe::make(configuration);
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
        EXPECT_NE(plain->load(server.url()).code(), 0) << "the system knows none of them, whoever was trusted before";
        EXPECT_EQ(requests, each.code ? 0 : 1) << "what is signed must not reach the wrong server";
    }
}

}  // namespace
}  // namespace vexim::testing
