#include "VexIMLib/internal/SocketIO/Tls.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/sha.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <deque>
#include <limits>
#include <utility>

#include "VexIMLib/Foundation/ThreadSafety.h"
#include "VexIMLib/internal/SocketIO/Base64.h"

namespace vexim {
namespace {

std::string keyPinOf(X509* certificate) {
    unsigned char* der = nullptr;
    const int length = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &der);
    if (length <= 0) return {};
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(der, static_cast<std::size_t>(length), digest.data());
    OPENSSL_free(der);
    return encodeBase64({reinterpret_cast<const char*>(digest.data()), digest.size()});
}

void freeOptions(void*, void* options, CRYPTO_EX_DATA*, int, long, void*) { delete static_cast<TlsOptions*>(options); }

/// Where a context keeps its options, for the verification below.
int optionsIndex() {
    static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, freeOptions);
    return index;
}

/// Called for each certificate of the chain, the leaf last, at depth 0.
int verifyCertificate(int isGood, X509_STORE_CTX* store) {
    const auto* ssl = static_cast<SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    const auto* options = static_cast<const TlsOptions*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(ssl), optionsIndex()));
    const int error = X509_STORE_CTX_get_error(store);
    if (isGood == 0) {
        if (error != X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT || !options->acceptSelfSigned) return 0;
        X509_STORE_CTX_set_error(store, X509_V_OK);
    }
    if (X509_STORE_CTX_get_error_depth(store) > 0 || options->pins.empty()) return 1;
    if (std::ranges::find(options->pins, keyPinOf(X509_STORE_CTX_get_current_cert(store))) != options->pins.end()) return 1;
    X509_STORE_CTX_set_error(store, X509_V_ERR_APPLICATION_VERIFICATION);
    return 0;
}

bool addAuthorities(SSL_CTX* context, const std::string& pem) {
    X509_STORE* store = SSL_CTX_get_cert_store(context);
    BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(std::min<std::size_t>(pem.size(), std::numeric_limits<int>::max())));
    int count = 0;
    while (X509* certificate = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr)) {
        if (X509_STORE_add_cert(store, certificate) == 1) ++count;
        X509_free(certificate);
    }
    ERR_clear_error();  // the end of the text counts as one
    BIO_free(bio);
    return count > 0;
}

/// Reading the system's authorities takes milliseconds, so contexts are kept: the few that one process uses.
SSL_CTX* contextFor(const TlsOptions& options) {
    constexpr std::size_t kContextsKept = 16;
    struct Cache {
        Mutex mutex;
        std::deque<std::pair<TlsOptions, SSL_CTX*>> contexts VEXIM_GUARDED_BY(mutex);
    };
    static auto* const cache = new Cache;  // never destroyed: connections may outlive static objects
    const MutexLock lock(cache->mutex);
    for (const auto& [known, context] : cache->contexts) {
        if (known == options) {
            SSL_CTX_up_ref(context);
            return context;
        }
    }
    SSL_CTX* context = SSL_CTX_new(TLS_client_method());
    if (!context) return nullptr;
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS | SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    if (!applyTlsOptions(context, options)) {
        SSL_CTX_free(context);
        return nullptr;
    }
    if (cache->contexts.size() == kContextsKept) {
        SSL_CTX_free(cache->contexts.front().second);
        cache->contexts.pop_front();
    }
    cache->contexts.emplace_back(options, context);
    SSL_CTX_up_ref(context);
    return context;
}

}  // namespace

bool applyTlsOptions(ssl_ctx_st* context, const TlsOptions& options) {
    bool readable = true;
    if (!options.authorityPEM.empty()) {
        readable = addAuthorities(context, options.authorityPEM);
    } else if (!options.authorityFile.empty()) {
        readable = SSL_CTX_load_verify_locations(context, options.authorityFile.c_str(), nullptr) == 1;
    } else {
        readable = SSL_CTX_set_default_verify_paths(context) == 1;
    }
    ERR_clear_error();
    if (!readable) return false;
    delete static_cast<TlsOptions*>(SSL_CTX_get_ex_data(context, optionsIndex()));
    if (SSL_CTX_set_ex_data(context, optionsIndex(), new TlsOptions(options)) != 1) return false;
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, verifyCertificate);
    return true;
}

