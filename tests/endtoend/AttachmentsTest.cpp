// Attachments of a whole client: cancelling at every stage, and what a slow transfer must not
// delay.

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "VexIMLib/internal/Networking/VXIMAFStreamingMultipartFormData.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "endtoend/LiveWorld.h"
#include "support/Describe.h"
#include "support/TemporaryFolder.h"

namespace vexim::testing {
namespace {

namespace fs = std::filesystem;
using Connection = ScriptedServer::Connection;
using namespace std::chrono_literals;

/// Where a transfer is cancelled.
enum class Stage {
    BeforeItsStart,
    AtItsStart,
    WhileTheServerIsSilent,
    InsideProgress,
    FromAnotherThread,
    AfterItsEnd
};
constexpr Stage kStages[] = {Stage::BeforeItsStart,         Stage::AtItsStart,
                             Stage::WhileTheServerIsSilent, Stage::InsideProgress,
                             Stage::FromAnotherThread,      Stage::AfterItsEnd};

class Attachments : public ::testing::Test {
protected:
    Attachments() {
        ears = LiveClient::make(server.url(""));
        ears->login();
        EXPECT_TRUE(eventually([&] { return ears->logins.size() == 1; }));
    }

    /// Acts as the live connection and the service's files. A silent one reads the request and
    /// never answers.
    void play(Connection& connection) {
        auto request = connection.readHead();
        if (!request) return;
        if (request->target.starts_with("/socket.io"))
            return playLive(connection, std::move(*request));
        if (request->target.starts_with("/other"))
            return void(connection.answer(200, "[1]") && ++othersAnswered);
        for (auto left = std::strtoull(request->header("Content-Length").c_str(), nullptr, 10);
             left > 0;) {
            const auto taken = connection.readSome().size();
            if (taken == 0) return;
            left -= taken;
            ++arrived;
        }
        ++arrived;
        const bool isUpload = request->method == "POST";
        if (isSilent && !isUpload && halfIsSent)
            connection.write("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf");
        if (isSilent) return connection.waitForClose();
        connection.answer(200, isUpload ? R"(["http://files/1"])" : "the file");
        connection.waitForClose();
    }
    void playLive(Connection& connection, WireRequest request) {
        LivePeer peer(connection, std::move(request));
        if (!peer.join() || !peer.emit("login", R"({"success":true,"id":"u1"})")) return;
        while (beatsWanted == 0) {
            if (!connection.pause(1ms)) return;
        }
        while (beats < beatsWanted && peer.beat()) ++beats;
        peer.waitForClose();
    }

    std::shared_ptr<VXIMTransfer> transferFor(Stage stage) {
        isSilent = stage != Stage::AfterItsEnd;
        halfIsSent = stage == Stage::InsideProgress;
        arrived = 0;
        auto transfer = VXIMTransfer::transfer();
        EXPECT_EQ(stage == Stage::BeforeItsStart && transfer->cancel(),
                  stage == Stage::BeforeItsStart);
        return transfer;
    }
    /// Call it when the transfer has started. `ended` becomes true when it completes.
    void cancelIn(Stage stage, const std::shared_ptr<VXIMTransfer>& transfer, const bool& ended) {
        switch (stage) {
            case Stage::BeforeItsStart:
            case Stage::InsideProgress: break;
            case Stage::AtItsStart: EXPECT_TRUE(transfer->cancel()); break;
            case Stage::WhileTheServerIsSilent:
                EXPECT_TRUE(eventuallyElsewhere([&] { return arrived > 0; }));
                EXPECT_TRUE(transfer->cancel());
                break;
            case Stage::FromAnotherThread:
                EXPECT_TRUE(eventuallyElsewhere([&] { return arrived > 0; }));
                std::thread([&] { EXPECT_TRUE(transfer->cancel()); }).join();
                break;
            case Stage::AfterItsEnd: EXPECT_TRUE(eventually([&] { return ended; })); break;
        }
        EXPECT_TRUE(eventually([&] { return ended; }));
        if (stage == Stage::BeforeItsStart) {
            EXPECT_EQ(arrived, 0);
        }
        EXPECT_TRUE(transfer->isFinished());
        EXPECT_FALSE(transfer->cancel()) << "a second time, or after the end";
    }

    const TemporaryFolder folder;
    std::atomic<bool> isSilent{false};
    std::atomic<bool> halfIsSent{false};
    std::atomic<int> arrived{0};
    std::atomic<int> othersAnswered{0};
    std::atomic<int> beatsWanted{0};
    std::atomic<int> beats{0};
    ScriptedServer server{[this](Connection& connection) { play(connection); }};
    std::shared_ptr<LiveClient> ears;
};

TEST_F(Attachments, ASendIsCancelledInEveryStage) {
    const auto file = folder / "photo.png";
    std::ofstream(file) << std::string(200'000, 'x');
    for (const auto stage : kStages) {
        SCOPED_TRACE(static_cast<int>(stage));
        const auto transfer = transferFor(stage);
        auto message = VXIMMessage::messageWithImageFileAtPath(file.string());
        message->receiver()->setUserId("u2");
        std::string outcome;
        bool ended = false;
        ears->client->sendMessage(
            message,
            [&](std::int32_t) {
                if (stage == Stage::InsideProgress) transfer->cancel();
            },
            once([&](bool succeeded, const ErrorPtr& error) {
                outcome = (succeeded ? "yes" : "no, ") + (error ? describe(error) : "");
                ended = true;
            }),
            transfer);
        EXPECT_FALSE(ended) << "not on the caller's turn";
        const std::weak_ptr<VXIMMessage> weak = message;
        // release our own reference; the operation keeps the message alive
        const bool isReleased = stage == Stage::WhileTheServerIsSilent;
        if (isReleased) message = nullptr;
        cancelIn(stage, transfer, ended);
        const bool isSent = stage == Stage::AfterItsEnd;
        EXPECT_EQ(outcome, isSent ? "yes" : "no, NSURLErrorDomain -999");
        if (isReleased) {
            EXPECT_TRUE(eventuallyElsewhere([&] { return weak.expired(); }));
        } else {
            EXPECT_EQ(message->status(), isSent ? VXIMMessageStatusSent : VXIMMessageStatusFailed);
        }
    }
    EXPECT_EQ(fs::file_size(file), 200'000u);
    EXPECT_EQ(folder.count(), 1u);
}

TEST_F(Attachments, ADownloadIsCancelledInEveryStage) {
    const auto target = folder / "photo.png";
    for (const auto stage : kStages) {
        SCOPED_TRACE(static_cast<int>(stage));
        const auto transfer = transferFor(stage);
        auto message = VXIMMessage::init();
        message->setMediaType(VXIMMessageMediaTypeImage);
        message->setAttachmentUrl(server.url("/files/1"));
        std::string outcome;
        bool ended = false;
        message->downloadAttachment(
            target.string(),
            [&](std::int32_t percent) {
                if (stage != Stage::InsideProgress) return;
                EXPECT_EQ(percent, 4);
                EXPECT_EQ(folder.count(), 1u) << "the temporary file";
                EXPECT_TRUE(transfer->cancel());
            },
            once([&](const Value& result, const ErrorPtr& error) {
                outcome = result.description() + (error ? " " + describe(error) : "");
                ended = true;
            }),
            transfer);
        EXPECT_FALSE(ended) << "not on the caller's turn";
        message = nullptr;  // nobody else keeps it
        cancelIn(stage, transfer, ended);
        const bool isThere = stage == Stage::AfterItsEnd;
        EXPECT_EQ(outcome, isThere ? target.string() : "(null) NSURLErrorDomain -999");
        EXPECT_EQ(folder.count(), isThere ? 1u : 0u);
    }
}

/// A form for "/attachment" that takes the better part of a minute.
std::shared_ptr<VXIMRequest> throttledForm() {
    auto request = VXIMRequest::request();
    request->setMethod("POST");
    request->setPath("/attachment");
    auto form = VXIMAFStreamingMultipartFormData::initWithURLRequest(request, StringEncoding::UTF8);
    form->appendPartWithFileData(Data(std::string(1'000'000, 'x')), "f", "f", "x/y");
    form->throttleBandwidthWithPacketSize(1000, 0.05);
    return form->requestByFinalizingMultipartFormData();
}

TEST_F(Attachments, NeitherASlowUploadNorABusyMainThreadDelaysRequestsOrTheHeartbeat) {
    const auto slow = VXIMTransfer::transfer();
    const auto waiting = VXIMTransfer::transfer();
    int ended = 0;
    const auto count = [&](const Value&, const ErrorPtr&) { ++ended; };
    throttledForm()->uploadWithNewBodyStreamBlock(nullptr, nullptr, once(count), slow);
    ASSERT_TRUE(eventuallyElsewhere([&] { return arrived > 0; }));
    // reading this form needs this thread
    throttledForm()->uploadWithNewBodyStreamBlock(nullptr, nullptr, once(count), waiting);

    VXIMHTTPRequest::get("/other", std::nullopt, once(count));
    beatsWanted = 20;
    EXPECT_TRUE(spinUntil([&] { return beats == 20 && othersAnswered == 1; }));
    EXPECT_EQ(ended, 0) << "nothing has run on this thread";

    ASSERT_TRUE(eventually([&] { return ended == 1; }));
    slow->cancel();
    waiting->cancel();
    EXPECT_TRUE(eventually([&] { return ended == 3; }));
    EXPECT_EQ(ears->disconnects, 0);
}

}  // namespace
}  // namespace vexim::testing
