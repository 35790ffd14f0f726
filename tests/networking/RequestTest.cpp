#include <atomic>
#include <limits>
#include <thread>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/Random.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/VXIMMetrics.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Platform/Facts/EventRecord.h"
#include "networking/NetworkingFixture.h"
#include "support/Completions.h"
#include "support/Eventually.h"

using namespace std::chrono_literals;
using namespace vexim;
using namespace vexim::testing;

namespace {

TEST_F(RequestTest, TheShortcutsSendMethodPathQueryHeadersAndBody) {
    answerEverything(200, "{}");
    outcomeOf([](VXIMResultCompletion done) {
        VXIMHTTPRequest::get("/rooms", Dictionary{{"name", "a b"}, {"q", "x&y"}}, std::move(done));
    });
    outcomeOf([](VXIMResultCompletion done) {
        VXIMHTTPRequest::get("rooms", std::nullopt, std::move(done));
    });
    outcomeOf([](VXIMResultCompletion done) {
        VXIMHTTPRequest::post("/groups", Dictionary{{"n", 1}}, std::move(done));
    });
    outcomeOf([](VXIMResultCompletion done) {
        VXIMHTTPRequest::put("/groups/1", Array{"a", true}, std::move(done));
    });
    outcomeOf([](VXIMResultCompletion done) {
        VXIMHTTPRequest::deletePath("/groups/1", Dictionary{{"ids", Array{"7"}}}, std::move(done));
    });
    outcomeOf([](VXIMResultCompletion done) {
        VXIMHTTPRequest::post("/empty", nullptr, std::move(done));
    });

    const auto sent = requests();
    const char* expected[] = {
        "GET /rooms?name=a%20b&q=x&y ",      "GET /rooms ",
        R"(POST /groups {"n":1})",           R"(PUT /groups/1 ["a",true])",
        R"(DELETE /groups/1 {"ids":["7"]})", "POST /empty ",
    };
    ASSERT_EQ(sent.size(), std::size(expected));
    for (std::size_t i = 0; i < sent.size(); ++i) {
        EXPECT_EQ(sent[i].method + ' ' + sent[i].target + ' ' + sent[i].body, expected[i]);
        EXPECT_EQ(sent[i].header("Content-Type"), "application/json");
        EXPECT_EQ(sent[i].header("X-VX-AppId"), "app-1");
        EXPECT_EQ(sent[i].header("X-VX-Request-Sign"),
                  "e8991b63f68a1799f9d206a8c4608ff3,1700000000");
        EXPECT_NE(sent[i].header("User-Agent").find(" iOS/"), std::string::npos);
        EXPECT_EQ(sent[i].head.find("Cookie"), std::string::npos);
        EXPECT_EQ(sent[i].head.find("Expect:"), std::string::npos);
    }
}

TEST_F(RequestTest, AnswersBecomeResultsOrErrors) {
    const struct {
        const char* why;
        int status;
        const char* body;
        const char* outcome;
        std::size_t attempts;
    } cases[] = {
        {"an object", 200, R"({"a":1})", R"({"a":1})", 1},
        {"a list", 201, R"(["u1","u2"])", R"(["u1","u2"])", 1},
        {"an error code of 0 is none", 200, R"({"errorCode":0})", R"({"errorCode":0})", 1},
        {"a negative one neither", 200, R"({"errorCode":-5})", R"({"errorCode":-5})", 1},
        {"what is no number counts as 0", 200, R"({"errorCode":{"a":1}})",
         R"({"errorCode":{"a":1}})", 1},
        {"not JSON", 200, "hello", "bytes \"hello\"", 1},
        {"a fragment is not JSON", 200, "5", "bytes \"5\"", 1},
        {"nothing", 204, "", "bytes \"\"", 1},
        {"an error in a success is temporary", 200, R"({"errorCode":1001,"errorMessage":"x"})",
         R"(VXErrorDomain 1001 "x" temporary)", 3},
        {"a code in text counts", 200, R"({"errorCode":"1001","errorMessage":"x"})",
         R"(VXErrorDomain 1001 "x" temporary)", 3},
        {"a refusal is final", 404, R"({"errorCode":404,"errorMessage":"no group"})",
         R"(VXErrorDomain 404 "no group" over NSURLErrorDomain -1011)", 1},
        {"a refusal without JSON", 404, "gone",
         R"(VXErrorDomain 100 "Request failed: 404 not found" over NSURLErrorDomain -1011)", 1},
        {"a refusal with other JSON", 499, "[1]",
         R"(VXErrorDomain 100 "Request failed: 499 client error" over NSURLErrorDomain -1011)", 1},
        {"a failure without a body", 500, "",
         R"(VXErrorDomain 100 "Request failed: 500 internal server error" temporary over NSURLErrorDomain -1011)",
         3},
        {"a failure with a code", 503, R"({"errorCode":7,"errorMessage":"busy"})",
         R"(VXErrorDomain 7 "busy" temporary over NSURLErrorDomain -1011)", 3},
        {"just beyond a success", 300, "",
         R"(VXErrorDomain 100 "Request failed: 300 multiple choices" temporary over NSURLErrorDomain -1011)",
         3},
        {"an error that names its cause", 400, R"({"errorCode":3,"NSUnderlyingError":"theirs"})",
         R"x(VXErrorDomain 3 "The operation couldn’t be completed. (VXErrorDomain error 3.)")x", 1},
        {"a redirection to nowhere", 304, "",
         R"(VXErrorDomain 100 "Request failed: 304 not modified" temporary over NSURLErrorDomain -1011)",
         3},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.why);
        const auto before = requests().size();
        answerEverything(test.status, test.body);
        EXPECT_EQ(get(), test.outcome);
        EXPECT_EQ(requests().size() - before, test.attempts);
    }
}