std::string certificateFault(long verified) {
    if (verified == X509_V_ERR_APPLICATION_VERIFICATION) return "The certificate's key is none of the pinned ones.";
    return std::string("The certificate is not acceptable: ") + X509_verify_cert_error_string(verified) + ".";
}

std::unique_ptr<TlsSession> TlsSession::create(const TlsOptions& options, const std::string& host) {
    SSL_CTX* context = contextFor(options);
    if (!context) return nullptr;
    SSL* ssl = SSL_new(context);
    SSL_CTX_free(context);
    if (!ssl) return nullptr;
    SSL_set_bio(ssl, BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_set_connect_state(ssl);
    X509_VERIFY_PARAM* wanted = SSL_get0_param(ssl);
    X509_VERIFY_PARAM_set_hostflags(wanted, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    if (X509_VERIFY_PARAM_set1_ip_asc(wanted, host.c_str()) != 1) {
        ERR_clear_error();
        X509_VERIFY_PARAM_set1_host(wanted, host.c_str(), host.size());
        SSL_set_tlsext_host_name(ssl, host.c_str());  // names only (RFC 6066, section 3)
    }
    return std::unique_ptr<TlsSession>(new TlsSession(ssl));
}

TlsSession::~TlsSession() { SSL_free(ssl_); }

TlsSession::Status TlsSession::start() { return advance(); }

TlsSession::Status TlsSession::advance() {
    ERR_clear_error();
    const int result = SSL_do_handshake(ssl_);
    established_ = result == 1;
    const int error = SSL_get_error(ssl_, result);
    const Status status = established_ || error == SSL_ERROR_WANT_READ ? Status::Open : fail();
    collectOutput();  // after a fault too: the alert tells the peer
    return status;
}

TlsSession::Status TlsSession::receive(std::string_view encrypted, std::string& plain) {
    BIO* input = SSL_get_rbio(ssl_);
    while (!encrypted.empty()) {
        const auto part = std::min<std::size_t>(encrypted.size(), std::size_t{1} << 30);
        const int taken = BIO_write(input, encrypted.data(), static_cast<int>(part));
        if (taken <= 0) return fail();
        encrypted.remove_prefix(static_cast<std::size_t>(taken));
    }
    if (!established_) {
        const Status status = advance();
        if (status != Status::Open || !established_) return status;
    }
    constexpr std::size_t kRecord = 16 * 1024;  // the most that one record holds
    for (;;) {
        const std::size_t had = plain.size();
        plain.resize(had + kRecord);
        std::size_t count = 0;
        ERR_clear_error();
        const int result = SSL_read_ex(ssl_, plain.data() + had, kRecord, &count);
        plain.resize(had + count);
        if (result == 1) continue;
        const int error = SSL_get_error(ssl_, result);
        collectOutput();  // answers to key updates
        if (error == SSL_ERROR_WANT_READ) return Status::Open;
        return error == SSL_ERROR_ZERO_RETURN ? Status::Closed : fail();
    }
}

TlsSession::Status TlsSession::send(std::string_view plain) {
    while (!plain.empty()) {
        std::size_t count = 0;
        ERR_clear_error();
        if (SSL_write_ex(ssl_, plain.data(), plain.size(), &count) != 1) return fail();
        plain.remove_prefix(count);
    }
    collectOutput();
    return Status::Open;
}

void TlsSession::close() {
    if (!established_) return;
    ERR_clear_error();
    SSL_shutdown(ssl_);
    collectOutput();
}

TlsSession::Status TlsSession::fail() {
    const long verified = SSL_get_verify_result(ssl_);
    if (verified != X509_V_OK) {
        fault_ = certificateFault(verified);
    } else {
        const unsigned long code = ERR_peek_error();
        const char* reason = ERR_reason_error_string(code);
        fault_ = std::string("TLS failed: ") + (reason ? reason : "the peer broke off") + ".";
    }
    ERR_clear_error();
    return Status::Failed;
}

void TlsSession::collectOutput() {
    BIO* output = SSL_get_wbio(ssl_);
    char* bytes = nullptr;
    const long length = BIO_get_mem_data(output, &bytes);
    if (length <= 0) return;
    output_.append(bytes, static_cast<std::size_t>(length));
    BIO_reset(output);
}

}  // namespace vexim
