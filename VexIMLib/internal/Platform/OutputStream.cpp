#include "VexIMLib/internal/Platform/OutputStream.h"

#include <fcntl.h>

#include <cerrno>

#include "VexIMLib/internal/Platform/FileDescriptor.h"
#include "VexIMLib/internal/Platform/FileManager.h"

namespace vexim {
namespace {

/// Keeps a first whole run as it came: most answers are one, and then nothing is copied.
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
        gather();
        bytes_.append(reinterpret_cast<const char*>(bytes), length);
        return static_cast<std::int64_t>(length);
    }
    std::int64_t writeData(const Data& data) override {
        if (status_ != StreamStatus::Open || !whole_.empty() || !bytes_.empty()) return write(data.bytes(), data.size());
        whole_ = data;
        return static_cast<std::int64_t>(data.size());
    }
    bool hasSpaceAvailable() const override { return status_ == StreamStatus::Open; }
    StreamStatus streamStatus() const override { return status_; }
    ErrorPtr streamError() const override { return nullptr; }
    Data dataWrittenToMemory() override {
        if (!bytes_.empty()) whole_ = Data::fromString(std::exchange(bytes_, {}));
        return whole_;
    }

private:
    void gather() {
        if (whole_.empty()) return;
        bytes_.assign(whole_.view());
        whole_ = {};
    }

    // At most one of them holds something.
    Data whole_;
    std::string bytes_;
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
        file_ = FileDescriptor(::open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (append_ ? O_APPEND : O_TRUNC), 0666));
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
