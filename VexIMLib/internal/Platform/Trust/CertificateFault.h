#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vexim {

/// What is wrong with a server's certificate or with the handshake, in the same words for all
/// traffic. It contains no text from the certificate, which a stranger may have written.
struct CertificateFault {
    // a URL loading code: -1201 to -1204; for a handshake -1200, or -1005 if the server just closed
    // the connection
    std::int64_t code;
    std::string words;  // a sentence
};

/// `verified` is OpenSSL's result (not X509_V_OK); the certificate should have been for `host`.
CertificateFault certificateFault(long verified, std::string_view host);

/// No certificate can be for `host`: it is neither a valid name nor an address.
CertificateFault impossibleHost(std::string_view host);

/// The handshake failed for another reason, which OpenSSL gives as `reason`; empty if none.
CertificateFault handshakeFault(std::string_view reason);

}  // namespace vexim
