// How a session follows redirections, and what it takes along.

#include <gtest/gtest.h>

#include "VexIMLib/internal/Platform/Loading/Redirection.h"
#include "platform/SessionProbe.h"
#include "support/ScriptedServer.h"

namespace vexim::testing {
namespace {

TEST(URLSession, LetsTheDelegateDecideAboutRedirections) {
    struct Case {
        const char* why;
        int status;
        const char* method;
        const char* expected;  // method and body of the second request
    };
    const Case cases[] = {
        {"303 is answered elsewhere", 303, "POST", "GET "},
        {"302 turns a POST into a GET, as everyone does", 302, "POST", "GET "},
        {"302 leaves other methods", 302, "PUT", "PUT body"},
        {"307 keeps method and body", 307, "POST", "POST body"},
        {"308 too", 308, "POST", "POST body"},
        {"303 leaves a HEAD", 303, "HEAD", "HEAD body"},
    };
    for (const auto& each : cases) {
        ScriptedServer server(ScriptedServer::answering([&](const WireRequest& request) {
            if (request.target == "/b?x=1")
                return ScriptedServer::text(200, request.method + " " + request.body);
            return ScriptedServer::text(each.status, "gone", "Location: ../b?x=1\r\n");
        }));
        const auto probe = SessionProbe::make();
        auto request = SessionProbe::request(server.url("/dir/a"));
        request.method = each.method;
        request.body = Data("body");
        const auto task = probe->session->dataTaskWithRequest(request);
        const auto story = probe->run(task);
        EXPECT_EQ(story.body, each.expected) << each.why << story.detail();
        EXPECT_EQ(story.calls.find('h'), 1u) << story.calls;
        const bool isSentTwice = std::string_view(each.expected).ends_with("body");
        EXPECT_EQ(story.sent, isSentTwice ? 8 : 4) << "each time is told from its beginning";
        EXPECT_EQ(task->originalRequest()->url->path(), "/dir/a");
        EXPECT_EQ(task->currentRequest()->url->path(), "/b");
    }
}

TEST(URLSession, TakesARefusedRedirectionAsTheAnswer) {
    // the whole answer is held back while the delegate is asked
    for (const std::size_t length : {std::size_t{4}, std::size_t{3'000'000}}) {
        ScriptedServer server(ScriptedServer::answering([&](const WireRequest&) {
            return ScriptedServer::text(302, std::string(length, 'x'), "Location: /b\r\n");
        }));
        const auto probe = SessionProbe::make();
        probe->onRedirection = [](auto&, auto&, auto handler) { handler(std::nullopt); };
        const auto refused = probe->load(server.url());
        EXPECT_EQ(refused.status, 302) << refused.detail();
        EXPECT_EQ(refused.body.size(), length);

        probe->onRedirection = [](auto&, auto&, auto) {};  // dropped without an answer
        EXPECT_EQ(probe->load(server.url()).body.size(), length);
    }
}

TEST(URLSession, FollowsARedirectionWhoseBodyDoesNotEnd) {
    ScriptedServer server([](ScriptedServer::Connection& connection) {
        const auto request = connection.readRequest();
        if (!request) return;
        if (request->target == "/end") {
            connection.answer(200, "ok");
            return;
        }
        connection.write("HTTP/1.1 302 Found\r\nLocation: /end\r\n\r\n" +
                         std::string(100'000, 'x'));
        connection.waitForClose();
    });
    EXPECT_EQ(SessionProbe::make()->load(server.url()).body, "ok");
}

TEST(URLSession, GivesUpAfterTwentyHops) {
    std::atomic<int> requests{0};
    ScriptedServer server(ScriptedServer::answering([&](const WireRequest&) {
        ++requests;
        return ScriptedServer::text(302, "", "Location: /again\r\n");
    }));
    const auto probe = SessionProbe::make();
    EXPECT_EQ(probe->load(server.url()).code(), URLErrorHTTPTooManyRedirects);
    EXPECT_EQ(requests, 21);
}

TEST(URLSession, DropsCredentialsOnTheWayToAnotherOrigin) {
    URLRequest request;
    request.url = URL::parse("https://a.example/");
    request.headers = {{"Authorization", "secret"},
                       {"Cookie", "secret"},
                       {"Proxy-Authorization", "secret"},
                       {"X-Key", "1"}};
    const std::pair<const char*, bool> cases[] = {
        {"/x", true},
        {"https://A.example:443/x", true},  // its usual port, spelled out
        {"https://b.example/x", false},
        {"https://a.example:8443/x", false},
        {"http://a.example/x", false},
        {"https://a.example.b.example/x", false},
    };
    for (const auto& [location, isSame] : cases) {
        const auto next = redirectedRequest(request, {*request.url, 307, {{"Location", location}}});
        ASSERT_TRUE(next) << location;
        const auto kept = isSame ? request.headers : HTTPHeaderFields{{"X-Key", "1"}};
        EXPECT_EQ(next->headers, kept) << location;
    }
    request.method = "POST";
    request.headers = {{"Content-Type", "a/b"}, {"X-Key", "1"}};
    request.bodyStream = InputStream::withData(Data("body"));
    const auto get = redirectedRequest(request, {*request.url, 302, {{"Location", "/x"}}});
    EXPECT_FALSE(get->bodyStream);
    EXPECT_EQ(get->headers, (HTTPHeaderFields{{"X-Key", "1"}})) << "no body, no type";
    EXPECT_FALSE(redirectedRequest(request, {*request.url, 304, {{"Location", "/x"}}}));
    EXPECT_FALSE(redirectedRequest(request, {*request.url, 302, {}}));
}

}  // namespace
}  // namespace vexim::testing
