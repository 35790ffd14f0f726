#include <algorithm>
#include <cstring>
#include <vector>

#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/Platform/Files/InputStream.h"
#include "VexIMLib/internal/Platform/Files/OutputStream.h"

namespace vexim {
namespace {

/// A ring of bytes with a reader on one side and a writer on the other.
class Pipe {
public:
    explicit Pipe(std::size_t capacity) : ring_(std::max<std::size_t>(capacity, 1)) {}

    /// Waits for bytes and returns how many came; 0 once the writer has closed and the ring is
    /// empty.
    std::size_t read(std::uint8_t* buffer, std::size_t maxLength) {
        const MutexLock lock(mutex_);
        while (count_ == 0 && !writerClosed_ && !readerClosed_) changed_.wait(mutex_);
        const std::size_t count = std::min({maxLength, count_, ring_.size() - first_});
        std::memcpy(buffer, ring_.data() + first_, count);
        first_ = (first_ + count) % ring_.size();
        count_ -= count;
        changed_.notifyAll();
        return count;
    }

    /// Waits for space and returns how many bytes were taken; 0 once the reader has closed.
    std::size_t write(const std::uint8_t* bytes, std::size_t length) {
        const MutexLock lock(mutex_);
        while (count_ == ring_.size() && !readerClosed_) changed_.wait(mutex_);
        if (readerClosed_) return 0;
        const std::size_t end = (first_ + count_) % ring_.size();
        const std::size_t count = std::min({length, ring_.size() - count_, ring_.size() - end});
        std::memcpy(ring_.data() + end, bytes, count);
        count_ += count;
        changed_.notifyAll();
        return count;
    }

    void closeReader() { close(&Pipe::readerClosed_); }
    void closeWriter() { close(&Pipe::writerClosed_); }
    bool hasBytes() {
        const MutexLock lock(mutex_);
        return count_ > 0;
    }
    bool hasSpace() {
        const MutexLock lock(mutex_);
        return count_ < ring_.size() && !readerClosed_;
    }

private:
    void close(bool Pipe::*side) {
        const MutexLock lock(mutex_);
        this->*side = true;
        changed_.notifyAll();
    }

    Mutex mutex_;
    ConditionVariable changed_;
    std::vector<std::uint8_t> ring_ VEXIM_GUARDED_BY(mutex_);
    std::size_t first_ VEXIM_GUARDED_BY(mutex_) = 0;
    std::size_t count_ VEXIM_GUARDED_BY(mutex_) = 0;
    bool readerClosed_ = false;  // guarded by mutex_, like the next; set by `close`
    bool writerClosed_ = false;
};

class PipeInputStream final : public InputStream {
public:
    using InputStream::InputStream;
    bool initialise(std::shared_ptr<Pipe> pipe) {
        pipe_ = std::move(pipe);
        return true;
    }
    ~PipeInputStream() override { pipe_->closeReader(); }

    void open() override {
        if (status_ == StreamStatus::NotOpen) status_ = StreamStatus::Open;
    }
    void close() override {
        pipe_->closeReader();
        status_ = StreamStatus::Closed;
    }
    std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
        if (status_ != StreamStatus::Open) return status_ == StreamStatus::NotOpen ? -1 : 0;
        const std::size_t count = pipe_->read(buffer, maxLength);
        if (count == 0 && maxLength > 0) status_ = StreamStatus::AtEnd;
        return static_cast<std::int64_t>(count);
    }
    bool hasBytesAvailable() const override {
        return status_ == StreamStatus::Open && pipe_->hasBytes();
    }
    StreamStatus streamStatus() const override { return status_; }
    ErrorPtr streamError() const override { return nullptr; }
    void interrupt() override { pipe_->closeReader(); }

private:
    std::shared_ptr<Pipe> pipe_;
    StreamStatus status_ = StreamStatus::NotOpen;
};

class PipeOutputStream final : public OutputStream {
public:
    using OutputStream::OutputStream;
    bool initialise(std::shared_ptr<Pipe> pipe) {
        pipe_ = std::move(pipe);
        return true;
    }
    ~PipeOutputStream() override { pipe_->closeWriter(); }

    void open() override {
        if (status_ == StreamStatus::NotOpen) status_ = StreamStatus::Open;
    }
    void close() override {
        pipe_->closeWriter();
        status_ = StreamStatus::Closed;
    }
    std::int64_t write(const std::uint8_t* bytes, std::size_t length) override {
        if (status_ != StreamStatus::Open) return -1;
        if (length == 0) return 0;
        const std::size_t count = pipe_->write(bytes, length);
        if (count > 0) return static_cast<std::int64_t>(count);
        status_ = StreamStatus::Error;
        error_ = Error::withDescription(kPOSIXErrorDomain, EPIPE,
                                        "The other end of the stream is closed.");
        return -1;
    }
    bool hasSpaceAvailable() const override {
        return status_ == StreamStatus::Open && pipe_->hasSpace();
    }
    StreamStatus streamStatus() const override { return status_; }
    ErrorPtr streamError() const override { return error_; }

private:
    std::shared_ptr<Pipe> pipe_;
    StreamStatus status_ = StreamStatus::NotOpen;
    ErrorPtr error_;
};

}  // namespace

std::pair<std::shared_ptr<InputStream>, std::shared_ptr<OutputStream>> boundStreams(
    std::size_t capacity) {
    auto pipe = std::make_shared<Pipe>(capacity);
    auto input = create<PipeInputStream>(pipe);
    return {std::move(input), create<PipeOutputStream>(std::move(pipe))};
}

}  // namespace vexim
