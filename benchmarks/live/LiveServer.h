#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace vexim::bench {

/// A live server in its own process, so that its time is not counted. It logs a client of the
/// library in; a plain WebSocket on "/peer" gets the same events without a login. It answers a
/// message with "flood" with `kFlood` messages, one with "end" with one, and ignores the others.
/// Make it before the process has threads.
class LiveServer {
public:
    static constexpr int kFlood = 50'000;
    static const std::string kEvent;  ///< what is sent: an event with a message of 206 bytes

    LiveServer();
    ~LiveServer();  // ends the process
    LiveServer(const LiveServer&) = delete;
    LiveServer& operator=(const LiveServer&) = delete;

    std::uint16_t port() const { return port_; }

private:
    pid_t process_ = -1;
    std::uint16_t port_ = 0;
};

}  // namespace vexim::bench
