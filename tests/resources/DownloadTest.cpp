#include <gtest/gtest.h>

#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "resources/Operations.h"
#include "support/Eventually.h"
#include "support/RecordingService.h"

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
    std::mutex mutex;
    std::vector<std::string> signatures;
    const auto files = ScriptedServer::answering([&](const WireRequest& request) {
        std::lock_guard lock(mutex);
        signatures.push_back(request.header("X-VX-Request-Sign") + request.header("X-VX-AppId"));
        return ScriptedServer::text(200, "the file");
    });
    RecordingService restored;  // puts the shared configuration in place and takes it away
    ScriptedServer service(files);
    ScriptedServer stranger(files);
    restored.configuration()->setSocketURL(vexim::URL::parse(service.url("")));
    const std::string path = std::filesystem::temp_directory_path() / "vexim-download-test";

    EXPECT_EQ(download(service.url("/files/1"), path), "\"" + path + "\"");
    EXPECT_EQ(download("/files/1", path), "\"" + path + "\"");
    EXPECT_EQ(download(stranger.url("/files/1"), path), "\"" + path + "\"");
    ASSERT_EQ(signatures.size(), 3u);
    EXPECT_NE(signatures[0], "");
    EXPECT_NE(signatures[1], "");
    EXPECT_EQ(signatures[2], "");
    std::filesystem::remove(path);
}

TEST(Download, WithoutAnAttachmentFails) {
    Outcome outcome;
    VXIMMessage::messageWithText("http://127.0.0.1/")->downloadAttachment("/tmp/never-made", {}, outcome.result());
    EXPECT_FALSE(outcome.hasEnded()) << "not on the caller's turn";
    ASSERT_TRUE(eventually([&] { return outcome.hasEnded(); }));
    EXPECT_EQ(outcome.text(), "nil, NSURLErrorDomain -1000");
}

}  // namespace
