#pragma once

#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

namespace vexim {

/// Owns an open file descriptor.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~FileDescriptor() { close(); }

    explicit operator bool() const noexcept { return descriptor_ >= 0; }
    int get() const noexcept { return descriptor_; }
    /// Closes the file. Returns false, with errno set, if the system reports a late write error.
    /// The file is closed in any case.
    bool close() noexcept {
        const int descriptor = std::exchange(descriptor_, -1);
        return descriptor < 0 || ::close(descriptor) == 0;
    }

    // Like the system calls, but not interrupted by signals.
    ssize_t read(void* buffer, std::size_t size) const noexcept {
        ssize_t count = 0;
        do count = ::read(descriptor_, buffer, size);
        while (count < 0 && errno == EINTR);
        return count;
    }
    /// Reads without ever waiting for a disk or another process. EAGAIN if the bytes are not in the
    /// system's cache, EOPNOTSUPP if the system cannot tell.
    ssize_t readCached(void* buffer, std::size_t size) const noexcept {
#if defined(RWF_NOWAIT) && !defined(__ANDROID__)  // where preadv2 came late
        const iovec range{buffer, size};
        ssize_t count = 0;
        do count = ::preadv2(descriptor_, &range, 1, -1, RWF_NOWAIT);
        while (count < 0 && errno == EINTR);
        return count;
#else
        static_cast<void>(buffer), static_cast<void>(size);
        errno = EOPNOTSUPP;
        return -1;
#endif
    }
    ssize_t write(const void* bytes, std::size_t size) const noexcept {
        ssize_t count = 0;
        do count = ::write(descriptor_, bytes, size);
        while (count < 0 && errno == EINTR);
        return count;
    }

private:
    int descriptor_ = -1;
};

}  // namespace vexim
