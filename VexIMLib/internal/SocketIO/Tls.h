#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// OpenSSL's, which only sources include.
struct ssl_st;
struct ssl_ctx_st;

namespace vexim {

/// Whom to trust. Chain, validity and host name are always verified.
struct TlsOptions {
    std::string authorityFile;      // PEM; empty: the system's authorities
    std::string authorityPEM;       // PEM text; wins over the file
    std::vector<std::string> pins;  // base64 of the SHA-256 of acceptable leaf keys (SPKI, RFC 7469); empty: any
    bool acceptSelfSigned = false;  // a certificate that is its own only issuer; everything else still holds

    friend bool operator==(const TlsOptions&, const TlsOptions&) = default;
};

/// Prepares a context for these options; false when the authorities cannot be read. Used for WebSockets and, through
/// libcurl's hook, for polling, so that both judge alike.
bool applyTlsOptions(ssl_ctx_st* context, const TlsOptions& options);

/// What is wrong with a certificate, in words: `verified` is OpenSSL's verdict.
std::string certificateFault(long verified);

/// One TLS connection in memory: what comes from the peer goes in, plain bytes come out, and the other way round.
class TlsSession {
public:
    enum class Status : std::uint8_t { Open, Closed, Failed };

    /// `host` is what the certificate must be for: a name (also sent as SNI) or a numeric address. nullptr when the
    /// authorities cannot be read.
    static std::unique_ptr<TlsSession> create(const TlsOptions& options, const std::string& host);
    TlsSession(const TlsSession&) = delete;
    TlsSession& operator=(const TlsSession&) = delete;
    ~TlsSession();

    /// Begins the handshake; its first bytes are in `output`.
    Status start();
    /// Takes bytes from the peer and appends what they hold to `plain`.
    Status receive(std::string_view encrypted, std::string& plain);
    bool isEstablished() const noexcept { return established_; }
    /// Encrypts into `output`; only once established.
    Status send(std::string_view plain);
    /// Says goodbye (close_notify) into `output`.
    void close();
    /// Bytes for the peer; whoever sends them takes them.
    std::string& output() noexcept { return output_; }
    /// What went wrong, in words; for a certificate, what is wrong with it.
    const std::string& fault() const noexcept { return fault_; }

private:
    explicit TlsSession(ssl_st* ssl) : ssl_(ssl) {}
    Status advance();
    Status fail();
    void collectOutput();

    ssl_st* ssl_;
    std::string output_;
    std::string fault_;
    bool established_ = false;
};

}  // namespace vexim
