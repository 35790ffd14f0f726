#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <iterator>
#include <vector>

#include "VexIMLib/internal/Platform/Files/FileManager.h"
#include "VexIMLib/internal/Platform/Files/InputStream.h"
#include "VexIMLib/internal/Platform/Files/OutputStream.h"
#include "support/OrdinaryRights.h"
#include "support/TemporaryFolder.h"

namespace vexim::testing {
namespace {

std::string readAll(InputStream& stream, std::size_t piece) {
    std::string text;
    std::vector<std::uint8_t> buffer(piece);
    for (std::int64_t count = 0; (count = stream.read(buffer.data(), piece)) > 0;) {
        text.append(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count));
    }
    return text;
}

std::int64_t write(OutputStream& stream, std::string_view text) {
    return stream.write(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

TEST(Streams, ReadTheSameInAnyPieces) {
    const TemporaryFolder scratch;
    const std::string text = "some text of thirty-three bytes..";
    ASSERT_EQ(FileManager::writeAtomically(Data(text), scratch / "a b"), nullptr);
    for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, std::size_t{4096}}) {
        for (const auto& stream :
             {InputStream::withData(Data(text)), InputStream::withFileAtPath(scratch / "a b"),
              InputStream::withURL(URL::fileURLWithPath((scratch / "a b").string()))}) {
            EXPECT_EQ(stream->streamStatus(), StreamStatus::NotOpen);
            stream->open();
            EXPECT_TRUE(stream->hasBytesAvailable());
            EXPECT_EQ(readAll(*stream, piece), text);
            EXPECT_EQ(stream->streamStatus(), StreamStatus::AtEnd);
            stream->close();
            std::uint8_t byte = 0;
            EXPECT_EQ(stream->read(&byte, 1), 0) << "after close";
        }
    }
}

TEST(Streams, FailToOpenWithAnErrorThatSaysWhy) {
    const TemporaryFolder scratch;
    ASSERT_EQ(FileManager::writeAtomically(Data("x"), scratch / "mine"), nullptr);
    std::filesystem::permissions(scratch / "mine", std::filesystem::perms::none);
    std::filesystem::create_directory(scratch / "closed");
    std::filesystem::permissions(scratch / "closed", std::filesystem::perms(0555));
    const OrdinaryRights ordinary;
    const std::pair<std::shared_ptr<InputStream>, std::int64_t> inputs[] = {
        {InputStream::withFileAtPath(scratch / "none"), 260},
        {InputStream::withFileAtPath(scratch.path()), 256},
        {InputStream::withFileAtPath(scratch / "mine"), 257},
        {InputStream::withFileAtPath(scratch / std::string(300, 'n')), 258},
        {InputStream::withURL(*URL::parse("http://a.example/")), URLErrorUnsupportedURL},
    };
    for (const auto& [stream, code] : inputs) {
        stream->open();
        EXPECT_FALSE(stream->hasBytesAvailable()) << "known before the first read";
        std::uint8_t byte = 0;
        EXPECT_EQ(stream->read(&byte, 1), -1);
        EXPECT_EQ(stream->streamStatus(), StreamStatus::Error);
        ASSERT_TRUE(stream->streamError());
        EXPECT_EQ(stream->streamError()->code(), code);
    }
    const std::pair<std::shared_ptr<OutputStream>, std::int64_t> outputs[] = {
        {OutputStream::toFileAtPath("/dev/full", false), 640},
        {OutputStream::toFileAtPath(scratch / "mine", false), 513},
        {OutputStream::toFileAtPath(scratch / "closed/new", false), 513},
    };
    for (const auto& [stream, code] : outputs) {
        stream->open();
        EXPECT_EQ(write(*stream, "x"), -1);
        ASSERT_TRUE(stream->streamError());
        EXPECT_EQ(stream->streamError()->code(), code);
        EXPECT_FALSE(stream->hasSpaceAvailable());
    }
}

TEST(Streams, WriteToMemoryAndFiles) {
    const TemporaryFolder scratch;
    const auto memory = OutputStream::toMemory();
    EXPECT_EQ(write(*memory, "early"), -1) << "not open yet";
    memory->open();
    const Data first("first ");
    memory->writeData(first);
    EXPECT_EQ(memory->dataWrittenToMemory().bytes(), first.bytes())
        << "one run is kept, not copied";
    memory->writeData(Data("second "));
    write(*memory, "third");
    const std::string longRun(100'000, 'x');
    memory->writeData(Data(longRun));
    memory->close();
    for (const std::string& late : {std::string("late"), longRun})
        EXPECT_EQ(memory->writeData(Data(late)), -1) << "closed";
    EXPECT_EQ(memory->dataWrittenToMemory().view(), "first second third" + longRun);

    for (const bool append : {false, true}) {
        const auto file = OutputStream::toFileAtPath(scratch / "out", append);
        file->open();
        EXPECT_EQ(write(*file, append ? "more" : "some"), 4);
        file->close();
    }
    EXPECT_EQ(FileManager::contents(scratch / "out")->view(), "somemore");
}

TEST(Streams, TellThatReadingFailed) {
    const auto stream = InputStream::withFileAtPath("/proc/self/mem");  // nothing is at address 0
    stream->open();
    std::uint8_t byte = 0;
    EXPECT_EQ(stream->read(&byte, 1), -1);
    ASSERT_TRUE(stream->streamError());
    EXPECT_EQ(stream->streamError()->code(), 256);
}

TEST(Streams, GiveAFileAgainButNoPipe) {
    const TemporaryFolder scratch;
    const std::string pipe = scratch / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_FALSE(InputStream::withFileAtPath(pipe)->again()) << "what was read of it is gone";
    EXPECT_TRUE(InputStream::withFileAtPath(scratch / "none")->again()) << "opening it says why";
}

TEST(FileManager, KeepsAPrivateFolderClosed) {
    const TemporaryFolder scratch;
    const std::string folder = scratch / "a/private";
    EXPECT_EQ(FileManager::ensurePrivateDirectory(folder), nullptr);
    std::filesystem::permissions(folder, std::filesystem::perms(0755));
    EXPECT_EQ(FileManager::ensurePrivateDirectory(folder), nullptr);
    EXPECT_EQ(std::filesystem::status(folder).permissions(), std::filesystem::perms(0700));
    std::filesystem::create_directory_symlink(folder, scratch / "link");
    EXPECT_NE(FileManager::ensurePrivateDirectory(scratch / "link"), nullptr);
    ASSERT_EQ(FileManager::writeAtomically(Data("x"), scratch / "file"), nullptr);
    EXPECT_NE(FileManager::ensurePrivateDirectory(scratch / "file"), nullptr);
    EXPECT_EQ(appendPathComponent("a//", "/b"), "a/b");
    const TemporaryFilesIn slashed("/a/b//");
    EXPECT_EQ(temporaryDirectory(), "/a/b");
}

TEST(FileManager, CreatesReplacesAndRemoves) {
    const TemporaryFolder scratch;
    const std::string deep = scratch / "a/b/c";
    EXPECT_NE(FileManager::createDirectory(deep, false), nullptr);
    EXPECT_EQ(FileManager::createDirectory(deep, true), nullptr);
    EXPECT_EQ(FileManager::createDirectory(deep, true), nullptr) << "there already";
    EXPECT_TRUE(FileManager::isDirectory(deep));

    const auto file = appendPathComponent(deep, "f");
    ASSERT_EQ(FileManager::writeAtomically(Data("old"), file), nullptr);
    ASSERT_EQ(FileManager::writeAtomically(Data("newer"), file), nullptr);
    EXPECT_EQ(FileManager::attributes(file)->size, 5u);
    const auto entriesOf = [](const std::string& path) {
        return std::distance(std::filesystem::directory_iterator(path),
                             std::filesystem::directory_iterator());
    };
    EXPECT_EQ(entriesOf(deep), 1) << "no temporary file is left";
    EXPECT_NE(FileManager::createDirectory(file, true), nullptr) << "a file stands there";
    EXPECT_EQ(FileManager::writeAtomically(Data("x"), scratch / "none/f")->code(), 4);
    EXPECT_NE(FileManager::writeAtomically(Data("x"), deep), nullptr) << "a directory stands there";
    EXPECT_EQ(entriesOf(scratch / "a/b"), 1);

    EXPECT_EQ(FileManager::move(file, scratch / "moved"), nullptr);
    EXPECT_EQ(FileManager::remove(scratch / "a"), nullptr);
    EXPECT_FALSE(FileManager::fileExists(deep));
    EXPECT_EQ(FileManager::remove(deep)->code(), 4);
    ErrorPtr error;
    EXPECT_FALSE(FileManager::attributes(file, &error));
    EXPECT_EQ(error->underlyingError()->domain(), kPOSIXErrorDomain);
}

}  // namespace
}  // namespace vexim::testing
