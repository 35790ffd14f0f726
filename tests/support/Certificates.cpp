#include "support/Certificates.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cctype>
#include <stdexcept>
#include <string>

namespace vexim::testing {
namespace {

template <class T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* thing) const { Free(thing); }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509, X509_free>>;

std::string drain(BIO* bio) {
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(bio, &bytes);
    std::string text(bytes, static_cast<std::size_t>(size));
    BIO_free(bio);
    return text;
}

TLSIdentity toPEM(X509* certificate, EVP_PKEY* key) {
    BIO* certificateText = BIO_new(BIO_s_mem());
    BIO* keyText = BIO_new(BIO_s_mem());
    PEM_write_bio_X509(certificateText, certificate);
    PEM_write_bio_PrivateKey(keyText, key, nullptr, nullptr, 0, nullptr, nullptr);
    return {drain(certificateText), drain(keyText), false};
}

void addExtension(X509* certificate, X509* issuer, const std::string& kind,
                  const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf(nullptr, &context, kind.c_str(), value.c_str());
    if (!extension) throw std::runtime_error("bad certificate extension " + value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

Certificate makeCertificate(EVP_PKEY* key, const std::string& name, std::chrono::hours startsIn,
                            std::chrono::hours endsIn) {
    Certificate certificate(X509_new());
    X509_set_version(certificate.get(), 2);
    std::uint64_t serial = 0;
    RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial);
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), serial >> 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()),
                    static_cast<long>(std::chrono::seconds(startsIn).count()));
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()),
                    static_cast<long>(std::chrono::seconds(endsIn).count()));
    X509_set_pubkey(certificate.get(), key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    return certificate;
}

bool isAddress(const std::string& host) {
    return !host.empty() && (std::isdigit(static_cast<unsigned char>(host.back())) ||
                             host.find(':') != std::string::npos);
}

Key makeKey(const std::string& kind) {
    EVP_PKEY* key = nullptr;
    if (kind.starts_with("RSA")) {
        key = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA",
                                static_cast<std::size_t>(std::stoul(kind.substr(3))));
    } else if (kind == "ED25519") {
        key = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
    } else {
        key = EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", kind.c_str());
    }
    if (!key) throw std::runtime_error("cannot make a key of kind " + kind);
    return Key(key);
}

void sign(X509* certificate, EVP_PKEY* signing, const std::string& digest) {
    const EVP_MD* const method = digest.empty() ? nullptr : EVP_get_digestbyname(digest.c_str());
    if (!X509_sign(certificate, signing, method))
        throw std::runtime_error("cannot sign a certificate over " + digest);
}

void addExactName(X509* certificate, const std::string& name) {
    GENERAL_NAMES* const names = GENERAL_NAMES_new();
    GENERAL_NAME* const entry = GENERAL_NAME_new();
    ASN1_IA5STRING* const text = ASN1_IA5STRING_new();
    ASN1_STRING_set(text, name.data(), static_cast<int>(name.size()));
    GENERAL_NAME_set0_value(entry, GEN_DNS, text);
    sk_GENERAL_NAME_push(names, entry);
    X509_add1_ext_i2d(certificate, NID_subject_alt_name, names, 0, X509V3_ADD_DEFAULT);
    GENERAL_NAMES_free(names);
}

/// Without an `issuer` the certificate signs itself.
TLSIdentity issueTo(EVP_PKEY* key, const CertificateAuthority::Options& options, X509* issuer,
                    EVP_PKEY* signing) {
    const Certificate certificate =
        makeCertificate(key, options.host, options.startsIn, options.endsIn);
    X509* issuing = issuer ? issuer : certificate.get();
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(issuing));
    const std::string name = (isAddress(options.host) ? "IP:" : "DNS:") + options.host;
    if (!options.exactName.empty()) {
        addExactName(certificate.get(), options.exactName);
    } else if (!options.isOldForm) {
        addExtension(certificate.get(), issuing, "subjectAltName",
                     options.names.empty() ? name : options.names);
    }
    for (const auto& [kind, value] : options.extensions)
        addExtension(certificate.get(), issuing, kind, value);
    sign(certificate.get(), signing, options.digest);
    return toPEM(certificate.get(), key);
}

}  // namespace

struct CertificateAuthority::Keys {
    Key key;
    Certificate certificate;
};

CertificateAuthority::CertificateAuthority(const std::string& name)
    : CertificateAuthority(name, nullptr, {}) {}

CertificateAuthority::CertificateAuthority(const std::string& name,
                                           const CertificateAuthority& issuer)
    : CertificateAuthority(name, &issuer, {}) {}

CertificateAuthority::CertificateAuthority(const std::string& name,
                                           const CertificateAuthority* issuer,
                                           const Options& options)
    : keys_(std::make_unique<Keys>()) {
    keys_->key = makeKey(options.key);
    EVP_PKEY* key = keys_->key.get();
    keys_->certificate = makeCertificate(key, name, options.startsIn, options.endsIn);
    X509* certificate = keys_->certificate.get();
    X509* issuing = issuer ? issuer->keys_->certificate.get() : certificate;
    X509_set_issuer_name(certificate, X509_get_subject_name(issuing));
    auto extensions = options.extensions;
    if (extensions.empty()) {
        extensions = {{"basicConstraints", "critical,CA:TRUE"},
                      {"keyUsage", "critical,keyCertSign"},
                      {"subjectKeyIdentifier", "hash"}};
    }
    for (const auto& [kind, value] : extensions) addExtension(certificate, issuing, kind, value);
    sign(certificate, issuer ? issuer->keys_->key.get() : key, options.digest);
    identity_ = toPEM(certificate, key);
}

CertificateAuthority::~CertificateAuthority() = default;

TLSIdentity CertificateAuthority::issue(const Options& options) const {
    const Key key = makeKey(options.key);
    return issueTo(key.get(), options, keys_->certificate.get(), keys_->key.get());
}

TLSIdentity CertificateAuthority::selfSigned(const Options& options) {
    const Key key = makeKey(options.key);
    return issueTo(key.get(), options, nullptr, key.get());
}

TLSIdentity CertificateAuthority::forgedSelfSigned() {
    const Key shown = makeKey("P-256");
    const Key signing = makeKey("P-256");
    return issueTo(shown.get(), {}, nullptr, signing.get());
}

}  // namespace vexim::testing
