#include "VexIMLib/internal/Platform/Trust/Trust.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/sha.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <string_view>
#include <utility>

#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim {
namespace {

// OpenSSL's level 2: keys with at least 112 bits of strength (RSA 2048), no SHA-1 signatures
constexpr int kLeastSecurityLevel = 2;

std::string keyDigest(X509* certificate) {
    unsigned char* der = nullptr;
    const int length = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &der);
    if (length <= 0) return {};
    std::string digest(SHA256_DIGEST_LENGTH, '\0');
    SHA256(der, static_cast<std::size_t>(length), reinterpret_cast<unsigned char*>(digest.data()));
    OPENSSL_free(der);
    return digest;
}

int allowSelfSigned(int isGood, X509_STORE_CTX* chain) {
    if (isGood != 0 || X509_STORE_CTX_get_error(chain) != X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT)
        return isGood;
    X509_STORE_CTX_set_error(chain, X509_V_OK);
    return 1;
}

using TrustPtr = std::shared_ptr<const Trust>;
void freeTrust(void*, void* trust, CRYPTO_EX_DATA*, int, long, void*) {
    delete static_cast<TrustPtr*>(trust);
}

/// Keeps a trust alive as long as its context, which may outlive everything else.
int trustIndex() {
    static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, freeTrust);
    return index;
}

/// An absolute name ends with a dot. Names in certificates (RFC 5280, section 4.2.1.6) and in SNI
/// (RFC 6066, section 3) never do.
std::string_view withoutRootDot(std::string_view host) {
    if (host.ends_with('.')) host.remove_suffix(1);
    return host;
}

enum class HostKind { Name, Address, Impossible };

/// Sets `host` in the verifier. An address must have its usual form. Anything else that a resolver
/// might read as an address ("127.1") counts as a name, for which there is no certificate.
HostKind expectHost(X509_VERIFY_PARAM* wanted, std::string_view host) {
    unsigned char address[16];
    const std::string numeric(host);
    for (const auto& [family, length] : {std::pair{AF_INET, 4}, std::pair{AF_INET6, 16}}) {
        if (::inet_pton(family, numeric.c_str(), address) != 1) continue;
        const bool isSet =
            X509_VERIFY_PARAM_set1_ip(wanted, address, static_cast<std::size_t>(length)) == 1;
        return isSet ? HostKind::Address : HostKind::Impossible;
    }
    const auto name = withoutRootDot(host);
    // OpenSSL would not check an empty name, and would accept every subdomain for a name that
    // begins with a dot.
    if (name.empty() || name.starts_with('.')) return HostKind::Impossible;
    X509_VERIFY_PARAM_set_hostflags(
        wanted, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
    return X509_VERIFY_PARAM_set1_host(wanted, name.data(), name.size()) == 1
               ? HostKind::Name
               : HostKind::Impossible;
}

std::atomic<std::uint64_t> lastIdentity{0};

}  // namespace

Trust::Trust(TrustOptions options, AuthorityStore authorities)
    : options_(std::move(options)),
      authorities_(std::move(authorities)),
      identity_(++lastIdentity),
      context_(SSL_CTX_new(TLS_client_method())) {
    if (!context_) return;
    SSL_CTX_set_mode(context_, SSL_MODE_RELEASE_BUFFERS | SSL_MODE_ENABLE_PARTIAL_WRITE |
                                   SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    prepare(context_);
}

Trust::~Trust() { SSL_CTX_free(context_); }

void Trust::prepare(ssl_ctx_st* context) const {
    // The system's policy may require more, but not less.
    if (SSL_CTX_get_min_proto_version(context) < TLS1_2_VERSION)
        SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    if (SSL_CTX_get_security_level(context) < kLeastSecurityLevel)
        SSL_CTX_set_security_level(context, kLeastSecurityLevel);
    X509_VERIFY_PARAM* const rules = SSL_CTX_get0_param(context);
    // Trust every certificate that the application gives, even an intermediate or the server's own.
    X509_VERIFY_PARAM_set_flags(rules, X509_V_FLAG_PARTIAL_CHAIN | X509_V_FLAG_TRUSTED_FIRST);
    if (options_.acceptSelfSigned)
        X509_VERIFY_PARAM_set_flags(rules, X509_V_FLAG_CHECK_SS_SIGNATURE);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER,
                       options_.acceptSelfSigned ? allowSelfSigned : nullptr);
    SSL_CTX_set_cert_verify_callback(context, &Trust::verify, const_cast<Trust*>(this));
    SSL_CTX_set1_cert_store(context, authorities_.get());
}

bool Trust::configure(ssl_ctx_st* context, const std::string& host) const {
    prepare(context);
    if (expectHost(SSL_CTX_get0_param(context), host) == HostKind::Impossible) return false;
    auto owned = std::make_unique<TrustPtr>(shared_from_this());
    if (SSL_CTX_set_ex_data(context, trustIndex(), owned.get()) != 1) return false;
    owned.release();
    return true;
}

ssl_st* Trust::newConnection(const std::string& host) const {
    SSL* const ssl = context_ ? SSL_new(context_) : nullptr;
    if (!ssl) return nullptr;
    const HostKind kind = expectHost(SSL_get0_param(ssl), host);
    if (kind == HostKind::Name)
        SSL_set_tlsext_host_name(ssl, std::string(withoutRootDot(host)).c_str());
    if (kind != HostKind::Impossible) return ssl;
    SSL_free(ssl);
    return nullptr;
}

int Trust::verify(x509_store_ctx_st* chain, void* self) {
    const auto& pins = static_cast<const Trust*>(self)->options_.pins;
    // Clear the error queue: libcurl reads only the first entry, which must be "certificate verify
    // failed".
    ERR_set_mark();
    const int result = X509_verify_cert(chain);
    ERR_pop_to_mark();
    if (result <= 0 || pins.empty()) return result;
    if (std::ranges::find(pins, keyDigest(X509_STORE_CTX_get0_cert(chain))) != pins.end()) return 1;
    X509_STORE_CTX_set_error(chain, X509_V_ERR_APPLICATION_VERIFICATION);
    return 0;
}

TrustChoice TrustChoice::of(const Dictionary& options) {
    auto reading = readTrustOptions(options);
    return reading.fault.empty() ? of(reading.options)
                                 : TrustChoice{nullptr, std::move(reading.fault)};
}

TrustChoice TrustChoice::of(const TrustOptions& options) {
    // A cache of the few trusts that a process uses. Reading the system's authorities takes
    // milliseconds.
    constexpr std::size_t kMostKept = 16;
    struct Kept {
        TrustOptions options;
        std::string version;
        TrustPtr trust;
    };
    struct Cache {
        Mutex mutex;
        std::deque<Kept> kept VEXIM_GUARDED_BY(mutex);
    };
    // never destroyed: connections may outlive static objects
    static auto* const cache = new Cache;
    std::string version = authoritiesVersion(options);
    const MutexLock lock(cache->mutex);
    const auto found = std::ranges::find_if(cache->kept, [&](const Kept& each) {
        return each.version == version && each.options == options;
    });
    if (found != cache->kept.end()) return {found->trust, {}};
    auto [store, fault] = readAuthorities(options);
    const bool affectsOnlyTLS = options.authorityFile.empty() && options.authorityPEM.empty();
    if (!store) return {nullptr, std::move(fault), affectsOnlyTLS};
    auto trust = std::make_shared<const Trust>(options, std::move(store));
    if (cache->kept.size() == kMostKept) cache->kept.pop_front();
    cache->kept.push_back({options, std::move(version), trust});
    return {std::move(trust), {}};
}

}  // namespace vexim
