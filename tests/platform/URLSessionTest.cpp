// How a session works with correct servers.

#include <gtest/gtest.h>
#include <httplib.h>

#include <thread>

#include "VexIMLib/Foundation/Exception.h"
#include "platform/SessionProbe.h"
#include "support/Eventually.h"
#include "support/Gzip.h"
#include "support/LogCapture.h"
#include "support/ScriptedServer.h"

namespace vexim::testing {
namespace {

using State = URLSessionTaskState;
using namespace std::chrono_literals;

/// A well-kept server library on a free port.
class HTTPServer {
public:
    explicit HTTPServer(const std::function<void(httplib::Server&)>& setUp) {
        setUp(server_);
        server_.set_keep_alive_max_count(1);  // otherwise `stop` waits for idle connections
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) std::this_thread::yield();
    }
    ~HTTPServer() {
        server_.stop();
        thread_.join();
    }
    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
};

TEST(URLSession, TellsATasksStoryInOrder) {
    HTTPServer server([](httplib::Server& http) {
        http.Post("/echo", [](const httplib::Request& request, httplib::Response& response) {
            response.status = 201;
            response.set_content(request.body + "/" + request.get_header_value("X-Key"),
                                 "application/octet-stream");
        });
    });
    const auto probe = SessionProbe::make();
    auto request = SessionProbe::request(server.url("/echo"));
    request.method = "POST";
    request.body = Data("hello");
    request.headers.set("X-Key", "42");
    const auto task = probe->session->dataTaskWithRequest(request);
    std::vector<int> states;
    task->addObserver(task, "state", [&](Object&, const KeyValueChange& change) {
        states.push_back(change.newValue.intValue());
    });
    EXPECT_EQ(task->state(), State::Suspended);

    task->resume();  // once is enough
    const auto story = probe->run(task);
    EXPECT_EQ(story.calls, "srde") << story.detail();
    EXPECT_EQ(story.status, 201);
    EXPECT_EQ(story.body, "hello/42");
    EXPECT_EQ(story.sent, 5);
    EXPECT_EQ(task->countOfBytesReceived(), 8);
    EXPECT_EQ(task->countOfBytesExpectedToReceive(), 8);
    EXPECT_EQ(story.toSend, 5);
    EXPECT_EQ(states, (std::vector{0, 3}));
    EXPECT_EQ(task->error(), nullptr);
    EXPECT_EQ(task->response()->headers.value("content-type"), "application/octet-stream");
}

TEST(URLSession, SendsWhatTheRequestSaysAndNothingElse) {
    std::vector<WireRequest> seen;
    ScriptedServer server(ScriptedServer::answering([&](const WireRequest& request) {
        seen.push_back(request);
        return ScriptedServer::text(200, "ok", "Set-Cookie: a=b\r\nCache-Control: max-age=60\r\n");
    }));
    const auto probe = SessionProbe::make();
    auto request = SessionProbe::request(server.url("/ctx/../u%2Fv?q=a&b"));
    request.headers.set("X-First", "1");
    request.headers.set("x-FIRST", "2");  // the same field in another spelling
    request.headers.set("X-Empty", "");
    request.headers.set("X-Smuggled", "a\r\nX-Evil: 1");
    request.headers.set("Bad Name", "x");
    request.headers.set("Content-Length", "987654321");
    for (const char* method : {"GET", "DELETE", "POST", "PUT", "HEAD"}) {
        request.method = method;
        EXPECT_EQ(probe->load(request).status, 200) << method;
    }
    ASSERT_EQ(seen.size(), 5u);
    EXPECT_EQ(server.connectionCount(), 1) << "connections are used again";
    EXPECT_EQ(seen[0].target, "/ctx/../u%2Fv?q=a&b") << "paths are sent as they stand";
    for (const auto& wire : seen) {
        EXPECT_NE(wire.head.find("x-FIRST: 2\r\nX-Empty:\r\n"), std::string::npos) << wire.head;
        for (const char* absent : {"Evil", "Bad Name", "X-First", "Cookie", "If-", "Expect",
                                   "Content-Type", "User-Agent", "987654321"}) {
            EXPECT_EQ(wire.head.find(absent), std::string::npos) << absent << " in " << wire.head;
        }
        const bool announcesBody = wire.method == "POST" || wire.method == "PUT";
        EXPECT_EQ(wire.header("Content-Length"), announcesBody ? "0" : "") << wire.method;
        EXPECT_NE(wire.header("Accept-Encoding").find("gzip"), std::string::npos);
    }

    request.acceptsCompression = false;
    probe->load(request);
    EXPECT_EQ(seen.back().header("Accept-Encoding"), "");
}

TEST(URLSession, GivesOneHandleOneTargetAfterTheOther) {
    // Requests reuse libcurl's handles, which keep every option that the next request does not set.
    std::vector<WireRequest> seen;
    const auto script = ScriptedServer::answering([&](const WireRequest& request) {
        seen.push_back(request);
        return ScriptedServer::text(200, request.header("Host"));
    });
    ScriptedServer servers[] = {ScriptedServer(script), ScriptedServer(script)};
    const auto probe = SessionProbe::make();
    const struct {
        const char* why;
        std::string path, target;
        std::string user = {};
    } cases[] = {
        {"a path alone", "/a", "/a"},
        {"a query", "/a?x=1&y=/2", "/a?x=1&y=/2"},
        {"no query after one", "/b", "/b"},
        {"an empty query", "/b?", "/b?"},
        {"no path", "", "/"},
        {"no path, and a slash in the query", "?x=/1", "/?x=/1"},
        {"slashes and dots stand for themselves", "//a/./../b//", "//a/./../b//"},
        {"so do escapes, in either case", "/%E4%e4?x=%C3%A4", "/%E4%e4?x=%C3%A4"},
        {"a fragment stays here", "/a?x#y", "/a?x"},
        {"a fragment without a query", "/c#y?z", "/c"},
        {"credentials", "/a", "/a", "me:secret@"},
        {"no credentials after some", "/a", "/a"},
    };
    for (const auto& server : servers) {
        for (const auto& [why, path, target, user] : cases) {
            const auto host = "127.0.0.1:" + std::to_string(server.port());
            seen.clear();
            EXPECT_EQ(probe->load("http://" + user + host + path).body, host) << why;
            ASSERT_EQ(seen.size(), 1u) << why;
            EXPECT_EQ(seen[0].target, target) << why;
            EXPECT_EQ(seen[0].header("Authorization").empty(), user.empty()) << why;
        }
    }
}

TEST(URLSession, DecodesCompressedAnswersUnlessAskedNotTo) {
    const std::string gzip = gzipped("hello hello hello");
    ScriptedServer server(ScriptedServer::answering([&](const WireRequest& request) {
        if (request.target == "/plain")
            return ScriptedServer::text(200, "plain", "Content-Encoding: identity\r\n");
        return ScriptedServer::text(200, gzip, "Content-Encoding: gzip\r\n");
    }));
    const auto probe = SessionProbe::make();
    const auto plain = probe->task(server.url("/plain"));
    EXPECT_EQ(probe->run(plain).body, "plain");
    EXPECT_EQ(plain->countOfBytesExpectedToReceive(), 5);
    const auto task = probe->task(server.url());
    const auto story = probe->run(task);
    EXPECT_EQ(story.body, "hello hello hello") << story.detail();
    EXPECT_EQ(task->countOfBytesExpectedToReceive(), -1);

    auto raw = SessionProbe::request(server.url());
    raw.acceptsCompression = false;
    EXPECT_EQ(probe->load(raw).body, gzip);
    auto own = SessionProbe::request(server.url());
    own.headers.set("Accept-Encoding", "gzip");
    EXPECT_EQ(probe->load(own).body, gzip) << "who asks for it decodes it";
}

TEST(URLSession, WaitsForNoBodyOfAHead) {
    ScriptedServer server([](ScriptedServer::Connection& connection) {
        connection.readRequest();
        connection.write("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n");
        connection.waitForClose();
    });
    auto request = SessionProbe::request(server.url());
    request.method = "HEAD";
    const auto story = SessionProbe::make()->load(request);
    EXPECT_EQ(story.calls, "re");
    EXPECT_EQ(story.code(), 0) << story.detail();
}

TEST(URLSession, LogsNothingOfWhatADelegateSaysAtTheEnd) {
    struct Raising final : URLSessionDelegate {
        void taskDidCompleteWithError(URLSession&, const TaskPtr&, const ErrorPtr&) override {
            throw Exception(kInvalidArgumentException, "secret");
        }
    };
    const LogCapture log;
    const auto delegate = std::make_shared<Raising>();
    const auto session = URLSession::create({}, delegate, OperationQueue::create("raising"));
    session->dataTaskWithRequest(SessionProbe::request("nonsense://x"))->resume();
    ASSERT_TRUE(spinUntil([&] { return !log.lines().empty(); }));
    EXPECT_EQ(log.lines()[0], "The delegate raised NSInvalidArgumentException at a task's end.");
}

TEST(URLSession, WaitsForTheDelegateToAllowAResponse) {
    ScriptedServer server(ScriptedServer::answering(
        [](const WireRequest&) { return ScriptedServer::text(200, "body"); }));
    const auto probe = SessionProbe::make();
    std::function<void(URLSessionResponseDisposition)> kept;
    std::mutex mutex;
    probe->onResponse = [&](auto&, auto handler) {
        const std::lock_guard lock(mutex);
        kept = handler;
    };
    const auto later = probe->task(server.url());
    later->resume();
    ASSERT_TRUE(
        probe->waitUntil(later, [](const TaskStory& story) { return story.status == 200; }));
    probe->load("nonsense://x");  // meanwhile another task runs on the same queue
    EXPECT_EQ(probe->story(later).calls, "r");
    {
        const std::lock_guard lock(mutex);
        std::exchange(kept, nullptr)(URLSessionResponseDisposition::Allow);
    }
    EXPECT_EQ(probe->waitForEnd(later).body, "body");

    const auto cancelled = probe->task(server.url());
    cancelled->resume();
    ASSERT_TRUE(
        probe->waitUntil(cancelled, [](const TaskStory& story) { return story.status == 200; }));
    cancelled->cancel();  // before the question is answered
    EXPECT_EQ(probe->waitForEnd(cancelled).code(), URLErrorCancelled);

    probe->onResponse = [](auto&, auto handler) { handler(URLSessionResponseDisposition::Cancel); };
    EXPECT_EQ(probe->load(server.url()).code(), URLErrorCancelled);
    probe->onResponse = [](auto&, auto) {};
    const auto dropped = probe->load(server.url());
    EXPECT_EQ(dropped.code(), URLErrorCancelled);
    EXPECT_EQ(dropped.calls, "re");
}

TEST(URLSession, BoundsAnswersHeldInMemory) {
    const std::string body(300'000, 'x');
    ScriptedServer server(ScriptedServer::answering([&](const WireRequest& request) {
        if (request.target == "/chunked")
            return "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n493e0\r\n" + body +
                   "\r\n0\r\n\r\n";
        return ScriptedServer::text(200, body);
    }));
    URLSessionConfiguration configuration;
    configuration.maximumAnswerBytes = 100'000;
    const auto probe = SessionProbe::make(configuration);
    for (const char* path : {"/announced", "/chunked"}) {
        const auto story = probe->load(server.url(path));
        EXPECT_EQ(story.code(), URLErrorDataLengthExceedsMaximum) << path;
        EXPECT_LE(story.body.size(), 100'000u);
        if (path[1] == 'a') {
            EXPECT_EQ(story.calls, "re") << "known from its head";
        }

        probe->onResponse = [](auto& task, auto handler) {
            task->setAnswerIsStreamed(true);
            handler(URLSessionResponseDisposition::Allow);
        };
        auto streamed = SessionProbe::request(server.url(path));
        streamed.acceptsCompression = false;
        EXPECT_EQ(probe->load(streamed).body, body) << path;
        probe->onResponse = nullptr;
    }
    configuration.maximumAnswerBytes = 300'000;
    EXPECT_EQ(SessionProbe::make(configuration)->load(server.url("/chunked")).body, body)
        << "just as much";
}

TEST(URLSession, EndsACancelledTaskOnceWhereverItStands) {
    ScriptedServer server([](ScriptedServer::Connection& connection) {
        connection.readRequest();
        connection.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
        connection.waitForClose();
    });
    const auto probe = SessionProbe::make();
    const auto suspended = probe->task(server.url());
    suspended->cancel();
    suspended->resume();
    EXPECT_EQ(probe->waitForEnd(suspended).calls, "e");
    EXPECT_EQ(server.connectionCount(), 0);

    const auto atOnce = probe->task(server.url());
    atOnce->resume();
    atOnce->cancel();
    atOnce->cancel();
    EXPECT_EQ(probe->waitForEnd(atOnce).code(), URLErrorCancelled);

    const auto midway = probe->task(server.url());
    midway->resume();
    ASSERT_TRUE(
        probe->waitUntil(midway, [](const TaskStory& story) { return story.body == "half"; }));
    midway->cancel();
    EXPECT_EQ(probe->waitForEnd(midway).code(), URLErrorCancelled);
    EXPECT_EQ(midway->state(), State::Completed);
    midway->cancel();

    probe->onData = [](auto& task, auto&) { task->cancel(); };  // inside its own callback
    EXPECT_EQ(probe->load(server.url()).code(), URLErrorCancelled);
    probe->onData = [](auto&, auto&) { throw Exception(kInvalidArgumentException, "no such key"); };
    const auto thrown = probe->load(server.url());
    EXPECT_NE(thrown.error->localizedDescription().find("no such key"), std::string::npos);
    for (const auto& task : {suspended, atOnce, midway}) EXPECT_EQ(probe->story(task).ends, 1);
}

TEST(URLSession, OutlivesWhoeverStartedIt) {
    ScriptedServer server(ScriptedServer::answering(
        [](const WireRequest&) { return ScriptedServer::text(200, "ok"); }));
    struct Ending final : URLSessionDelegate {
        std::shared_ptr<std::atomic<int>> ends;
        void taskDidCompleteWithError(URLSession&, const TaskPtr&, const ErrorPtr& error) override {
            *ends += error ? 100 : 1;
        }
    };
    const auto ends = std::make_shared<std::atomic<int>>(0);
    std::vector<std::weak_ptr<void>> held;
    std::vector<std::shared_ptr<URLSessionTask>> tasks;
    for (int i = 0; i < 20; ++i) {
        const auto delegate = std::make_shared<Ending>();
        delegate->ends = ends;
        const auto session =
            URLSession::create({}, delegate, OperationQueue::create("short-lived"));
        // never resumed, released
        held.push_back(session->dataTaskWithRequest(SessionProbe::request(server.url())));
        auto task = session->dataTaskWithRequest(SessionProbe::request(server.url()));
        task->resume();
        held.push_back(delegate);
        i % 2 ? held.push_back(std::move(task)) : tasks.push_back(std::move(task));
    }
    EXPECT_TRUE(spinUntil([&] { return *ends == 20; })) << *ends;
    for (const auto& each : held) EXPECT_TRUE(spinUntil([&] { return each.expired(); }));
}

TEST(URLSession, RunsManyTasksAtOnce) {
    HTTPServer server([](httplib::Server& http) {
        http.new_task_queue = [] { return new httplib::ThreadPool(32); };
        http.Get(R"(/(\d+))", [](const httplib::Request& request, httplib::Response& response) {
            response.set_content(
                std::string(static_cast<std::size_t>(std::stoi(request.matches[1])), 'x'),
                "text/plain");
        });
    });
    const auto probe = SessionProbe::make();
    std::vector<std::pair<std::size_t, std::shared_ptr<URLSessionTask>>> tasks;
    for (std::size_t i = 0; i < 200; ++i)
        tasks.emplace_back(i * 37, probe->task(server.url("/" + std::to_string(i * 37))));
    for (const auto& [size, task] : tasks) task->resume();
    for (const auto& [size, task] : tasks)
        EXPECT_EQ(probe->waitForEnd(task).body.size(), size) << probe->story(task).detail();
}

}  // namespace
}  // namespace vexim::testing
