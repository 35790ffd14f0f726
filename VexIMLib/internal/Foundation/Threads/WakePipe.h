#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <optional>
#include <utility>

namespace vexim {

/// Wakes a host that polls, by a byte in a pipe. The owner holds its mutex in all calls but
/// `notify`.
class WakePipe {
public:
    WakePipe() = default;
    ~WakePipe() { close(); }
    WakePipe(const WakePipe&) = delete;
    WakePipe& operator=(const WakePipe&) = delete;

    /// The descriptor to poll. The first call makes the pipe; nullopt if there are no descriptors
    /// left (`errno` says why).
    std::optional<int> open() noexcept {
        if (isOpen()) return reading_;
        std::array<int, 2> ends{};
        // Not pipe2: some of the systems that phones run lack it.
        if (::pipe(ends.data()) != 0) return std::nullopt;
        for (const int end : ends) {
            ::fcntl(end, F_SETFD, FD_CLOEXEC);
            ::fcntl(end, F_SETFL, O_NONBLOCK);
        }
        reading_ = ends[0];
        writing_ = ends[1];
        return reading_;
    }
    bool isOpen() const noexcept { return reading_ >= 0; }
    /// Whether there is a byte in the pipe.
    bool isNotified() const noexcept { return notified_; }
    /// Call from any thread. A full pipe needs no further byte, and one that is not open takes
    /// none.
    void notify() noexcept {
        const int end = writing_;
        if (end < 0) return;
        while (::write(end, "", 1) < 0 && errno == EINTR) continue;
        notified_ = true;  // set after the byte is written, so whoever sees it finds the byte
    }
    /// Call it with the mutex held. Otherwise it might remove the byte of something that is added
    /// later.
    void clear() noexcept {
        if (!notified_.exchange(false)) return;
        std::array<char, 64> bytes;
        constexpr auto kFull = static_cast<ssize_t>(bytes.size());
        for (ssize_t count = kFull; count == kFull || (count < 0 && errno == EINTR);)
            count = ::read(reading_, bytes.data(), bytes.size());
    }
    /// No thread may be in `notify`.
    void close() noexcept {
        if (!isOpen()) return;
        ::close(std::exchange(reading_, -1));
        ::close(writing_.exchange(-1));
        notified_ = false;
    }

private:
    int reading_ = -1;
    std::atomic<int> writing_{-1};
    std::atomic<bool> notified_{false};
};

}  // namespace vexim
