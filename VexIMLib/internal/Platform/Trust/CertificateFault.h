#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vexim {

/// What is wrong with a peer's certificate, or with the handshake, in the same words for every kind
/// of traffic. Nothing of it is the certificate's own text, whose maker is a stranger and may write
/// what he likes.
struct CertificateFault {
    // of URL loading: -1201 to -1204; of a handshake -1200, or -1005 when the peer just went away
    std::int64_t code;
    std::string words;  // a sentence
};

/// `verified` is OpenSSL's verdict (not X509_V_OK), `host` what the certificate should have been
/// for.
CertificateFault certificateFault(long verified, std::string_view host);

/// `host` is no name and no address that any certificate could be for.
CertificateFault impossibleHost(std::string_view host);

/// A handshake that broke for another reason: `reason` is OpenSSL's, empty when there is none.
CertificateFault handshakeFault(std::string_view reason);

}  // namespace vexim
