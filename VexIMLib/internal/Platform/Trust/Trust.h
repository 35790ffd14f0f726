#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "VexIMLib/internal/Platform/Trust/Authorities.h"
#include "VexIMLib/internal/Platform/Trust/TrustOptions.h"

// OpenSSL's, which only sources include.
struct ssl_st;
struct ssl_ctx_st;
struct x509_store_ctx_st;

namespace vexim {

class Trust;

/// What a configuration's options come to: a trust, or a sentence that says why there is none, and
/// then nothing may be sent.
struct TrustChoice {
    std::shared_ptr<const Trust> trust;
    std::string fault;
    bool isEnvironments = false;  // the fault: only connections over TLS care

    /// The fault, where it stands in the way.
    std::string hindrance(bool isSecure) const { return isEnvironments && !isSecure ? "" : fault; }

    /// The same trust for equal options, for as long as the authorities' file stays as it is; the
    /// system's for none. Reads files at the first time. Any thread.
    static TrustChoice of(const Dictionary& options);
    static TrustChoice of(const TrustOptions& options);
};

/// Decides about certificates and names, for every kind of traffic: OpenSSL's own verifier, and the
/// pins. Immutable.
class Trust : public std::enable_shared_from_this<Trust> {
public:
    Trust(TrustOptions options, AuthorityStore authorities);
    Trust(const Trust&) = delete;
    Trust& operator=(const Trust&) = delete;
    ~Trust();

    /// Another one for each trust that the process ever makes. What was opened under one (a
    /// connection, a TLS session) must not be used under another.
    std::uint64_t identity() const noexcept { return identity_; }

    /// Lets this trust decide for all connections that `context` makes to `host`, a name or a
    /// numeric address. False when the host can be nobody's name; the context must not be used
    /// then.
    bool govern(ssl_ctx_st* context, const std::string& host) const;
    /// A connection of our own, to be freed by the caller and not to outlive the trust; nullptr as
    /// above. Tells a server the name (SNI, RFC 6066, section 3).
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
