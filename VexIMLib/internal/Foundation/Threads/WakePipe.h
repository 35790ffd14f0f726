#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <system_error>

namespace vexim {

/// What a polling host waits for: a pipe, which every system has, with a byte in it. Made once and
/// kept for good.
class WakePipe {
public:
    /// To be called with the queue's mutex; from then on `tell` writes.
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
    /// Any thread. A full pipe needs no further byte.
    void tell() noexcept {
        const int end = writing_;
        if (end < 0) return;
        while (::write(end, "", 1) < 0 && errno == EINTR) continue;
        told_ = true;  // after the byte: whoever sees it finds one
    }
    /// To be called with the queue's mutex, so that no byte for what is queued later is taken
    /// along.
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
