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

void addExtension(X509* certificate, X509* issuer, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
    if (!extension) throw std::runtime_error("bad certificate extension " + value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

Certificate makeCertificate(EVP_PKEY* key, const std::string& name, std::chrono::hours startsIn, std::chrono::hours endsIn) {
    Certificate certificate(X509_new());
    X509_set_version(certificate.get(), 2);
    std::uint64_t serial = 0;
    RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial);
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), serial >> 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), std::chrono::seconds(startsIn).count());
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), std::chrono::seconds(endsIn).count());
    X509_set_pubkey(certificate.get(), key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    return certificate;
}

bool isAddress(const std::string& host) {
    return !host.empty() && (std::isdigit(static_cast<unsigned char>(host.back())) || host.find(':') != std::string::npos);
}

/// Without an `issuer` the certificate is its own.
TLSIdentity issueTo(EVP_PKEY* key, const CertificateAuthority::Options& options, X509* issuer, EVP_PKEY* signing) {
    const Certificate certificate = makeCertificate(key, options.host, options.startsIn, options.endsIn);
    X509* issuing = issuer ? issuer : certificate.get();
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(issuing));
    const std::string name = (isAddress(options.host) ? "IP:" : "DNS:") + options.host;
    if (!options.isOldForm) addExtension(certificate.get(), issuing, NID_subject_alt_name, name);
    if (!X509_sign(certificate.get(), signing, EVP_sha256())) throw std::runtime_error("cannot sign a certificate");
    return toPEM(certificate.get(), key);
}

}  // namespace

struct CertificateAuthority::Keys {
    Key key;
    Certificate certificate;
};

CertificateAuthority::CertificateAuthority(const std::string& name) : CertificateAuthority(name, nullptr) {}

CertificateAuthority::CertificateAuthority(const std::string& name, const CertificateAuthority& issuer)
    : CertificateAuthority(name, &issuer) {}

CertificateAuthority::CertificateAuthority(const std::string& name, const CertificateAuthority* issuer)
    : keys_(std::make_unique<Keys>()) {
    keys_->key.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    EVP_PKEY* key = keys_->key.get();
    keys_->certificate = makeCertificate(key, name, std::chrono::hours(-48), std::chrono::hours(48));
    X509* certificate = keys_->certificate.get();
    X509* issuing = issuer ? issuer->keys_->certificate.get() : certificate;
    X509_set_issuer_name(certificate, X509_get_subject_name(issuing));
    addExtension(certificate, issuing, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate, issuing, NID_key_usage, "critical,keyCertSign");
    addExtension(certificate, issuing, NID_subject_key_identifier, "hash");
    EVP_PKEY* signing = issuer ? issuer->keys_->key.get() : key;
    if (!X509_sign(certificate, signing, EVP_sha256())) throw std::runtime_error("cannot sign the authority's certificate");
    identity_ = toPEM(certificate, key);
}

CertificateAuthority::~CertificateAuthority() = default;

TLSIdentity CertificateAuthority::issue(const Options& options) const {
    const Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    return issueTo(key.get(), options, keys_->certificate.get(), keys_->key.get());
}

TLSIdentity CertificateAuthority::selfSigned(const Options& options) {
    const Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    return issueTo(key.get(), options, nullptr, key.get());
}

}  // namespace vexim::testing
