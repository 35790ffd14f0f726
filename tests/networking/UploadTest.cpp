#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/VXIMTransfer.h"
#include "VexIMLib/internal/Networking/VXIMAFStreamingMultipartFormData.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Networking/VXIMUtils.h"
#include "VexIMLib/internal/Platform/Files/FileManager.h"
#include "VexIMLib/internal/Platform/Files/InputStream.h"
#include "networking/NetworkingFixture.h"
#include "support/Completions.h"
#include "support/Eventually.h"
#include "support/WrittenStream.h"

using namespace std::chrono_literals;
using namespace vexim;
using namespace vexim::testing;

namespace {

class UploadTest : public NetworkingTest {
protected:
    std::string upload(const std::string& path, VXIMProgress progress = nullptr,
                       std::shared_ptr<VXIMTransfer> transfer = nullptr) {
        return outcomeOf([&](VXIMResultCompletion done) {
            VXIMHTTPRequest::uploadFileAtPath(path, std::move(progress), std::move(done),
                                              std::move(transfer));
        });
    }
};

/// Runs cpp-httplib's server, because we did not write its multipart parser.
class ParsingServer {
public:
    ParsingServer() {
        server_.Post("/attachment",
                     [this](const httplib::Request& request, httplib::Response& response) {
                         parts = request.files;
                         response.set_content(R"(["u1","u2"])", "application/json");
                     });
        server_.set_keep_alive_max_count(1);  // otherwise stopping waits for idle connections
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }
    ~ParsingServer() {
        // stopping earlier would have no effect
        while (!server_.is_running()) std::this_thread::yield();
        server_.stop();
        thread_.join();
    }
    std::string origin() const { return "http://127.0.0.1:" + std::to_string(port_); }