TEST_F(RequestTest, IsCountedByItsOutcome) {
    const struct {
        int status;
        const char* outcome;
        double attempts;
        double seconds;
    } cases[] = {
        {200, "success", 1, 3},
        {404, "refused", 1, 3},
        {503, "failed", 3, 9},
        {0, "no answer", 3, 9},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.outcome);
        const auto metrics = VXIMMetrics::init();
        serve([&](Connection& connection) {
            if (!connection.readRequest()) return;
            clock.advance(3s);
            if (test.status != 0) connection.answer(test.status, "12345");
        });
        vxim_configuration->setMetrics(metrics);
        outcomeOf([](VXIMResultCompletion done) {
            VXIMHTTPRequest::post("/groups", Dictionary{{"n", 1}}, std::move(done));
        });
        const auto total = [&](const char* name, const VXIMMetricLabels& labels = {}) {
            return metrics->total(std::string("vexim_request") + name, labels);
        };
        EXPECT_EQ(total("_duration_seconds", {{"outcome", test.outcome}}), test.attempts);
        EXPECT_EQ(total("_duration_seconds"), test.attempts) << "and as nothing else";
        EXPECT_EQ(total("_retries_total"), test.attempts - 1);
        EXPECT_EQ(total("s_sent_bytes_total"), test.attempts * 7);
        EXPECT_EQ(total("s_received_bytes_total"), test.status != 0 ? test.attempts * 5 : 0);
        double seconds = 0;
        for (const auto& metric : metrics->read()) {
            if (metric.name != "vexim_request_duration_seconds") continue;
            for (const auto& series : metric.series) seconds += series.value;
        }
        // a retry may begin up to a second before the clock's next step
        EXPECT_GE(seconds, test.seconds);
        EXPECT_LE(seconds, test.seconds + test.attempts - 1);
    }
}

TEST_F(RequestTest, TheErrorCarriesTheWholeBody) {
    answerEverything(400, R"({"errorCode":12,"errorMessage":"taken","field":"name"})");
    ErrorPtr error;
    VXIMHTTPRequest::get("/x", Dictionary{{"page", "2"}},
                         once([&](const Value&, const ErrorPtr& e) { error = e; }));
    ASSERT_TRUE(eventually([&] { return error != nullptr; }));
    EXPECT_EQ(error->info("field"), Value("name"));
    EXPECT_EQ(error->info("errorCode"), Value(12));
    EXPECT_EQ(error->info("errorMessage"), Value("taken"));
    EXPECT_EQ(error->info(vexim::kLocalizedDescriptionKey), Value("taken"));
    ASSERT_TRUE(error->underlyingError());
    EXPECT_EQ(error->underlyingError()->info(vexim::kFailingURLKey),
              Value(server->url("/x?page=2")));
}

