#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <random>
#include <thread>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/VXIMTransfer.h"
#include "VexIMLib/internal/Networking/DownloadFile.h"
#include "VexIMLib/internal/Networking/NetworkingErrors.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Networking/VXIMUtils.h"
#include "VexIMLib/internal/Platform/Files/FileManager.h"
#include "VexIMLib/internal/Platform/Files/OutputStream.h"
#include "VexIMLib/internal/Platform/Loading/URLSessionTask.h"
#include "networking/NetworkingFixture.h"
#include "support/Completions.h"
#include "support/Eventually.h"

using namespace vexim;
using namespace vexim::testing;

namespace {

class DownloadTest : public NetworkingTest {
protected:
    static std::shared_ptr<VXIMRequest> requestFor(const std::string& path) {
        auto request = VXIMRequest::request();
        request->setPath(path);
        return request;
    }

    std::string downloadTo(const std::filesystem::path& target, VXIMProgress progress = nullptr,
                           std::shared_ptr<VXIMTransfer> transfer = nullptr) {
        return outcomeOf([&](VXIMResultCompletion done) {
            requestFor("/file")->downloadToPath(target.string(), std::move(progress),
                                                std::move(done), std::move(transfer));
        });
    }
};

TEST_F(DownloadTest, TheBodyGoesToTheStreamAndTheResultIsTheTargetPath) {
    const auto contents = noise(3'000'000);
    answerEverything(200, contents);
    const auto target =
        vexim::temporaryDirectory() + "/vexora/" + VXIMUtils::md5FromString(server->url("/file"));
    std::string asked;
    std::vector<std::int32_t> percents;
    EXPECT_EQ(outcomeOf([&](VXIMResultCompletion done) {
                  requestFor("/file")->downloadWithOutputStreamBlock(
                      [&](const std::string& path) {
                          asked = path;
                          return OutputStream::toFileAtPath((folder / "mine").string(), false);
                      },
                      [&](std::int32_t percent) {
                          percents.push_back(percent);
                          EXPECT_TRUE(MainQueue::shared().isMainThread());
                      },
                      std::move(done));
              }),
              '"' + target + '"');
    EXPECT_EQ(asked, target);
    EXPECT_EQ(requests().front().header("Accept-Encoding"), "") << "or percents pass 100";
    EXPECT_TRUE(contentsOf(folder / "mine") == contents);
    ASSERT_FALSE(percents.empty());
    EXPECT_TRUE(std::is_sorted(percents.begin(), percents.end()));
    EXPECT_EQ(percents.back(), 100);
    EXPECT_TRUE(std::filesystem::is_directory(vexim::temporaryDirectory() + "/vexora"));
}

/// Has space only every second time, and takes at most a thousand bytes.
class ReluctantStream : public OutputStream {
public:
    using OutputStream::OutputStream;
    bool initialise() { return true; }
    void open() override { status_ = vexim::StreamStatus::Open; }
    void close() override { status_ = vexim::StreamStatus::Closed; }
    std::int64_t write(const std::uint8_t* bytes, std::size_t length) override {
        const auto count = std::min<std::size_t>(length, 1000);
        taken.append(reinterpret_cast<const char*>(bytes), count);
        return static_cast<std::int64_t>(count);
    }
    bool hasSpaceAvailable() const override { return asked_++ % 2 == 1; }
    vexim::StreamStatus streamStatus() const override { return status_; }
    ErrorPtr streamError() const override { return nullptr; }

