// Bodies that are read from a stream while they are sent.

#include <gtest/gtest.h>

#include <condition_variable>

#include "VexIMLib/internal/Platform/Files/FileManager.h"
#include "platform/SessionProbe.h"
#include "support/Eventually.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"
#include "support/WrittenStream.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;
using Connection = ScriptedServer::Connection;

/// Bytes that depend on their position, so that lost, doubled and swapped ones are detected.
std::string pattern(std::size_t size) {
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>((i * 131 + i / 251) & 0xff);
    return text;
}

/// Gives `content` in pieces of `piece` bytes and then fails, ends, or waits to be interrupted.
class ScriptedStream final : public InputStream {
public:
    enum class Then { End, Fail, Hang };
    using InputStream::InputStream;
    bool initialise(std::string content, std::size_t piece, Then then) {
        content_ = std::move(content);
        piece_ = piece;
        then_ = then;
        return true;
    }

    void open() override { ++opened; }
    void close() override { closed = true; }
    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
        const std::size_t count = std::min({maxLength, piece_, content_.size() - offset_});
        if (count == 0 && then_ == Then::Fail) {
            error_ = Error::withDescription(kCocoaErrorDomain, 256, "the disk is gone");
            return -1;
        }
        if (count == 0 && then_ == Then::Hang) {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return interrupted_; });
            return 0;
        }
        std::copy_n(content_.data() + offset_, count, reinterpret_cast<char*>(buffer));
        offset_ += count;
        return static_cast<std::int64_t>(count);
    }
    bool readsNonBlocking() const override { return isCached; }
    std::int64_t readNonBlocking(std::uint8_t* buffer, std::size_t maxLength) override {
        const bool hasAny = isCached && ++tries_ % 3 != 0 && offset_ < content_.size();
        return hasAny ? read(buffer, maxLength) : -1;
    }
    bool hasBytesAvailable() const override { return true; }
    StreamStatus streamStatus() const override { return StreamStatus::Open; }
    ErrorPtr streamError() const override { return error_; }
    void interrupt() override {
        const std::lock_guard lock(mutex_);
        interrupted_ = true;
        wake_.notify_all();
    }

    std::atomic<int> opened{0};
    std::atomic<bool> closed{false};
    bool isCached = false;  // most of the file

private:
    std::string content_;
    std::size_t piece_ = 0;
    std::size_t offset_ = 0;
    int tries_ = 0;
    Then then_ = Then::End;
    ErrorPtr error_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool interrupted_ = false;
};
using Then = ScriptedStream::Then;

std::shared_ptr<ScriptedStream> stream(std::string content, std::size_t piece = 1 << 20,
                                       Then then = Then::End) {
    return create<ScriptedStream>(std::move(content), piece, then);
}

URLRequest upload(const std::string& url, std::shared_ptr<InputStream> body,
                  std::optional<std::size_t> length) {
    URLRequest request = SessionProbe::request(url);
    request.method = "POST";
    request.bodyStream = std::move(body);
    if (length) request.headers.set("Content-Length", std::to_string(*length));
    return request;
}