    httplib::MultipartFormDataMap parts;  // of the last request, once it was answered

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
};

TEST_F(UploadTest, AnIndependentParserGetsTheFileAsItIs) {
    ParsingServer parser;
    pointAt(parser.origin());
    for (const std::size_t size : {0u, 1u, 65'536u, 3'000'001u}) {
        SCOPED_TRACE(size);
        const auto contents = noise(size);
        std::vector<std::int32_t> percents;
        const auto held = std::make_shared<int>();
        const auto transfer = VXIMTransfer::transfer();
        VXIMTransferProgress last;
        transfer->setProgress([&](VXIMTransferProgress progress) {
            last = progress;
            EXPECT_TRUE(MainQueue::shared().isMainThread());
        });
        EXPECT_EQ(upload(
                      makeFile("photo.png", contents),
                      [&, held](std::int32_t percent) {
                          percents.push_back(percent);
                          EXPECT_TRUE(MainQueue::shared().isMainThread());
                      },
                      transfer),
                  R"({"imgUrl":"u1","thumbnail":"u2"})");
        EXPECT_EQ(last.total, last.bytes);
        EXPECT_NEAR(static_cast<double>(last.bytes), static_cast<double>(size), 500)
            << "the form adds a little";
        ASSERT_EQ(parser.parts.size(), 1u);
        const auto& part = parser.parts.begin()->second;
        EXPECT_EQ(part.name, "attachment");
        EXPECT_EQ(part.filename, "photo.png");
        EXPECT_EQ(part.content_type, "image/png");
        EXPECT_TRUE(part.content == contents);
        ASSERT_FALSE(percents.empty());
        EXPECT_TRUE(std::is_sorted(percents.begin(), percents.end()));
        EXPECT_EQ(percents.back(), 100);
        EXPECT_TRUE(eventuallyElsewhere([&] { return held.use_count() == 1; }))
            << "nothing is kept";
    }
}

TEST_F(UploadTest, TheAnswerIsShapedIntoAnAttachment) {
    const std::pair<const char*, const char*> cases[] = {
        {R"(["u1"])", R"({"imgUrl":"u1"})"},
        {R"(["u1","u2","u3"])", R"({"imgUrl":"u1","thumbnail":"u2"})"},
        {R"([])", ""},
        {R"({"url":"u"})", R"({"url":"u"})"},
        {"no JSON", ""},
    };
    const auto path = makeFile("a.txt", "abc");
    for (const auto& [answer, outcome] : cases) {
        answerEverything(200, answer);
        EXPECT_EQ(upload(path), outcome) << answer;
    }
    const auto sent = requests().front();
    EXPECT_EQ(sent.method + ' ' + sent.target, "POST /attachment");
    EXPECT_EQ(sent.header("Cache-Control"), "no-cache");
    EXPECT_TRUE(sent.header("Content-Type").starts_with("multipart/form-data; boundary=Boundary+"));
    EXPECT_EQ(sent.header("Content-Length"), std::to_string(sent.body.size()));
    EXPECT_TRUE(sent.header("X-VX-Request-Sign").ends_with(",1700000000"));
}

TEST_F(UploadTest, DataIsStagedUnderItsDigest) {
    answerEverything(200, R"(["u"])");
    const auto directory =
        vexim::appendPathComponent(vexim::temporaryDirectory(), "com.vexora.message.attachments");
    VXIMUtils::ensureDirExist(directory);
    EXPECT_EQ(outcomeOf([](VXIMResultCompletion done) {
                  VXIMHTTPRequest::uploadData(Data("abc"), nullptr, std::move(done));
              }),
              R"({"imgUrl":"u"})");
    EXPECT_NE(requests().front().body.find("filename=\"900150983cd24fb0d6963f7d28e17f72\""),
              std::string::npos);
    const auto staged = vexim::appendPathComponent(directory, "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(contentsOf(staged), "abc");
    std::filesystem::remove(staged);
}

TEST_F(UploadTest, IsStartedWithoutWaitingForTheMainThread) {
    answerEverything(200, R"(["u"])");
    const auto path = makeFile("a.txt", "abc");
    std::atomic<bool> isStarted{false};
    std::atomic<bool> isDone{false};
    std::thread worker([&] {
        VXIMHTTPRequest::uploadFileAtPath(
            path, nullptr, [&](const Value&, const ErrorPtr& error) { isDone = error == nullptr; });
        isStarted = true;
    });
    EXPECT_TRUE(spinUntil([&] { return isStarted.load(); }))
        << "the main thread may be waiting for the worker";
    EXPECT_TRUE(eventually([&] { return isDone.load(); }));
    worker.join();
}

TEST_F(UploadTest, WhatCannotBeReadIsAnEmptyFormOrAnError) {
    answerEverything(400, R"({"errorCode":9,"errorMessage":"no file"})");
    EXPECT_EQ(upload((folder / "missing").string()),
              "VXErrorDomain 9 \"no file\" over NSURLErrorDomain -1011");
    EXPECT_EQ(requests().back().body, "");
    EXPECT_EQ(requests().back().header("Content-Type"), "application/json");

    const auto before = clock.now();
    EXPECT_TRUE(upload(folder.path().string()).starts_with("VXErrorDomain 100")) << "a directory";
    auto unreadable = VXIMRequest::request();
    unreadable->setMethod("POST");
    unreadable->setBodyStream(InputStream::withFileAtPath((folder / "missing").string()));
    EXPECT_TRUE(outcomeOf([&](VXIMResultCompletion done) {
                    unreadable->sendWithCompletion(std::move(done));
                }).ends_with("over NSCocoaErrorDomain 260"));

    const auto path = makeFile("vanishing", "abc");
    auto vanished = VXIMRequest::request();
    vanished->setMethod("POST");
    auto form =
        VXIMAFStreamingMultipartFormData::initWithURLRequest(vanished, vexim::StringEncoding::UTF8);
    ASSERT_TRUE(form->appendPartWithFileURL(vexim::URL::fileURLWithPath(path), "f", nullptr));
    form->appendPartWithInputStream(InputStream::withData(Data("abc")), "g", "g", 3, "x/y");
    vanished = form->requestByFinalizingMultipartFormData();
    std::filesystem::remove(path);
    const auto outcome = outcomeOf([&](VXIMResultCompletion done) {
        vanished->uploadWithNewBodyStreamBlock(nullptr, nullptr, std::move(done));
    });
    EXPECT_TRUE(outcome.ends_with("over NSCocoaErrorDomain 260")) << outcome;
    EXPECT_LT(clock.now() - before, 1s) << "no other attempt could succeed";
    EXPECT_EQ(requests().size(), 1u);
}

TEST_F(UploadTest, AFileThatShrinksOrGrowsWhileItIsSentIsAnError) {
    constexpr std::uintmax_t kSize = 24 << 20;  // more than sockets hold
    const auto path = makeFile("changing", "");
    for (const std::uintmax_t size : {std::uintmax_t{1000}, kSize + 1, 2 * kSize}) {
        SCOPED_TRACE(size);
        std::filesystem::resize_file(path, kSize);
        // a connection may live longer than one run of the loop
        const auto isChanged = std::make_shared<std::atomic<bool>>(false);
        serve([isChanged](Connection& connection) {
            connection.readHead();
            while (!*isChanged && connection.pause(1ms)) continue;
            connection.waitForClose();  // reads on
        });
        const auto outcome = upload(path, [&](std::int32_t) {
            if (!*isChanged) std::filesystem::resize_file(path, size);
            *isChanged = true;
        });
        EXPECT_TRUE(outcome.ends_with("over NSURLErrorDomain -1021")) << outcome;
    }
}

TEST_F(UploadTest, IsRetriedOnlyUntilProgressWasReported) {
    std::atomic<int> attempts{0};
    serve([&](Connection& connection) {
        while (connection.readRequest()) {
            ++attempts;
            connection.answer(503, "");
        }
    });
    auto sent = smallForm();
    EXPECT_TRUE(outcomeOf([&](VXIMResultCompletion done) {
                    sent->uploadWithNewBodyStreamBlock(nullptr, nullptr, std::move(done));
                }).find("temporary") != std::string::npos);
    EXPECT_EQ(attempts, 1);
    EXPECT_EQ(sent->retryCount(), 2);

    pointAt("http://127.0.0.1:" + std::to_string(deadPort()));
    auto unsent = smallForm();
    const auto before = clock.now();
    EXPECT_TRUE(outcomeOf([&](VXIMResultCompletion done) {
                    unsent->uploadWithNewBodyStreamBlock(nullptr, nullptr, std::move(done));
                }).ends_with("temporary over NSURLErrorDomain -1004"));
    EXPECT_EQ(unsent->retryCount(), 2);
    EXPECT_GE(clock.now() - before, 2s) << "two pauses of at least a second";
}

TEST_F(UploadTest, WhatCannotBeGivenAgainEndsWithTheFirstError) {
    // only one byte is written, and the stream never ends
    const auto input = WrittenStream::make();
    serve([](Connection& connection) {
        connection.readHead();
        if (connection.readSome(1).empty()) return;
        connection.reset();
    });
    input->write("a");
    auto request = VXIMRequest::request();
    request->setMethod("POST");
    request->setPath("/x");
    request->setBodyStream(input);
    const auto outcome =
        outcomeOf([&](VXIMResultCompletion done) { request->sendWithCompletion(std::move(done)); });
    EXPECT_TRUE(outcome.ends_with("temporary over NSURLErrorDomain -1005")) << outcome;
    EXPECT_EQ(server->connectionCount(), 1);
}

TEST_F(UploadTest, TheStreamIsAskedForOnlyWhereThereIsNoBody) {
    answerEverything(200, "[]");
    const auto post = [&](const std::function<void(VXIMRequest&)>& prepare) {
        auto request = VXIMRequest::request();
        request->setMethod("POST");
        prepare(*request);
        outcomeOf([&](VXIMResultCompletion done) {
            request->uploadWithNewBodyStreamBlock([] { return InputStream::withData(Data("new")); },
                                                  nullptr, std::move(done));
        });
        return requests().back().body;
    };
    EXPECT_EQ(post([](VXIMRequest&) {}), "new");
    EXPECT_EQ(post([](VXIMRequest& request) { request.setBody(vexim::Array{1}); }), "[1]");
    EXPECT_EQ(post([](VXIMRequest& request) {
                  request.setBodyStream(InputStream::withData(Data("own")));
              }),
              "own");
}

TEST_F(UploadTest, AnEarlyRefusalOrACutConnectionEndsIt) {
    const auto path = makeFile("big", noise(8 << 20));
    const struct {
        const char* why;
        ScriptedServer::Script script;
        const char* outcome;
    } cases[] = {
        {"refused by its head",
         [](Connection& connection) {
             connection.readHead();
             connection.answer(413, R"({"errorCode":413,"errorMessage":"too big"})",
                               "Connection: close\r\n");
             connection.waitForClose();
         },
         R"(VXErrorDomain 413 "too big" over NSURLErrorDomain -1011)"},
        {"failed in the middle",
         [](Connection& connection) {
             connection.readHead();
             connection.readSome();
             connection.answer(500, R"({"errorCode":5,"errorMessage":"broken"})",
                               "Connection: close\r\n");
             connection.waitForClose();
         },
         R"(VXErrorDomain 5 "broken" temporary over NSURLErrorDomain -1011)"},
        {"sent elsewhere in the middle",
         [](Connection& connection) {
             connection.readHead();
             if (connection.index() == 0) {
                 connection.readSome();
                 connection.answer(307, "", "Location: /other\r\n");
             } else {
                 for (std::size_t taken = 0; taken < (8 << 20);)
                     taken += std::max<std::size_t>(connection.readSome().size(), 1);
                 connection.answer(200, R"(["all of it"])");
             }
             connection.waitForClose();
         },
         R"({"imgUrl":"all of it"})"},
        {"reset after the head",
         [](Connection& connection) {
             connection.readHead();
             connection.reset();
         },
         "NSURLErrorDomain -1005"},
        {"cut in the middle",
         [](Connection& connection) {
             connection.readHead();
             for (std::size_t taken = 0; taken < (4 << 20);)
                 taken += std::max<std::size_t>(connection.readSome().size(), 1);
             connection.reset();
         },
         "NSURLErrorDomain -1005"},
        {"no answer after the last byte", [](Connection& connection) { connection.readRequest(); },
         "NSURLErrorDomain -1005"},
        {"sent elsewhere after it was taken",
         [](Connection& connection) {
             const auto request = connection.readRequest();
             if (connection.index() == 0) {
                 connection.answer(307, "", "Location: /other\r\n");
             } else {
                 connection.answer(
                     200, R"([")" + std::to_string(request->body.size() > (8 << 20)) + R"("])");
             }
             connection.waitForClose();
         },
         R"({"imgUrl":"1"})"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.why);
        serve(test.script);
        const auto outcome = upload(path);
        EXPECT_TRUE(outcome.ends_with(test.outcome)) << outcome;
    }
}

TEST_F(UploadTest, AHandleCancelsItInThePauseBeforeARetry) {
    pointAt("http://127.0.0.1:" + std::to_string(deadPort()));
    auto transfer = VXIMTransfer::transfer();
    std::string outcome;
    VXIMHTTPRequest::uploadFileAtPath(makeFile("file", "contents"), nullptr,
                                      once([&](const Value& result, const ErrorPtr& error) {
                                          outcome = describe(result, error);
                                      }),
                                      transfer);
    ASSERT_TRUE(eventually(
        [&] { return MainQueue::shared().nextDeadline().value_or(clock.now()) > clock.now(); }));
    EXPECT_TRUE(transfer->cancel());
    EXPECT_FALSE(transfer->cancel()) << "once is enough";
    EXPECT_TRUE(eventually([&] { return !outcome.empty(); }));
    EXPECT_TRUE(outcome.starts_with("NSURLErrorDomain -999"));
    clock.advanceAndDrain(2s);

    const auto cancelled = VXIMTransfer::transfer();
    cancelled->cancel();
    outcome = outcomeOf([&](VXIMResultCompletion done) {
        EXPECT_EQ(
            smallForm()->uploadWithNewBodyStreamBlock(nullptr, nullptr, std::move(done), cancelled),
            nullptr)
            << "it does not even begin";
    });
    EXPECT_TRUE(outcome.starts_with("NSURLErrorDomain -999"));
}

}  // namespace
