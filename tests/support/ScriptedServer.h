#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/Certificates.h"

namespace vexim::testing {

/// An HTTP/1.1 request as it came over the wire.
struct WireRequest {
    std::string method;
    std::string target;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string head;  ///< the raw head, up to and with the empty line
    std::string body;  ///< without chunk framing

    /// The value of the first header of that name, compared without case; empty when there is none.
    std::string header(std::string_view name) const;
};

/// A server on a free loopback port. A script plays each connection, on its own thread, and can
/// send what no real server library would. Plain or TLS.
///
///     ScriptedServer server([](ScriptedServer::Connection& connection) {
///         connection.readRequest();
///         // … and the connection ends
///         connection.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhal");
///     });
class ScriptedServer {
public:
    class Connection {
    public:
        ~Connection();
        /// The next request with its body; nullopt when the peer has closed or the server ends.
        std::optional<WireRequest> readRequest();
        /// Only the head; the body is left to be read by `readSome`.
        std::optional<WireRequest> readHead();
        /// The bytes that have come, at least one; empty at the end.
        std::string readSome(std::size_t most = 65536);
        /// False when the peer is gone.
        bool write(std::string_view bytes);
        /// "HTTP/1.1 <status>" with Content-Length and `headers` (whole lines with CRLF).
        bool answer(int status, std::string_view body, std::string_view headers = {});
        /// Waits until the peer closes or the server ends, and drops what it reads meanwhile.
        void waitForClose();
        /// Ends the writing, so the peer reads the end.
        void shutDown();
        /// Ends the connection with a reset instead of an orderly close.
        void reset();
        /// Waits; false when the server ended meanwhile.
        bool pause(std::chrono::milliseconds time);
        /// The number of this connection; the server's first one is 0.
        int index() const;

        bool handshake();
        struct Impl;
        explicit Connection(std::unique_ptr<Impl> impl);

    private:
        std::unique_ptr<Impl> impl_;
    };
    using Script = std::function<void(Connection&)>;

    /// With an `identity` connections speak TLS; a failed handshake ends one before its script.
    /// `beforeHandshake` plays the bare connection; when it answers false, there is no handshake
    /// and the connection ends.
    explicit ScriptedServer(Script script, std::optional<TLSIdentity> identity = std::nullopt,
                            std::function<bool(Connection&)> beforeHandshake = nullptr);
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer();  // cuts every connection and waits for its script

    std::uint16_t port() const;
    /// "http(s)://127.0.0.1:port" and `path`.
    std::string url(std::string_view path = "/") const;
    int connectionCount() const;

    /// A script that answers every request, on one connection after the other, by `answer`: status,
    /// headers and body as a whole.
    static Script answering(std::function<std::string(const WireRequest&)> answer);
    /// The same as text: "HTTP/1.1 200 OK", Content-Length, `headers`, `body`.
    static std::string text(int status, std::string_view body, std::string_view headers = {});

private:
    struct Impl;
    std::shared_ptr<Impl> impl_;
};

/// A loopback port on which nobody listens.
std::uint16_t deadPort();

/// A port of this machine's second address, 127.0.0.2, where a connection is neither accepted nor
/// refused, because the listener's queue is full.
class SilentPort {
public:
    explicit SilentPort(std::uint16_t port = 0);  // 0: a free one
    ~SilentPort();
    SilentPort(const SilentPort&) = delete;
    SilentPort& operator=(const SilentPort&) = delete;
    std::uint16_t port() const { return port_; }

private:
    std::uint16_t port_;
    const int listener_;
    const int waiting_;
};

}  // namespace vexim::testing