    std::string taken;

private:
    mutable int asked_ = 0;
    vexim::StreamStatus status_ = vexim::StreamStatus::NotOpen;
};

TEST_F(DownloadTest, AStreamThatTakesLittleAtATimeGetsEverything) {
    const auto contents = noise(100'500);
    answerEverything(200, contents);
    auto stream = vexim::create<ReluctantStream>();
    outcomeOf([&](VXIMResultCompletion done) {
        requestFor("/file")->downloadWithOutputStreamBlock(
            [&](const std::string&) { return stream; }, nullptr, std::move(done));
    });
    EXPECT_TRUE(stream->taken == contents);
    EXPECT_EQ(stream->streamStatus(), vexim::StreamStatus::Closed);
}

TEST_F(DownloadTest, ARefusalNeverReachesTheStream) {
    answerEverything(404, R"({"errorCode":404,"errorMessage":"gone"})");
    EXPECT_EQ(outcomeOf([&](VXIMResultCompletion done) {
                  requestFor("/file")->downloadWithOutputStreamBlock(
                      [&](const std::string&) -> std::shared_ptr<OutputStream> {
                          ADD_FAILURE() << "asked for a stream";
                          return nullptr;
                      },
                      nullptr, std::move(done));
              }),
              "VXErrorDomain 404 \"gone\" over NSURLErrorDomain -1011");
}

TEST_F(DownloadTest, WithoutAStreamTheBodyStaysInMemory) {
    answerEverything(200, "hello");
    EXPECT_TRUE(outcomeOf([&](VXIMResultCompletion done) {
                    requestFor("/file")->downloadWithOutputStreamBlock(nullptr, nullptr,
                                                                       std::move(done));
                }).find("/vexora/") != std::string::npos);
}

TEST_F(DownloadTest, AFileAppearsUnderItsNameWhenItIsWhole) {
    const auto contents = noise(200'000);
    answerEverything(200, contents);
    const auto target = folder / "photo.png";
    makeFile("photo.png", "an older one");
    EXPECT_EQ(downloadTo(target), '"' + target.string() + '"');
    EXPECT_TRUE(contentsOf(target) == contents);

    // more than the limit for answers in memory
    answerEverything(200, std::string(17 << 20, 'x'));
    EXPECT_EQ(downloadTo(target), '"' + target.string() + '"');
    EXPECT_EQ(std::filesystem::file_size(target), std::uintmax_t{17} << 20);

    answerEverything(200, "");
    EXPECT_EQ(downloadTo(folder / "empty"), '"' + (folder / "empty").string() + '"');
    EXPECT_EQ(contentsOf(folder / "empty"), "");
    EXPECT_EQ(folder.count(), 2u);
}

TEST_F(DownloadTest, AFailureLeavesTheOldFileAndNoOther) {
    const auto contents = noise(200'000);
    const auto head =
        "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(contents.size()) + "\r\n\r\n";
    const struct {
        const char* why;
        ScriptedServer::Script script;
        const char* outcome;
    } cases[] = {
        {"refused", ScriptedServer::answering([](const WireRequest&) {
             return ScriptedServer::text(403, "");
         }),
         "-1011"},
        {"cut before the head", [](Connection& connection) { connection.readRequest(); }, "-1005"},
        {"cut after the head",
         [&](Connection& connection) {
             connection.readRequest();
             connection.write(head);
         },
         "-1005"},
        {"cut in the middle",
         [&](Connection& connection) {
             connection.readRequest();
             connection.write(head + contents.substr(0, contents.size() / 2));
         },
         "-1005"},
        {"cut before the last byte",
         [&](Connection& connection) {
             connection.readRequest();
             connection.write(head + contents.substr(1));
         },
         "-1005"},
    };
    makeFile("target", "old");
    for (const auto& test : cases) {
        SCOPED_TRACE(test.why);
        serve(test.script);
        const auto outcome = downloadTo(folder / "target");
        EXPECT_TRUE(outcome.ends_with(test.outcome)) << outcome;
        EXPECT_EQ(contentsOf(folder / "target"), "old");
        EXPECT_EQ(folder.count(), 1u);
    }
}

TEST_F(DownloadTest, AFileThatIsBegunEndsUnderItsNameOrNotAtAll) {
    const auto begun = [](rest::DownloadFile& file) {
        const auto stream = file.newStream();
        stream->open();
        stream->writeData(Data("half"));
        stream->close();
    };
    std::filesystem::create_directory(folder / "in");
    {
        rest::DownloadFile one((folder / "in" / "x").string());
        rest::DownloadFile another((folder / "in" / "x").string());
        begun(one);
        begun(another);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder / "in"), {}), 2)
            << "two at a time";
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder / "in")) << "both were dropped";

