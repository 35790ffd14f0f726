#include "HostLoop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <system_error>

#include "VexIMLib/Foundation/MainQueue.h"

HostLoop::HostLoop() : wakeup_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (wakeup_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    vexim::MainQueue::shared().setWake([descriptor = wakeup_] { eventfd_write(descriptor, 1); });
}

HostLoop::~HostLoop() {
    vexim::MainQueue::shared().setWake({});
    close(wakeup_);
}

void HostLoop::run(const std::function<void()>& inputReady) {
    using namespace std::chrono;
    auto& queue = vexim::MainQueue::shared();
    while (!quit_) {
        queue.drain();
        if (quit_) return;
        int timeout = -1;  // nothing is due: wait for a descriptor
        if (const auto deadline = queue.nextDeadline()) {
            const auto wait = ceil<milliseconds>(*deadline - vexim::Clock::shared()->now()).count();
            timeout = wait < 0 ? 0 : static_cast<int>(wait < 60'000 ? wait : 60'000);
        }
        std::array<pollfd, 2> descriptors{{{STDIN_FILENO, POLLIN, 0}, {wakeup_, POLLIN, 0}}};
        if (poll(descriptors.data(), descriptors.size(), timeout) < 0) continue;  // a signal
        eventfd_t wakes = 0;
        if (descriptors[1].revents != 0) eventfd_read(wakeup_, &wakes);
        if (descriptors[0].revents != 0) inputReady();
    }
}
