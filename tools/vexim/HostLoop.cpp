#include "HostLoop.h"

#include <poll.h>

#include "VexIMLib/Foundation/MainQueue.h"

void HostLoop::run(const std::function<void()>& turned) {
    auto& queue = vexim::MainQueue::shared();
    while (!quit_) {
        queue.turn();
        if (turned) turned();
        if (quit_) return;
        std::vector<pollfd> descriptors{{queue.fileDescriptor(), POLLIN, 0}};
        for (const auto& [descriptor, ready] : watched_)
            descriptors.push_back({descriptor, POLLIN, 0});
        // Interrupted by a signal.
        if (poll(descriptors.data(), descriptors.size(), queue.pollTimeout()) < 0) continue;
        // A copy, because a callback may change the list.
        const auto watched = watched_;
        for (std::size_t at = 0; at < watched.size(); ++at) {
            const auto events = descriptors[at + 1].revents;
            if (events != 0) watched[at].second((events & (POLLHUP | POLLERR | POLLNVAL)) != 0);
        }
    }
}
