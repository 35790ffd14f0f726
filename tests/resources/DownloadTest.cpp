#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <string_view>

#include "VexIMLib/Testing/FakeService.h"
#include "resources/Operations.h"
#include "support/Eventually.h"
#include "support/RecordingService.h"
#include "support/TemporaryFolder.h"

using namespace vexim::testing;

namespace {

/// Downloads the attachment at `url` to `path` and tells how it ended.
std::string download(const std::string& url, const std::string& path) {
    auto message = VXIMMessage::init();
    message->setMediaType(VXIMMessageMediaTypeImage);
    message->setAttachmentUrl(url);
    Outcome outcome;
    message->downloadAttachment(path, {}, outcome.result());
    EXPECT_TRUE(eventually([&] { return outcome.hasEnded(); }));
    return outcome.text();
}

TEST(Download, SignsOnlyWhatGoesToTheService) {
    FakeService service;
    FakeService stranger;
    for (FakeService* each : {&service, &stranger}) {
        each->answer("GET", "/files/:name", {.body = vexim::Data(std::string_view("the file"))},
                     FakeService::kAlways);
    }
    vxim_configuration = service.configuration();
    const TemporaryFolder folder;
    const std::string path = folder / "file";

    EXPECT_EQ(download(service.url() + "/files/1", path), "\"" + path + "\"");
    EXPECT_EQ(download("/files/1", path), "\"" + path + "\"");
    EXPECT_EQ(download(stranger.url() + "/files/1", path), "\"" + path + "\"");
    const auto signatures = [](const FakeService& asked) {
        std::string text;
        for (const auto& request : asked.requests()) {
            for (const char* name : {"x-vx-request-sign", "x-vx-appid"})
                text += request.headers.contains(name) ? "yes " : "no ";
        }
        return text;
    };
    EXPECT_EQ(signatures(service), "yes yes yes yes ");
    EXPECT_EQ(signatures(stranger), "no no ");
    vxim_configuration = nullptr;
}

TEST(Attachment, IsOfAFileThatIsThere) {
    const TemporaryFolder folder;
    const std::string path = folder / "film";
    EXPECT_FALSE(VXIMMessage::messageWithVideoFileAtPath(path));
    EXPECT_FALSE(VXIMMessage::messageWithAudioFileAtPath(path)) << "not there yet";
    std::ofstream(path) << "x";
    EXPECT_EQ(VXIMMessage::messageWithAudioFileAtPath(path)->mediaType(),
              VXIMMessageMediaTypeAudio);
    EXPECT_EQ(VXIMMessage::messageWithVideoFileAtPath(path)->mediaType(),
              VXIMMessageMediaTypeVideo);
}

TEST(Download, CanBeCancelled) {
    RecordingService service;
    auto message = VXIMMessage::init();
    message->setMediaType(VXIMMessageMediaTypeImage);
    message->setAttachmentUrl("/files/1");
    const TemporaryFolder folder;
    const auto transfer = VXIMTransfer::transfer();
    transfer->cancel();
    Outcome outcome;
    message->downloadAttachment(folder / "file", {}, outcome.result(), transfer);
    EXPECT_TRUE(eventually([&] { return outcome.hasEnded(); }));
    EXPECT_EQ(outcome.text(), "nil, NSURLErrorDomain -999");
    EXPECT_EQ(folder.count(), 0u);
}

TEST(Download, WithoutAnAttachmentFails) {
    Outcome outcome;
    VXIMMessage::messageWithText("http://127.0.0.1/")
        ->downloadAttachment("/nonexistent/never-made", {}, outcome.result());
    EXPECT_FALSE(outcome.hasEnded()) << "not on the caller's turn";
    ASSERT_TRUE(eventually([&] { return outcome.hasEnded(); }));
    EXPECT_EQ(outcome.text(), "nil, NSURLErrorDomain -1000");
}

}  // namespace
