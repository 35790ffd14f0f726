// The steps of one TLS connection. Trust.cpp decides about versions, certificates and pins.
#include "VexIMLib/internal/Platform/Trust/TlsSession.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>

#include "VexIMLib/internal/Platform/Trust/CertificateFault.h"

namespace vexim {

std::unique_ptr<TlsSession> TlsSession::create(std::shared_ptr<const Trust> trust,
                                               std::string host) {
    SSL* const ssl = trust ? trust->newConnection(host) : nullptr;
    if (!ssl) return nullptr;
    SSL_set_bio(ssl, BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_set_connect_state(ssl);
    return std::unique_ptr<TlsSession>(new TlsSession(std::move(trust), ssl, std::move(host)));
}

TlsSession::~TlsSession() { SSL_free(ssl_); }

TlsSession::Status TlsSession::start() { return advance(); }

TlsSession::Status TlsSession::advance() {
    ERR_clear_error();
    const int result = SSL_do_handshake(ssl_);
    established_ = result == 1;
    const int error = SSL_get_error(ssl_, result);
    const Status status = established_ || error == SSL_ERROR_WANT_READ ? Status::Open : fail();
    collectOutput();  // also after an error: the alert informs the server
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
        fault_ = certificateFault(verified, host_).words;
    } else {
        const char* const reason = ERR_reason_error_string(ERR_peek_error());
        fault_ = handshakeFault(reason ? reason : "").words;
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
