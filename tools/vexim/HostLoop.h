#pragma once

#include <functional>
#include <utility>
#include <vector>

/// A loop over descriptors that drives the main queue by the queue's own.
class HostLoop {
public:
    /// `ready` is called whenever `descriptor` can be read or its other end has gone; `isOver`
    /// tells the latter, before which there may still be something to read.
    void watch(int descriptor, std::function<void(bool isOver)> ready) {
        watched_.emplace_back(descriptor, std::move(ready));
    }
    void unwatch(int descriptor) {
        std::erase_if(watched_, [descriptor](const auto& one) { return one.first == descriptor; });
    }
    /// Runs until `quit`; `turned` is called after each turn, before it waits.
    void run(const std::function<void()>& turned = {});
    void quit() noexcept { quit_ = true; }

private:
    std::vector<std::pair<int, std::function<void(bool)>>> watched_;
    bool quit_ = false;
};
