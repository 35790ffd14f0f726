#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <system_error>

namespace vexim {

/// Wakes a host that polls, by a byte in a pipe. (Every system has pipes.) The pipe is made once
/// and never closed.
class WakePipe {
public:
    /// Call it with the queue's mutex held. From then on `tell` writes.
    int open() {
        if (reading_ >= 0) return reading_;
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0)
            throw std::system_error(errno, std::generic_category(), "pipe");
        for (const int end : ends) {
            ::fcntl(end, F_SETFD, FD_CLOEXEC);
            ::fcntl(end, F_SETFL, O_NONBLOCK);
        }
        reading_ = ends[0];
        writing_ = ends[1];
        tell();  // the host drains once at its start
        return reading_;
    }
    /// Call from any thread. A full pipe needs no further byte.
    void tell() noexcept {
        const int end = writing_;
        if (end < 0) return;
        while (::write(end, "", 1) < 0 && errno == EINTR) continue;
        told_ = true;  // set after the byte is written, so whoever sees it finds the byte
    }
    /// Call it with the queue's mutex held. Otherwise it might remove the byte of a function that
    /// is queued later.
    void clear() noexcept {
        if (!told_.exchange(false)) return;
        std::array<char, 64> bytes;
        while (::read(reading_, bytes.data(), bytes.size()) > 0) continue;
    }

private:
    int reading_ = -1;
    std::atomic<int> writing_{-1};
    std::atomic<bool> told_{false};
};

}  // namespace vexim