TEST_F(RequestTest, AFailureIsRecordedWithoutItsWords) {
    serve([&](Connection& connection) {
        connection.readRequest();
        clock.advance(1234600us);
        connection.answer(404, R"({"errorCode":404,"errorMessage":"no group secret"})");
    });
    get("/secret?token=secret");
    EXPECT_EQ(EventRecord::ofRequests().events().back().details,
              Dictionary({{"method", "GET"},
                          {"domain", "VXErrorDomain"},
                          {"code", 404},
                          {"underlying", -1011},
                          {"host", "127.0.0.1"},
                          {"status", 404},
                          {"seconds", 1.235}}));
}

TEST_F(RequestTest, ALostConnectionIsTemporaryAndTriedThreeTimes) {
    std::atomic<int> attempts{0};
    serve([&](Connection& connection) {
        connection.readRequest();
        ++attempts;
        connection.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n{\"a\"");
    });
    EXPECT_TRUE(get().ends_with(" temporary over NSURLErrorDomain -1005"));
    EXPECT_EQ(attempts, 3);

    attempts = 0;
    serve([&](Connection& connection) {
        if (connection.index() == 0 && connection.readRequest()) connection.answer(200, "{}");
        attempts += connection.readRequest() ? 1 : 0;
    });
    EXPECT_EQ(get(), "{}");
    EXPECT_TRUE(get().ends_with(" temporary over NSURLErrorDomain -1005"));
    EXPECT_EQ(attempts, 3) << "also when the first one went to a kept connection";

    pointAt("http://127.0.0.1:" + std::to_string(deadPort()));
    EXPECT_TRUE(get().ends_with(" temporary over NSURLErrorDomain -1004"));

    serve([](Connection& connection) { connection.readSome(); });
    pointAt("https" + server->url("").substr(4));
    EXPECT_TRUE(get().ends_with(
        "\"TLS failed: the server closed the connection.\" temporary over NSURLErrorDomain -1005"));
    EXPECT_EQ(server->connectionCount(), 3);
}

TEST_F(RequestTest, WithoutAUsableURLNothingIsSent) {
    answerEverything(200, "{}");
    EXPECT_TRUE(get("/ctx/a b").ends_with("over NSURLErrorDomain -1000"))
        << "an id with a blank makes no URL";
    vxim_configuration = nullptr;
    EXPECT_TRUE(get().starts_with("VXErrorDomain 100")) << "no client, no origin";
    EXPECT_TRUE(requests().empty());
}

/// Returns the given numbers, one after the other.
class FixedRandom : public vexim::Random {
public:
    explicit FixedRandom(std::vector<std::uint32_t> numbers) : numbers_(std::move(numbers)) {}
    std::uint32_t next32() override { return numbers_[next_++ % numbers_.size()]; }

private:
    const std::vector<std::uint32_t> numbers_;
    std::atomic<std::size_t> next_{0};
};

TEST_F(RequestTest, RetriesComeAfterOneToTwoSecondsEachSignedAnew) {
    answerEverything(500, "");
    vexim::Random::setShared(
        std::make_shared<FixedRandom>(std::vector<std::uint32_t>{0xABCD0000, 0xABCDFFFF}));
    auto request = VXIMRequest::request();
    int reports = 0;
    request->sendWithCompletion(once([&](const Value&, const ErrorPtr&) { ++reports; }));
    const auto waitsFor = [&](std::chrono::nanoseconds delay) {
        return eventually(
            [&] { return MainQueue::shared().nextDeadline() == clock.now() + delay; });
    };

    EXPECT_TRUE(waitsFor(1s)) << "16 random bits of 0";
    EXPECT_EQ(request->retryCount(), 1);
    clock.advance(1s);
    EXPECT_TRUE(waitsFor(2s)) << "16 random bits of 1";
    EXPECT_EQ(request->retryCount(), 2);
    clock.advance(2s);
    ASSERT_TRUE(eventually([&] { return reports == 1; }));

    const auto sent = requests();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_TRUE(sent[0].header("X-VX-Request-Sign").ends_with(",1700000000"));
    EXPECT_TRUE(sent[1].header("X-VX-Request-Sign").ends_with(",1700000001"));
    EXPECT_TRUE(sent[2].header("X-VX-Request-Sign").ends_with(",1700000003"));

    // The count is never reset: a request that is sent again gets no retry.
    outcomeOf([&](VXIMResultCompletion done) { request->sendWithCompletion(std::move(done)); });
    EXPECT_EQ(requests().size(), 4u);
    vexim::Random::setShared(nullptr);
}

