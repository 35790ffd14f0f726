#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "VexIMLib/internal/Platform/Trust/Authorities.h"
#include "VexIMLib/internal/Platform/Trust/TrustOptions.h"

// From OpenSSL, whose headers only sources include.
struct ssl_st;
struct ssl_ctx_st;
struct x509_store_ctx_st;

namespace vexim {

class Trust;

/// The result of a configuration's options: a trust, or a sentence that says why there is none.
/// Without a trust nothing may be sent.
struct TrustChoice {
    std::shared_ptr<const Trust> trust;
    std::string fault;
    bool affectsOnlyTLS = false;  // the fault is in the system's authorities

    /// The fault, if it prevents a connection with (`isSecure`) or without TLS.
    std::string faultFor(bool isSecure) const { return affectsOnlyTLS && !isSecure ? "" : fault; }

    /// Returns the same trust for equal options, until the authorities' file changes; without
    /// options, the trust in the system's authorities. Reads files the first time. Call from any
    /// thread.
    static TrustChoice of(const Dictionary& options);
    static TrustChoice of(const TrustOptions& options);
};

/// Checks certificates and names for all traffic, with OpenSSL's verifier and the pins. Immutable.
class Trust : public std::enable_shared_from_this<Trust> {
public:
    Trust(TrustOptions options, AuthorityStore authorities);
    Trust(const Trust&) = delete;
    Trust& operator=(const Trust&) = delete;
    ~Trust();

    /// The identity, different for each trust that the process makes. A connection or a TLS session
    /// of one trust must not be used by another.
    std::uint64_t identity() const noexcept { return identity_; }

    /// Makes this trust check all connections that `context` makes to `host`, a name or a numeric
    /// address. Returns false if it is not a possible host; then do not use the context.
    bool configure(ssl_ctx_st* context, const std::string& host) const;
    /// Makes a connection of our own; nullptr if the host is impossible. The caller frees it,
    /// before the trust. It sends the name to the server (SNI, RFC 6066, section 3).
    ssl_st* newConnection(const std::string& host) const;

private:
    static int verify(x509_store_ctx_st* chain, void* trust);
    void prepare(ssl_ctx_st* context) const;

    const TrustOptions options_;
    const AuthorityStore authorities_;
    const std::uint64_t identity_;
    ssl_ctx_st* context_ = nullptr;  // for connections of our own; constant after construction
};

}  // namespace vexim
