#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace vexim::bench {

/// A minimal WebSocket server in its own process, so that its CPU time does not count. It lets
/// every client join and then does what the request's query says: "flood=N" sends N events,
/// "silent" stops reading. It answers nothing else.
class PeerServer {
public:
    enum class Wire : std::uint8_t { Plain, Tls };

    /// Make it before this process has threads.
    explicit PeerServer(Wire wire);
    PeerServer(const PeerServer&) = delete;
    PeerServer& operator=(const PeerServer&) = delete;
    ~PeerServer();

    std::uint16_t port() const noexcept { return port_; }
    bool isSecure() const noexcept { return !authorityPEM_.empty(); }
    /// The authority of its certificate; empty if it does not use TLS.
    const std::string& authorityPEM() const noexcept { return authorityPEM_; }
    std::string url() const {
        return (isSecure() ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(port_);
    }

private:
    pid_t process_ = -1;
    std::uint16_t port_ = 0;
    std::string authorityPEM_;
};

/// The content of each event: 206 bytes of JSON, like a chat message.
extern const char* const kMessage;

}  // namespace vexim::bench
