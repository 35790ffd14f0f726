#include "VexIMLib/internal/Platform/Files/OutputStream.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "VexIMLib/internal/Platform/Files/FileDescriptor.h"
#include "VexIMLib/internal/Platform/Files/FileManager.h"

namespace vexim {
namespace {

/// Keeps long pieces as they came and gathers short ones. Nothing is copied again as it grows: old
/// blocks would take as much memory as the answer itself.
class MemoryOutputStream final : public OutputStream {
public:
    using OutputStream::OutputStream;
    bool initialise() { return true; }

    void open() override {
        if (status_ == StreamStatus::NotOpen) status_ = StreamStatus::Open;
    }
    void close() override { status_ = StreamStatus::Closed; }
    std::int64_t write(const std::uint8_t* bytes, std::size_t length) override {
        if (status_ != StreamStatus::Open) return -1;
        gathered_.append(reinterpret_cast<const char*>(bytes), length);
        if (gathered_.size() >= kLongRun) seal();
        return static_cast<std::int64_t>(length);
    }
    std::int64_t writeData(const Data& data) override {
        const bool isFirst = runs_.empty() && gathered_.empty();  // most answers are one piece
        if (status_ != StreamStatus::Open || (data.size() < kLongRun && !isFirst))
            return write(data.bytes(), data.size());
        seal();
        if (!data.empty()) runs_.push_back(data);
        return static_cast<std::int64_t>(data.size());
    }
    bool hasSpaceAvailable() const override { return status_ == StreamStatus::Open; }
    StreamStatus streamStatus() const override { return status_; }
    ErrorPtr streamError() const override { return nullptr; }
    Data dataWrittenToMemory() override {
        seal();
        if (runs_.size() > 1) {
            std::size_t size = 0;
            for (const Data& run : runs_) size += run.size();
            std::string whole;
            whole.reserve(size);
            for (const Data& run : runs_) whole.append(run.view());
            runs_ = {Data::fromString(std::move(whole))};
        }
        return runs_.empty() ? Data() : runs_.front();
    }

private:
    static constexpr std::size_t kLongRun = 64 * 1024;

    void seal() {
        if (!gathered_.empty()) runs_.push_back(Data::fromString(std::exchange(gathered_, {})));
    }

    std::vector<Data> runs_;
    std::string gathered_;  // the bytes after `runs_`
    StreamStatus status_ = StreamStatus::NotOpen;
};

class FileOutputStream final : public OutputStream {
public:
    using OutputStream::OutputStream;
    bool initialise(std::string path, bool append) {
        path_ = std::move(path);
        append_ = append;
        return true;
    }

    void open() override {
        if (status_ != StreamStatus::NotOpen) return;
        status_ = StreamStatus::Open;
        file_ = FileDescriptor(::open(
            path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (append_ ? O_APPEND : O_TRUNC), 0666));
        if (!file_) fail(errno);
    }
    void close() override {
        if (!file_.close() && !error_) error_ = fileWriteError(errno);
        status_ = StreamStatus::Closed;
    }
    std::int64_t write(const std::uint8_t* bytes, std::size_t length) override {
        if (status_ != StreamStatus::Open) return -1;
        const ssize_t count = file_.write(bytes, length);
        if (count < 0) fail(errno);
        return count;
    }
    bool hasSpaceAvailable() const override { return status_ == StreamStatus::Open; }
    StreamStatus streamStatus() const override { return status_; }
    ErrorPtr streamError() const override { return error_; }

private:
    void fail(int errnum) {
        error_ = fileWriteError(errnum);
        status_ = StreamStatus::Error;
    }

    std::string path_;
    bool append_ = false;
    FileDescriptor file_;
    StreamStatus status_ = StreamStatus::NotOpen;
    ErrorPtr error_;
};

}  // namespace

std::shared_ptr<OutputStream> OutputStream::toMemory() { return create<MemoryOutputStream>(); }

std::shared_ptr<OutputStream> OutputStream::toFileAtPath(std::string path, bool append) {
    return create<FileOutputStream>(std::move(path), append);
}

}  // namespace vexim