TEST_F(RequestTest, MistakesRaiseOnTheCallersThreadAndSendNothing) {
    answerEverything(200, "{}");
    const auto never = [](const Value&, const ErrorPtr&) { ADD_FAILURE() << "called"; };
    const Dictionary nan{{"x", std::numeric_limits<double>::quiet_NaN()}};
    EXPECT_THROW(VXIMHTTPRequest::post("/x", nan, never), vexim::Exception);
    EXPECT_THROW(VXIMHTTPRequest::get("/x", Dictionary{{"limit", 5}}, never), vexim::Exception);
    get();
    EXPECT_EQ(requests().size(), 1u);
}

TEST_F(RequestTest, AMistakeThatOnlyARetryMeetsEndsInTheCompletion) {
    answerEverything(500, "");
    auto request = VXIMRequest::request();
    request->setMethod("POST");
    request->setBody(Dictionary{});
    const auto outcome = outcomeOf([&](VXIMResultCompletion done) {
        request->sendWithCompletion(std::move(done));
        request->setBody(Dictionary{{"x", std::numeric_limits<double>::infinity()}});
    });
    EXPECT_NE(outcome.find("failed to serialize request body object"), std::string::npos)
        << outcome;
    EXPECT_EQ(requests().size(), 1u);
}

TEST_F(RequestTest, ARedirectKeepsMethodHeadersAndBody) {
    for (const int status : {301, 302, 303, 307, 308}) {
        SCOPED_TRACE(status);
        std::vector<WireRequest> seen;
        serve(ScriptedServer::answering([&](const WireRequest& request) {
            seen.push_back(request);
            if (request.target == "/first")
                return ScriptedServer::text(status, "", "Location: /second?x=1\r\n");
            return ScriptedServer::text(200, "[]");
        }));
        EXPECT_EQ(outcomeOf([](VXIMResultCompletion done) {
                      VXIMHTTPRequest::put("/first", Dictionary{{"a", 1}}, std::move(done));
                  }),
                  "[]");
        server = nullptr;
        ASSERT_EQ(seen.size(), 2u);
        EXPECT_EQ(seen[1].method + ' ' + seen[1].target + ' ' + seen[1].body,
                  R"(PUT /second?x=1 {"a":1})");
        EXPECT_EQ(seen[1].header("X-VX-Request-Sign"), seen[0].header("X-VX-Request-Sign"));
        EXPECT_EQ(seen[1].header("Content-Type"), "application/json");
    }
}

TEST_F(RequestTest, OperationsOutliveWhoeverStartedThem) {
    answerEverything(200, "[1]");
    std::vector<std::string> outcomes;
    std::thread starter([&] {
        for (int i = 0; i < 20; ++i) {
            VXIMHTTPRequest::get("/x", std::nullopt,
                                 once([&](const Value& result, const ErrorPtr& error) {
                                     outcomes.push_back(describe(result, error));
                                 }));
        }
    });
    starter.join();
    EXPECT_TRUE(eventually([&] { return outcomes.size() == 20; }));
    EXPECT_EQ(std::count(outcomes.begin(), outcomes.end(), "[1]"), 20);
    std::weak_ptr<VXIMRequest> ended;
    outcomeOf([&](VXIMResultCompletion done) {
        const auto request = VXIMRequest::request();
        ended = request;
        request->sendWithCompletion(std::move(done));
    });
    EXPECT_TRUE(eventuallyElsewhere([&] { return ended.expired(); }));
    VXIMHTTPRequest::get("/x", std::nullopt, nullptr);  // without a completion
    EXPECT_TRUE(eventuallyElsewhere([&] { return requests().size() == 22; }));
}

}  // namespace
