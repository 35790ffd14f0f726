#pragma once

#include <functional>
#include <utility>
#include <vector>

/// An event loop over descriptors, which also runs the main queue.
class HostLoop {
public:
    /// Calls `ready` whenever `descriptor` can be read or its other end was closed. `isOver` is
    /// true if it was closed; there may still be bytes to read then.
    void watch(int descriptor, std::function<void(bool isOver)> ready) {
        watched_.emplace_back(descriptor, std::move(ready));
    }
    void unwatch(int descriptor) {
        std::erase_if(watched_, [descriptor](const auto& one) { return one.first == descriptor; });
    }
    /// Runs until `quit`. Calls `turned` after each turn, before it waits again.
    void run(const std::function<void()>& turned = {});
    void quit() noexcept { quit_ = true; }

private:
    std::vector<std::pair<int, std::function<void(bool)>>> watched_;
    bool quit_ = false;
};
