#include "VexIMLib/internal/Platform/Trust/CertificateFault.h"

#include <openssl/x509_vfy.h>

#include "VexIMLib/Foundation/Error.h"

namespace vexim {

CertificateFault certificateFault(long verified, std::string_view host) {
    switch (verified) {
        case X509_V_ERR_CERT_HAS_EXPIRED:
            return {URLErrorServerCertificateHasBadDate,
                    "The server's certificate or one of its issuers' has expired."};
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return {URLErrorServerCertificateNotYetValid,
                    "The server's certificate or one of its issuers' is not valid yet."};
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
            return {URLErrorServerCertificateHasUnknownRoot,
                    "The server's certificate is self-signed and not trusted."};
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
            return {URLErrorServerCertificateHasUnknownRoot,
                    "The server's certificate was not issued by a trusted authority."};
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
            return {URLErrorServerCertificateUntrusted,
                    "The server's certificate is not for \"" + std::string(host) + "\"."};
        case X509_V_ERR_APPLICATION_VERIFICATION:
            return {URLErrorServerCertificateUntrusted,
                    "The server's key is not one of the pinned keys."};
        default:
            return {URLErrorServerCertificateUntrusted,
                    std::string("The server's certificate is not acceptable: ") +
                        X509_verify_cert_error_string(verified) + "."};
    }
}

CertificateFault impossibleHost(std::string_view host) {
    return {URLErrorServerCertificateUntrusted,
            "No certificate can match \"" + std::string(host) + "\"."};
}

CertificateFault handshakeFault(std::string_view reason) {
    if (reason.empty() || reason == "unexpected eof while reading") {
        return {URLErrorNetworkConnectionLost, "TLS failed: the server closed the connection."};
    }
    return {URLErrorSecureConnectionFailed, "TLS failed: " + std::string(reason) + "."};
}

}  // namespace vexim
