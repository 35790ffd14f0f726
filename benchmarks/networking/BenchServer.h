#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace vexim::bench {

/// An HTTP/1.1 server in its own process, so that its time and memory are not counted. It
/// listens on two free loopback ports (plain and TLS), keeps connections, and answers
///     GET  /file?bytes=N   N zero bytes
///     GET  anything else   a JSON object of 206 bytes
///     POST anything        ["u"], once the body has been read
/// Make it before the process has threads.
class BenchServer {
public:
    BenchServer();
    ~BenchServer();  // ends the process
    BenchServer(const BenchServer&) = delete;
    BenchServer& operator=(const BenchServer&) = delete;

    std::string plainURL() const { return "http://127.0.0.1:" + std::to_string(plainPort_); }
    std::string tlsURL() const { return "https://127.0.0.1:" + std::to_string(tlsPort_); }
    /// The authority that a client must trust.
    const std::string& authorityPEM() const { return authorityPEM_; }

private:
    std::string authorityPEM_;
    pid_t process_ = -1;
    std::uint16_t plainPort_ = 0;
    std::uint16_t tlsPort_ = 0;
};

}  // namespace vexim::bench
