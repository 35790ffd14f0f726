#include "VexIMLib/internal/Platform/Files/InputStream.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "VexIMLib/internal/Platform/Facts/URLErrors.h"
#include "VexIMLib/internal/Platform/Files/FileDescriptor.h"
#include "VexIMLib/internal/Platform/Files/FileManager.h"

namespace vexim {
namespace {

class DataInputStream final : public InputStream {
public:
    using InputStream::InputStream;
    bool initialise(Data data) {
        data_ = std::move(data);
        return true;
    }

    void open() override {
        if (status_ == StreamStatus::NotOpen) status_ = StreamStatus::Open;
    }
    void close() override { status_ = StreamStatus::Closed; }
    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
        if (status_ != StreamStatus::Open) return status_ == StreamStatus::NotOpen ? -1 : 0;
        const std::size_t count = std::min(maxLength, data_.size() - offset_);
        if (count > 0) std::memcpy(buffer, data_.bytes() + offset_, count);
        offset_ += count;
        if (offset_ == data_.size()) status_ = StreamStatus::AtEnd;
        return static_cast<std::int64_t>(count);
    }
    bool hasBytesAvailable() const override { return status_ == StreamStatus::Open; }
    StreamStatus streamStatus() const override { return status_; }
    ErrorPtr streamError() const override { return nullptr; }
    std::shared_ptr<InputStream> again() const override { return withData(data_); }

private:
    Data data_;
    std::size_t offset_ = 0;
    StreamStatus status_ = StreamStatus::NotOpen;
};

class FileInputStream final : public InputStream {
public:
    using InputStream::InputStream;
    bool initialise(std::string path) {
        path_ = std::move(path);
        return true;
    }

    void open() override {
        if (status_ != StreamStatus::NotOpen) return;
        status_ = StreamStatus::Open;
        file_ = FileDescriptor(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
        struct stat status {};
        if (!file_ || ::fstat(file_.get(), &status) != 0) return fail(errno);
        if (S_ISDIR(status.st_mode)) return fail(EISDIR);
        ::posix_fadvise(file_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    }
    void close() override {
        file_.close();
        status_ = StreamStatus::Closed;
    }
    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
        if (status_ != StreamStatus::Open)
            return status_ == StreamStatus::AtEnd || status_ == StreamStatus::Closed ? 0 : -1;
        const ssize_t count = file_.read(buffer, maxLength);
        if (count < 0) fail(errno);
        if (count == 0 && maxLength > 0) status_ = StreamStatus::AtEnd;
        return count;
    }
    bool readsNonBlocking() const override {
        return status_ == StreamStatus::Open && !blocksAlways_;
    }
    std::int64_t readNonBlocking(std::uint8_t* buffer, std::size_t maxLength) override {
        if (!readsNonBlocking()) return -1;
        const ssize_t count = file_.readCached(buffer, maxLength);
        if (count < 0 && errno == EOPNOTSUPP) blocksAlways_ = true;
        return count > 0 ? count : -1;
    }
    bool hasBytesAvailable() const override { return status_ == StreamStatus::Open; }
    StreamStatus streamStatus() const override { return status_; }
    ErrorPtr streamError() const override { return error_; }
    std::shared_ptr<InputStream> again() const override {
        const auto found = FileManager::attributes(path_);
        // a missing file is reported when it is opened
        return found && !found->isRegular ? nullptr : withFileAtPath(path_);
    }

private:
    void fail(int errnum) {
        error_ = fileReadError(errnum);
        status_ = StreamStatus::Error;
    }

    std::string path_;
    FileDescriptor file_;
    StreamStatus status_ = StreamStatus::NotOpen;
    bool blocksAlways_ = false;  // the file system cannot do it without waiting
    ErrorPtr error_;
};

/// A stream that always fails to open.
class RefusingInputStream final : public InputStream {
public:
    using InputStream::InputStream;
    bool initialise(ErrorPtr error) {
        error_ = std::move(error);
        return true;
    }
    void open() override { status_ = StreamStatus::Error; }
    void close() override { status_ = StreamStatus::Closed; }
    std::int64_t read(std::uint8_t*, std::size_t) override { return -1; }
    bool hasBytesAvailable() const override { return false; }
    StreamStatus streamStatus() const override { return status_; }
    ErrorPtr streamError() const override {
        return status_ == StreamStatus::NotOpen ? nullptr : error_;
    }

private:
    ErrorPtr error_;
    StreamStatus status_ = StreamStatus::NotOpen;
};

}  // namespace

std::shared_ptr<InputStream> InputStream::withData(Data data) {
    return create<DataInputStream>(std::move(data));
}

std::shared_ptr<InputStream> InputStream::withFileAtPath(std::string path) {
    return create<FileInputStream>(std::move(path));
}

std::shared_ptr<InputStream> InputStream::withURL(const URL& url) {
    if (url.isFileURL()) return withFileAtPath(url.path());
    return create<RefusingInputStream>(makeURLError(URLErrorUnsupportedURL, url));
}

bool InputStream::getBuffer(std::uint8_t**, std::size_t*) { return false; }
Value InputStream::propertyForKey(std::string_view) const { return nullptr; }
bool InputStream::setPropertyForKey(const Value&, std::string_view) { return false; }

}  // namespace vexim
