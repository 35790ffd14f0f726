#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vexim::testing {

/// A certificate with its private key, as PEM.
struct TLSIdentity {
    std::string certificatePEM;
    std::string privateKeyPEM;
    bool isOld = false;  ///< whose server speaks TLS 1.1 and nothing newer
};

/// An authority made for one test, so that no test depends on certificates that expire.
class CertificateAuthority {
public:
    struct Options {
        std::string host = "127.0.0.1";  ///< the one name or address that the certificate is for
        std::chrono::hours startsIn{-24};
        std::chrono::hours endsIn{24};
        /// the host is only in the subject, as before RFC 2818
        bool isOldForm = false;
        /// in place of the host: "DNS:a.example,IP:10.0.0.1", as in OpenSSL's configuration files
        std::string names{};
        /// a DNS name whose bytes those files could not hold
        std::string exactName{};
        /// Further extensions: OpenSSL's name for each, and its value. For an authority they
        /// replace the usual ones.
        std::vector<std::pair<std::string, std::string>> extensions{};
        std::string key{"P-256"};      ///< a curve's name, "ED25519", or "RSA" and a number of bits
        std::string digest{"SHA256"};  ///< that its issuer signs; empty for ED25519
    };

    explicit CertificateAuthority(const std::string& name = "Test authority");
    /// A certificate signed by another one.
    CertificateAuthority(const std::string& name, const CertificateAuthority& issuer);
    /// An authority with flaws. All `options` apply except the host and names. Without an `issuer`
    /// it is a root.
    CertificateAuthority(const std::string& name, const CertificateAuthority* issuer,
                         const Options& options);
    ~CertificateAuthority();

    /// What a client must trust.
    const std::string& certificatePEM() const { return identity_.certificatePEM; }
    TLSIdentity issue(const Options& options) const;
    TLSIdentity issue() const { return issue(Options{}); }
    /// A self-signed certificate.
    static TLSIdentity selfSigned(const Options& options);
    static TLSIdentity selfSigned() { return selfSigned(Options{}); }

    /// The same, but signed with another key than the one that it shows.
    static TLSIdentity forgedSelfSigned();

private:
    struct Keys;
    std::unique_ptr<Keys> keys_;
    TLSIdentity identity_;
};

}  // namespace vexim::testing
