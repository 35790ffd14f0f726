#pragma once

#include <functional>

/// Drives the main queue from a loop over standard input: the library wakes it through a descriptor.
class HostLoop {
public:
    HostLoop();
    ~HostLoop();
    HostLoop(const HostLoop&) = delete;
    HostLoop& operator=(const HostLoop&) = delete;

    /// Runs until `quit`; `inputReady` is called whenever standard input can be read.
    void run(const std::function<void()>& inputReady);
    void quit() noexcept { quit_ = true; }

private:
    int wakeup_ = -1;
    bool quit_ = false;
};