TEST(URLSessionUpload, SendsAStreamAsItIs) {
    WireRequest seen;
    ScriptedServer server(ScriptedServer::answering([&](const WireRequest& request) {
        seen = request;
        return ScriptedServer::text(200, "thanks");
    }));
    const auto probe = SessionProbe::make();
    struct Case {
        const char* why;
        std::size_t size, piece;
        bool announced, cached = false;
    };
    const Case cases[] = {
        {"nothing", 0, 1, true},
        {"a byte at a time", 5'000, 1, true},
        {"many buffers full, in odd pieces", 5'000'003, 65'537, true},
        {"without a length, in chunks", 3'000'000, 1 << 20, false},
        {"nothing, in chunks", 0, 1, false},
        {"partly cached", 5'000'003, 65'537, true, true},
        {"partly cached, in chunks", 3'000'000, 7'001, false, true},
    };
    for (const auto& each : cases) {
        const std::string content = pattern(each.size);
        const auto body = stream(content, each.piece);
        body->isCached = each.cached;
        const auto task = probe->session->dataTaskWithRequest(
            upload(server.url(), body, each.announced ? std::optional(each.size) : std::nullopt));
        std::int64_t before = 0;
        probe->onSent = [&](auto& sending) {
            EXPECT_GT(sending->countOfBytesSent(), before) << "progress never runs backwards";
            before = sending->countOfBytesSent();
        };
        const auto story = probe->run(task);
        EXPECT_EQ(story.body, "thanks") << each.why << story.detail();
        EXPECT_TRUE(seen.body == content) << each.why << ": " << seen.body.size() << " bytes";
        EXPECT_EQ(seen.header("Content-Length"), each.announced ? std::to_string(each.size) : "")
            << each.why;
        // nothing is told of an empty body
        EXPECT_EQ(story.toSend, each.announced || each.size == 0 ? story.sent : -1) << each.why;
        EXPECT_EQ(story.sent, static_cast<std::int64_t>(each.size)) << each.why;
        EXPECT_LE(body->opened, 1);
        probe->onSent = nullptr;
    }
    auto kept = SessionProbe::request(server.url());
    kept.method = "POST";
    kept.body = Data(pattern(100'000));
    probe->load(kept);
    const int before = server.connectionCount();
    probe->load(upload(server.url(), stream("body"), 4));
    EXPECT_EQ(server.connectionCount(), before + 1) << "an idle one may be closing";
}

TEST(URLSessionUpload, FailsWhenTheBodyIsNotWhatWasAnnounced) {
    std::atomic<int> whole{0};
    ScriptedServer server([&](Connection& connection) {
        if (connection.readRequest()) ++whole;
        connection.answer(200, "ok");
    });
    const auto probe = SessionProbe::make();
    struct Case {
        const char* why;
        std::shared_ptr<InputStream> body;
        const char* domain;
        std::int64_t code;
    };
    const Case cases[] = {
        {"a byte too few", stream(pattern(999)), kURLErrorDomain,
         URLErrorRequestBodyStreamExhausted},
        {"a byte too many", stream(pattern(1001)), kURLErrorDomain,
         URLErrorRequestBodyStreamExhausted},
        {"a failure in the middle", stream(pattern(500), 100, Then::Fail), kCocoaErrorDomain, 256},
        {"no such file", InputStream::withFileAtPath("/nonexistent/file"), kCocoaErrorDomain, 260},
        {"a directory", InputStream::withFileAtPath("/"), kCocoaErrorDomain, 256},
    };
    for (const auto& each : cases) {
        const auto story = probe->load(upload(server.url(), each.body, 1000));
        ASSERT_TRUE(story.error) << each.why;
        EXPECT_TRUE(story.error->is(each.domain, each.code)) << each.why << ": " << story.detail();
    }
    const auto cached = stream(pattern(3'000'001));
    cached->isCached = true;
    EXPECT_EQ(probe->load(upload(server.url(), cached, 3'000'000)).code(),
              URLErrorRequestBodyStreamExhausted)
        << "a byte too many, whoever reads the last ones";
    EXPECT_EQ(whole, 0) << "the peer must not take any of them for the whole body";
}

TEST(URLSessionUpload, BeginsABodyOnceOnly) {
    ScriptedServer server([](Connection& connection) {
        const auto request = connection.readRequest();
        if (!request) return;
        if (request->target == "/drop") return connection.reset();
        connection.answer(request->target == "/end" ? 200 : 307, "", "Location: /end\r\n");
    });
    const auto probe = SessionProbe::make();
    EXPECT_EQ(probe->load(upload(server.url("/redirect"), stream("body"), 4)).code(),
              URLErrorRequestBodyStreamExhausted);

    const auto body = stream("body");
    EXPECT_EQ(
        probe->load(upload("http://127.0.0.1:" + std::to_string(deadPort()) + "/", body, 4)).code(),
        URLErrorCannotConnectToHost);
    EXPECT_EQ(body->opened, 0) << "nobody has asked for it, so it can be tried again";
    EXPECT_EQ(probe->load(upload(server.url("/drop"), body, 4)).code(),
              URLErrorNetworkConnectionLost);
    EXPECT_EQ(probe->load(upload(server.url("/end"), body, 4)).code(),
              URLErrorRequestBodyStreamExhausted);
    EXPECT_EQ(body->opened, 1);

    // a body counts as begun even if the connection is cut before its first byte
    const auto late = stream("", 1, Then::Hang);
    ScriptedServer cutting([&late](Connection& connection) {
        connection.readHead();
        while (late->opened == 0 && connection.pause(1ms)) continue;
        connection.reset();
    });
    const auto cut = probe->load(upload(cutting.url(), late, 4));
    EXPECT_EQ(cut.code(), URLErrorNetworkConnectionLost);
    EXPECT_EQ(cut.calls, "e") << "no progress, no answer";
    EXPECT_TRUE(spinUntil([&] { return late->closed.load(); }));
    EXPECT_EQ(probe->load(upload(server.url("/end"), late, 4)).code(),
              URLErrorRequestBodyStreamExhausted);
}

TEST(URLSessionUpload, TellsAllThatWasSentBeforeALoss) {
    const ManualClock clock;  // stands still, so only the first and the last report are due
    ScriptedServer server([](Connection& connection) { connection.readRequest(); });
    const auto lost =
        SessionProbe::make()->load(upload(server.url(), stream(pattern(3'000'000)), 3'000'000));
    EXPECT_EQ(lost.code(), URLErrorNetworkConnectionLost);
    EXPECT_EQ(lost.sent, 3'000'000);
}

TEST(URLSessionUpload, GivesABodyAgainFromItsStartWhereItCan) {
    std::vector<std::string> seen;
    std::atomic<int> ended{0};
    ScriptedServer server([&](Connection& connection) {
        const auto request = connection.readRequest();
        if (!request) return;
        seen.push_back(request->target + " " + std::to_string(request->body.size()));
        connection.answer(request->target == "/end" ? 200 : 307, request->body,
                          "Location: /end\r\n");
        connection.waitForClose();
        ++ended;
    });
    const TemporaryFolder folder;
    const std::string content = pattern(1'000'003);
    const std::string path = folder / "body";
    FileManager::writeAtomically(Data(content), path);
    const auto probe = SessionProbe::make();
    for (const auto& body :
         {InputStream::withData(Data(content)), InputStream::withFileAtPath(path)}) {
        const auto task = probe->session->dataTaskWithRequest(
            upload(server.url("/redirect"), body, content.size()));
        EXPECT_TRUE(probe->run(task).body == content);
        EXPECT_EQ(task->countOfBytesSent(), static_cast<std::int64_t>(content.size()));
        EXPECT_TRUE(body->isClaimed());
        EXPECT_TRUE(probe->load(upload(server.url("/end"), body, content.size())).body == content)
            << "begun before";
    }
    const std::string size = " 1000003";
    EXPECT_EQ(seen, (std::vector{"/redirect" + size, "/end" + size, "/end" + size,
                                 "/redirect" + size, "/end" + size, "/end" + size}));
    EXPECT_TRUE(spinUntil([&] { return ended == server.connectionCount(); }))
        << "no upload leaves its connection behind";
}

TEST(URLSessionUpload, TakesARefusalBeforeTheBodyIsSent) {
    ScriptedServer server([](Connection& connection) {
        const auto head = connection.readHead();
        connection.answer(413, "too large",
                          head->target == "/closing" ? "Connection: close\r\n" : "");
        connection.pause(60s);  // neither reads nor closes
    });
    const auto probe = SessionProbe::make();
    for (const char* path : {"/closing", "/staying"}) {
        const auto body = stream(pattern(100), 100, Then::Hang);
        const auto story = probe->load(upload(server.url(path), body, 50'000'000));
        EXPECT_EQ(story.status, 413) << story.detail();
        EXPECT_EQ(story.body, "too large");
        // The refusal may come before the body is opened. A reader that has begun is woken.
        EXPECT_TRUE(spinUntil([&] { return body->opened == 0 || body->closed; }));

        auto inMemory = SessionProbe::request(server.url(path));
        inMemory.method = "POST";
        inMemory.body = Data(pattern(50'000'000));
        EXPECT_EQ(probe->load(inMemory).status, 413);
    }
}

TEST(URLSessionUpload, WaitsForASlowBodyWithoutHoldingUpAnythingElse) {
    ManualClock clock;
    ScriptedServer server(ScriptedServer::answering(
        [](const WireRequest&) { return ScriptedServer::text(200, "ok"); }));
    const auto probe = SessionProbe::make();
    const auto input = WrittenStream::make();
    const auto slow = probe->session->dataTaskWithRequest(upload(server.url(), input, 10));
    slow->resume();
    EXPECT_TRUE(spinUntil([&] { return server.connectionCount() == 1; }));
    for (int i = 0; i < 3; ++i) {
        pass(clock, 15s);
        EXPECT_EQ(probe->load(server.url()).body, "ok");
    }
    EXPECT_EQ(probe->story(slow).ends, 0) << "the silence is ours";
    input->write("0123456789");
    input->end();
    EXPECT_EQ(probe->waitForEnd(slow).body, "ok") << probe->story(slow).detail();
}

TEST(URLSessionUpload, LetsGoOfABodyThatIsCancelledOrNotRead) {
    ScriptedServer server([](Connection& connection) {
        connection.readHead();
        connection.pause(60s);  // reads nothing
    });
    const auto probe = SessionProbe::make();
    const auto hanging = stream(pattern(10), 10, Then::Hang);
    const auto cancelled = probe->session->dataTaskWithRequest(upload(server.url(), hanging, 1000));
    cancelled->resume();
    ASSERT_TRUE(spinUntil([&] { return hanging->opened > 0; }));
    cancelled->cancel();
    EXPECT_EQ(probe->waitForEnd(cancelled).code(), URLErrorCancelled);
    EXPECT_TRUE(spinUntil([&] { return hanging->closed.load(); }));

    auto request = upload(server.url(), stream(pattern(20'000'000)), 20'000'000);
    request.timeout = 300ms;
    EXPECT_EQ(probe->load(request).code(), URLErrorTimedOut)
        << "what the peer does not take is its silence";
}

}  // namespace
}  // namespace vexim::testing