    rest::DownloadFile moved((folder / "in" / "x").string());
    begun(moved);
    std::filesystem::rename(folder / "in", folder / "out");
    EXPECT_TRUE(describe(nullptr, moved.conclude(nullptr)).ends_with("NSCocoaErrorDomain 4"));
    rest::DownloadFile unwritable((folder / "in" / "x").string());
    begun(unwritable);
    EXPECT_EQ(unwritable.conclude(rest::cancelled())->code(), URLErrorCancelled)
        << "who cancels is told so";
}

TEST_F(DownloadTest, WhereNoFileCanBeMadeNothingIsSent) {
    answerEverything(200, "contents");
    std::filesystem::create_directories(folder / "taken" / "by");
    const struct {
        const char* why;
        std::filesystem::path target;
        const char* outcome;
    } cases[] = {
        {"no such folder", folder / "no" / "such" / "folder",
         R"(VXErrorDomain 100 "The file couldn't be saved: No such file or directory." over NSCocoaErrorDomain 4)"},
        {"a file in the folder's place", makeFile("file", "old") + "/x",
         R"(VXErrorDomain 100 "The file couldn't be saved: Not a directory." over NSCocoaErrorDomain 4)"},
        {"a directory stands there", folder / "taken",
         R"(VXErrorDomain 100 "The file couldn't be saved: Is a directory." over NSCocoaErrorDomain 512)"},
        {"no name at all", "",
         R"(VXErrorDomain 100 "The file couldn't be saved: No such file or directory." over NSCocoaErrorDomain 4)"},
    };
    for (const auto& test : cases) EXPECT_EQ(downloadTo(test.target), test.outcome) << test.why;
    EXPECT_EQ(folder.count(), 2u);
    const auto cancelled = VXIMTransfer::transfer();
    cancelled->cancel();
    EXPECT_TRUE(
        downloadTo(folder / "taken", nullptr, cancelled).starts_with("NSURLErrorDomain -999"));
    EXPECT_TRUE(requests().empty());
}

TEST_F(DownloadTest, LeavesAFileAloneThatHasTheNameOfAFolderOfOurs) {
    answerEverything(200, "contents");
    const auto standing = makeFile("vexora", "somebody's");
    const TemporaryFilesIn here(folder.path());
    EXPECT_EQ(downloadTo(folder / "target"), '"' + (folder / "target").string() + '"');
    EXPECT_EQ(contentsOf(standing), "somebody's");
}

TEST_F(DownloadTest, AHandleHearsOfTheBytes) {
    const auto contents = noise(300'000);
    const auto bytesOf = [&](const std::shared_ptr<VXIMTransfer>& transfer) {
        std::string text;
        std::int64_t before = 0;
        transfer->setProgress([&](VXIMTransferProgress progress) {
            EXPECT_TRUE(MainQueue::shared().isMainThread());
            EXPECT_GT(progress.bytes, before);
            before = progress.bytes;
            text = std::to_string(progress.bytes) + " of " +
                   (progress.total ? std::to_string(*progress.total) : "an unknown total");
        });
        downloadTo(folder / "target", nullptr, transfer);
        return text;
    };
    answerEverything(200, contents);
    EXPECT_EQ(bytesOf(VXIMTransfer::transfer()), "300000 of 300000");
    serve([&](Connection& connection) {
        connection.readRequest();
        connection.write("HTTP/1.1 200 OK\r\n\r\n" + contents);
    });
    EXPECT_EQ(bytesOf(VXIMTransfer::transfer()), "300000 of an unknown total");
}

/// While this lives, no file of this process grows beyond `bytes`, as if the disk were full.
class FullDisk {
public:
    explicit FullDisk(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        auto limit = before_;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }

private:
    void (*handler_)(int);
    rlimit before_{};
};

TEST_F(DownloadTest, AFullDiskIsAnErrorAndLeavesNothing) {
    for (const std::size_t size : {5'000u, 3'000'000u}) {  // one write, and many
        SCOPED_TRACE(size);
        answerEverything(200, noise(size));
        std::string outcome;
        {
            const FullDisk disk(1000);
            outcome = downloadTo(folder / "target");
        }
        EXPECT_TRUE(outcome.starts_with(
            "VXErrorDomain 100 \"The file couldn't be saved: File too large.\" over NSCocoa"))
            << outcome;
        EXPECT_EQ(folder.count(), 0u);
        const FullDisk disk(1000);
        outcome = outcomeOf([&](VXIMResultCompletion done) {
            requestFor("/file")->downloadWithOutputStreamBlock(
                [&](const std::string&) {
                    return OutputStream::toFileAtPath((folder / "mine").string(), false);
                },
                nullptr, std::move(done));
        });
        if (size > 1'000'000) {
            EXPECT_NE(outcome.find("over NSCocoaErrorDomain"), outcome.npos) << outcome;
        }
        std::filesystem::remove(folder / "mine");
    }
    const auto before = requests().size();
    const FullDisk disk(0);
    EXPECT_TRUE(downloadTo(folder / "target")
                    .starts_with("VXErrorDomain 100 \"The file couldn't be saved:"));
    EXPECT_EQ(requests().size(), before) << "it was full from the start";
}

TEST_F(DownloadTest, CancelledAtAnyMomentFromAnyThreadItEndsOnceAndCleanly) {
    const auto contents = noise(300'000);
    answerEverything(200, contents);
    const auto target = folder / "target";
    std::mt19937 random(std::random_device{}());
    const auto seed = random();
    SCOPED_TRACE("seed " + std::to_string(seed));
    random.seed(seed);
    for (int round = 0; round < 100; ++round) {
        auto transfer = VXIMTransfer::transfer();
        std::thread canceller([transfer, yields = random() % 500] {
            for (unsigned i = 0; i < yields; ++i) std::this_thread::yield();
            transfer->cancel();
        });
        const auto outcome = downloadTo(target, nullptr, transfer);
        canceller.join();
        if (transfer->isCancelled()) {
            EXPECT_TRUE(outcome.starts_with("NSURLErrorDomain -999")) << outcome;
            EXPECT_EQ(folder.count(), 0u);
        } else {
            EXPECT_TRUE(contentsOf(target) == contents);
            EXPECT_EQ(folder.count(), 1u);
            std::filesystem::remove(target);
        }
    }
}

TEST_F(DownloadTest, CancelledWithoutAHandleItSaysNothingAndLeavesNothing) {
    serve([](Connection& connection) {
        connection.readRequest();
        connection.write("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf");
        connection.waitForClose();
    });
    auto object = std::make_shared<int>(5);
    bool reported = false;
    auto task = requestFor("/file")->downloadWithOutputStreamBlock(
        [&](const std::string&) { return OutputStream::toMemory(); },
        [&](std::int32_t) { reported = true; },
        [object](const Value&, const ErrorPtr&) { ADD_FAILURE() << "called"; });
    ASSERT_TRUE(eventually([&] { return reported; }));
    task->cancel();
    EXPECT_TRUE(eventuallyElsewhere([&] { return object.use_count() == 1; }));

    const auto transfer = VXIMTransfer::transfer();
    transfer->setProgress([&](VXIMTransferProgress) { EXPECT_TRUE(transfer->cancel()); });
    EXPECT_TRUE(
        downloadTo(folder / "target", nullptr, transfer).starts_with("NSURLErrorDomain -999"))
        << "though the peer is silent";
    EXPECT_FALSE(transfer->cancel());
}

}  // namespace
