#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace vexim::bench {

/// A live server in a process of its own, so that its time is not counted. A client of the library
/// is let in and logged in; a plain WebSocket on "/peer" gets the same events without any ceremony.
/// Then both say what they want in messages: one with "flood" is answered by `kFlood` messages, one
/// with "end" by one, the others are read and dropped. Make it before the process has threads.
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
