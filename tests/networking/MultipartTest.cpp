#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/VXIMConstants.h"
#include "VexIMLib/internal/Networking/VXIMAFStreamingMultipartFormData.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "networking/NetworkingFixture.h"
#include "support/Eventually.h"
#include "support/WrittenStream.h"

using vexim::Data;
using vexim::Dictionary;
using vexim::ErrorPtr;
using vexim::InputStream;
using vexim::URL;
using vexim::Value;

namespace {

/// A stream of three bytes. Records what happens to it, and on which thread.
class NotedStream final : public InputStream {
public:
    using InputStream::InputStream;
    bool initialise() { return true; }
    void open() override { note("open"); }
    void close() override { note("close"); }
    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
        const std::size_t count = isInterrupted ? 0 : std::min<std::size_t>(3, maxLength);
        std::fill_n(buffer, count, 'x');
        reads += 1;
        return static_cast<std::int64_t>(count);
    }
    bool hasBytesAvailable() const override { return reads == 0; }
    vexim::StreamStatus streamStatus() const override {
        return reads == 0 ? vexim::StreamStatus::Open : vexim::StreamStatus::AtEnd;
    }
    ErrorPtr streamError() const override { return nullptr; }
    void interrupt() override { isInterrupted = true; }

    std::string noted;
    std::atomic<int> reads{0};
    std::atomic<bool> isInterrupted{false};

private:
    void note(const char* what) {
        noted += what;
        if (!vexim::MainQueue::shared().isMainThread()) noted += " elsewhere";
        noted += ' ';
    }
};

class MultipartTest : public NetworkingTest {
protected:
    std::shared_ptr<VXIMAFStreamingMultipartFormData> newForm() {
        return VXIMAFStreamingMultipartFormData::initWithURLRequest(VXIMRequest::request(),
                                                                    vexim::StringEncoding::UTF8);
    }

    /// The whole body, read in pieces of `step` bytes.
    static std::string readAll(InputStream& stream, std::size_t step) {
        std::string bytes;
        std::vector<std::uint8_t> buffer(step);
        stream.open();
        for (std::int64_t count = 0; (count = stream.read(buffer.data(), step)) > 0;) {
            bytes.append(reinterpret_cast<const char*>(buffer.data()),
                         static_cast<std::size_t>(count));
        }
        return bytes;
    }

    /// The same with a reader that does the pauses itself. `pieces` gets the number of bytes
    /// between the pauses.
    static std::string readPieces(InputStream& stream, std::size_t step,
                                  std::vector<std::int64_t>* pieces = nullptr) {
        std::string bytes;
        std::vector<std::uint8_t> buffer(step);
        stream.open();
        for (std::int64_t sum = 0;;) {
            const auto piece = stream.readPiece(buffer.data(), step);
            bytes.append(reinterpret_cast<const char*>(buffer.data()),
                         static_cast<std::size_t>(piece.count));
            if (piece.count == 0 && !piece.isAwaiting()) return bytes;
            if (piece.onMain) piece.onMain();
            sum += piece.count;
            if (piece.rest.count() == 0) continue;
            if (pieces) pieces->push_back(sum);
            sum = 0;
        }
    }

    static std::shared_ptr<InputStream> copyOf(const VXIMAFMultipartBodyStream& stream) {
        return std::static_pointer_cast<InputStream>(stream.copy());
    }
};

TEST_F(MultipartTest, OneFileIsWrappedInItsBoundaries) {
    const auto form = newForm();
    ASSERT_TRUE(form->appendPartWithFileURL(URL::fileURLWithPath(makeFile("a picture.png", "PNG")),
                                            "attachment", nullptr));
    const auto request = form->requestByFinalizingMultipartFormData();
    const auto& token = form->boundary();
    EXPECT_EQ(token.size(), 25u);
    EXPECT_TRUE(token.starts_with("Boundary+"));
    EXPECT_EQ(token.find_first_not_of("0123456789ABCDEF", 9), std::string::npos);
    EXPECT_NE(token.substr(9, 8), token.substr(17)) << "64 random bits";

    const auto body = readAll(*request->bodyStream(), 1 << 16);
    EXPECT_EQ(
        body,
        "--" + token +
            "\r\nContent-Disposition: form-data; name=\"attachment\"; filename=\"a picture.png\"\r\n"
            "Content-Type: image/png\r\n\r\nPNG\r\n--" +
            token + "--\r\n");
    EXPECT_EQ(request->headers().get("Content-Type"),
              Value("multipart/form-data; boundary=" + token));
    EXPECT_EQ(request->headers().get("Content-Length"), Value(std::to_string(body.size())));
    EXPECT_NE(newForm()->boundary(), token);
}

