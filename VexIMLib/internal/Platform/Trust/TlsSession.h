#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "VexIMLib/internal/Platform/Trust/Trust.h"

// From OpenSSL, whose headers only sources include.
struct ssl_st;

namespace vexim {

/// One TLS connection in memory. Encrypted bytes from the server go in and plain bytes come out,
/// and the other way round.
class TlsSession {
public:
    enum class Status : std::uint8_t { Open, Closed, Failed };

    /// The certificate must be for `host`, a name (also sent as SNI) or a numeric address. nullptr
    /// if it is neither.
    static std::unique_ptr<TlsSession> create(std::shared_ptr<const Trust> trust, std::string host);
    TlsSession(const TlsSession&) = delete;
    TlsSession& operator=(const TlsSession&) = delete;
    ~TlsSession();

    /// Begins the handshake; its first bytes are in `output`.
    Status start();
    /// Takes bytes from the server and appends the decrypted ones to `plain`.
    Status receive(std::string_view encrypted, std::string& plain);
    bool isEstablished() const noexcept { return established_; }
    /// Encrypts into `output`. Call it only once established.
    Status send(std::string_view plain);
    /// Says goodbye (close_notify) into `output`.
    void close();
    /// Bytes for the server. Take them out to send them.
    std::string& output() noexcept { return output_; }
    /// What went wrong, or what is wrong with the certificate.
    const std::string& fault() const noexcept { return fault_; }

private:
    TlsSession(std::shared_ptr<const Trust> trust, ssl_st* ssl, std::string host)
        : trust_(std::move(trust)),
          ssl_(ssl),
          host_(std::move(host)) {}
    Status advance();
    Status fail();
    void collectOutput();

    const std::shared_ptr<const Trust> trust_;
    ssl_st* const ssl_;
    const std::string host_;
    std::string output_;
    std::string fault_;
    bool established_ = false;
};

}  // namespace vexim
