#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace vexim::testing {

/// A certificate with its private key, as PEM.
struct TLSIdentity {
    std::string certificatePEM;
    std::string privateKeyPEM;
    bool isOld = false;  ///< whose server speaks TLS 1.1 and nothing newer
};

/// An authority made for one test, so that no test depends on certificates that run out.
class CertificateAuthority {
public:
    struct Options {
        std::string host = "127.0.0.1";  ///< the one name or address that the certificate is for
        std::chrono::hours startsIn{-24};
        std::chrono::hours endsIn{24};
        bool isOldForm = false;  ///< it stands in the subject only, as it did before RFC 2818
    };

    explicit CertificateAuthority(const std::string& name = "Test authority");
    /// One that another vouches for.
    CertificateAuthority(const std::string& name, const CertificateAuthority& issuer);
    ~CertificateAuthority();

    /// What a client must trust.
    const std::string& certificatePEM() const { return identity_.certificatePEM; }
    TLSIdentity issue(const Options& options) const;
    TLSIdentity issue() const { return issue(Options{}); }
    /// A certificate for which nobody vouches but itself.
    static TLSIdentity selfSigned(const Options& options);
    static TLSIdentity selfSigned() { return selfSigned(Options{}); }

private:
    CertificateAuthority(const std::string& name, const CertificateAuthority* issuer);
    struct Keys;
    std::unique_ptr<Keys> keys_;
    TLSIdentity identity_;
};

}  // namespace vexim::testing
