#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace vexim::bench {

/// A WebSocket server of few words in a process of its own, so that its CPU time is not ours. It
/// joins whoever comes and then does what the request's query says: "flood=N" sends N events,
/// "silent" reads no more, nothing else is answered.
class PeerServer {
public:
    enum class Wire : std::uint8_t { Plain, Tls };

    /// To be made before this process has threads.
    explicit PeerServer(Wire wire);
    PeerServer(const PeerServer&) = delete;
    PeerServer& operator=(const PeerServer&) = delete;
    ~PeerServer();

    std::uint16_t port() const noexcept { return port_; }
    bool isSecure() const noexcept { return !authorityPEM_.empty(); }
    /// Who vouches for it; empty when it speaks no TLS.
    const std::string& authorityPEM() const noexcept { return authorityPEM_; }
    std::string url() const {
        return (isSecure() ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(port_);
    }

private:
    pid_t process_ = -1;
    std::uint16_t port_ = 0;
    std::string authorityPEM_;
};

/// What each event holds: 206 bytes of JSON, as a chat message is.
extern const char* const kMessage;

}  // namespace vexim::bench
