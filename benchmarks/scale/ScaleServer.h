#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace vexim::bench {

/// A minimal live server for very many clients, in its own process: a loop over epoll that logs
/// everybody in, and otherwise does what it is told.
class ScaleServer {
public:
    /// Make it before this process has threads.
    ScaleServer();
    ScaleServer(const ScaleServer&) = delete;
    ScaleServer& operator=(const ScaleServer&) = delete;
    ~ScaleServer();  // ends the process

    std::uint16_t port() const noexcept { return port_; }
    /// Sends everybody one message.
    void sendMessages() const { tell('m'); }
    /// Sends everybody a ping, and waits for all pongs.
    void beat() const;
    /// Disconnects everybody, like a restart. `isEverybodyBack` says when as many are logged in
    /// again.
    void cutOff() const { tell('c'); }
    bool isEverybodyBack() const;

private:
    void tell(char command) const;

    pid_t process_ = -1;
    std::uint16_t port_ = 0;
    int commands_ = -1;
    int reports_ = -1;
};

}  // namespace vexim::bench