TEST_F(MultipartTest, EveryMixOfPartsReadsTheSameInPiecesOfAnySize) {
    const auto contents = noise(40'000);
    const auto path = makeFile("noise.unknown-type", contents);
    const auto empty = makeFile("empty", "");
    const auto form = newForm();
    form->appendPartWithFormData(Data("7"), "id");
    form->appendPartWithFileData(Data(contents), "data", "bytes.bin", "application/octet-stream");
    ASSERT_TRUE(form->appendPartWithFileURL(URL::fileURLWithPath(path), "file", nullptr));
    ASSERT_TRUE(form->appendPartWithFileURL(URL::fileURLWithPath(empty), "nothing", nullptr));
    form->appendPartWithHeaders({{"X-One", "1"}, {"X-Two", "2"}}, Data());
    form->appendPartWithFileData(Data("last"), "a\"b", "x\r\ny", "text/plain");
    form->requestByFinalizingMultipartFormData();

    const auto delimiter = "\r\n--" + form->boundary();
    const auto expected =
        "--" + form->boundary() + "\r\nContent-Disposition: form-data; name=\"id\"\r\n\r\n7" +
        delimiter +
        "\r\nContent-Disposition: form-data; name=\"data\"; filename=\"bytes.bin\"\r\n"
        "Content-Type: application/octet-stream\r\n\r\n" +
        contents + delimiter +
        "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"noise.unknown-type\"\r\n"
        "Content-Type: application/octet-stream\r\n\r\n" +
        contents + delimiter +
        "\r\nContent-Disposition: form-data; name=\"nothing\"; filename=\"empty\"\r\n"
        "Content-Type: application/octet-stream\r\n\r\n" +
        delimiter + "\r\nX-One: 1\r\nX-Two: 2\r\n\r\n" + delimiter +
        "\r\nContent-Disposition: form-data; name=\"a%22b\"; filename=\"x%0D%0Ay\"\r\n"
        "Content-Type: text/plain\r\n\r\nlast" +
        delimiter + "--\r\n";
    EXPECT_EQ(form->bodyStream()->contentLength(), expected.size());
    const auto copy = form->bodyStream()->copy();
    EXPECT_EQ(static_cast<VXIMAFMultipartBodyStream&>(*copy).contentLength(), expected.size());
    for (const std::size_t step :
         {std::size_t{1}, std::size_t{7}, std::size_t{16'384}, expected.size() + 1}) {
        EXPECT_TRUE(readAll(*copyOf(*form->bodyStream()), step) == expected)
            << "in pieces of " << step;
        EXPECT_TRUE(readPieces(*copyOf(*form->bodyStream()), step) == expected)
            << "in pieces of " << step;
    }
}

TEST_F(MultipartTest, APartFromAStreamIsReadOnceWithItsAnnouncedLength) {
    const auto form = newForm();
    form->appendPartWithInputStream(InputStream::withData(Data("stream")), "s", "s.txt", 6,
                                    "text/plain");
    form->requestByFinalizingMultipartFormData();
    const auto body = readAll(*form->bodyStream(), 1000);
    EXPECT_EQ(body.size(), form->bodyStream()->contentLength());
    EXPECT_NE(body.find("\r\n\r\nstream\r\n--"), std::string::npos);
    EXPECT_EQ(readAll(*form->bodyStream()->again(), 1000), body) << "data can be had again";

    form->appendPartWithInputStream(vexim::testing::WrittenStream::make(), "p", "p", 1,
                                    "text/plain");
    form->requestByFinalizingMultipartFormData();
    EXPECT_EQ(form->bodyStream()->again(), nullptr) << "what is written meanwhile cannot";
}

TEST_F(MultipartTest, APartThatIsAddedAfterTheEndWasMarkedComesBeforeTheEnd) {
    const auto form = newForm();
    form->appendPartWithFormData(Data("1"), "a");
    form->requestByFinalizingMultipartFormData();
    form->appendPartWithFormData(Data("2"), "b");
    form->requestByFinalizingMultipartFormData();
    const auto body = readAll(*form->bodyStream(), 1000);
    EXPECT_EQ(body.find("--\r\n"), body.size() - 4);
}

TEST_F(MultipartTest, AnEmptyFormLeavesTheRequestAlone) {
    const auto request = newForm()->requestByFinalizingMultipartFormData();
    EXPECT_FALSE(request->bodyStream());
    EXPECT_EQ(request->headers(), (Dictionary{{"Content-Type", "application/json"}}));
}

TEST_F(MultipartTest, RefusesWhatIsNoReachableFile) {
    const auto form = newForm();
    ErrorPtr error;
    EXPECT_FALSE(form->appendPartWithFileURL(*URL::parse("https://a.example/x.png"), "f", &error));
    EXPECT_EQ(describe(nullptr, error),
              "AFURLRequestSerializationErrorDomain -1000 \"Expected URL to be a file URL\"");
    EXPECT_FALSE(form->appendPartWithFileURL(
        URL::fileURLWithPath((folder / "missing.png").string()), "f", &error));
    EXPECT_EQ(describe(nullptr, error),
              "AFURLRequestSerializationErrorDomain -1000 \"File URL not reachable.\"");
    EXPECT_TRUE(form->bodyStream()->isEmpty());
}

TEST_F(MultipartTest, AFileThatCannotBeReadShowsInTheStreamsError) {
    for (const bool isInPieces : {false, true}) {
        for (const std::size_t step : {std::size_t{1}, std::size_t{1000}}) {
            SCOPED_TRACE(std::to_string(step) + (isInPieces ? " in pieces" : ""));
            const auto path = makeFile("vanishing", "abc");
            const auto form = newForm();
            ASSERT_TRUE(form->appendPartWithFileURL(URL::fileURLWithPath(path), "f", nullptr));
            form->requestByFinalizingMultipartFormData();
            std::filesystem::remove(path);
            auto& stream = *form->bodyStream();
            const auto bytes = isInPieces ? readPieces(stream, step) : readAll(stream, step);
            EXPECT_EQ(bytes.find("--\r\n"), std::string::npos);
            ASSERT_TRUE(stream.streamError());
            EXPECT_TRUE(stream.streamError()->is(vexim::kCocoaErrorDomain, 260));
        }
    }
}

TEST_F(MultipartTest, ThrottlingBoundsEveryReadAndCopiesAreUnthrottled) {
    const auto form = newForm();
    form->appendPartWithFileData(Data(noise(50'000)), "f", "f", "x/y");
    form->throttleBandwidthWithPacketSize(kVXIMAFUploadStream3GSuggestedPacketSize, 0.001);
    form->requestByFinalizingMultipartFormData();
    const auto& stream = form->bodyStream();
    std::vector<std::uint8_t> buffer(100'000);
    EXPECT_EQ(copyOf(*stream)->read(buffer.data(), buffer.size()), 0) << "it is not open yet";
    stream->open();
    EXPECT_EQ(stream->read(buffer.data(), buffer.size()), 16'384);
    const auto copy = copyOf(*stream);
    copy->open();
    EXPECT_EQ(copy->read(buffer.data(), buffer.size()),
              static_cast<std::int64_t>(stream->contentLength()));

    // A reader that does the pauses itself gets the same packets.
    const auto again = std::static_pointer_cast<InputStream>(stream->again());
    std::vector<std::int64_t> packets;
    EXPECT_EQ(readPieces(*again, buffer.size(), &packets).size(), stream->contentLength());
    EXPECT_EQ(packets, (std::vector<std::int64_t>{
                           16'384, 16'384, 16'384,
                           static_cast<std::int64_t>(stream->contentLength()) - 3 * 16'384}));

    stream->close();
    EXPECT_EQ(stream->read(buffer.data(), buffer.size()), 0);
    EXPECT_FALSE(stream->hasBytesAvailable());
}

TEST_F(MultipartTest, AReaderOnAnotherThreadMovesOnThroughTheMainThread) {
    const auto contents = noise(100'000);
    const auto form = newForm();
    ASSERT_TRUE(
        form->appendPartWithFileURL(URL::fileURLWithPath(makeFile("f", contents)), "f", nullptr));
    const auto noted = vexim::create<NotedStream>();
    form->appendPartWithInputStream(noted, "n", "n", 3, "x/y");
    form->requestByFinalizingMultipartFormData();
    std::string body;
    std::atomic<bool> done{false};
    std::thread reader([&] {
        body = readAll(*form->bodyStream(), 999);
        done = true;
        vexim::MainQueue::shared().async([] {});
    });
    EXPECT_TRUE(vexim::testing::eventually([&] { return done.load(); }));
    reader.join();
    EXPECT_EQ(body.size(), form->bodyStream()->contentLength());
    EXPECT_NE(body.find(contents), std::string::npos);
    EXPECT_EQ(noted->noted, "open close ");
}

TEST_F(MultipartTest, APauseOfThrottlingCanBeInterrupted) {
    const auto form = newForm();
    const auto noted = vexim::create<NotedStream>();
    form->appendPartWithInputStream(noted, "n", "n", 3, "x/y");
    form->throttleBandwidthWithPacketSize(1000, 1e300);  // longer than a clock counts
    form->requestByFinalizingMultipartFormData();
    const auto again = newForm();
    again->appendPartWithFormData(Data("x"), "f");
    again->throttleBandwidthWithPacketSize(1, 1e300);
    again->bodyStream()->open();
    std::uint8_t byte = 0;
    EXPECT_GT(again->bodyStream()->readPiece(&byte, 1).rest, std::chrono::hours(1));
    std::atomic<bool> done{false};
    std::thread reader([&] {
        readAll(*form->bodyStream(), 1000);
        done = true;
        vexim::MainQueue::shared().async([] {});
    });
    ASSERT_TRUE(vexim::testing::eventuallyElsewhere([&] { return noted->reads > 0; }));
    EXPECT_FALSE(done) << "it rests";
    form->bodyStream()->interrupt();
    EXPECT_TRUE(noted->isInterrupted);
    EXPECT_TRUE(vexim::testing::eventually([&] { return done.load(); }));
    reader.join();
}

}  // namespace
