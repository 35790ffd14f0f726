#include "VexIMLib/internal/Platform/Trust/Authorities.h"

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

namespace vexim {
namespace {

constexpr std::size_t kMostBytes = std::size_t{16} << 20;  // a hundred times the usual size

// the variables that OpenSSL itself reads
constexpr const char* kFileVariable = "SSL_CERT_FILE";
constexpr const char* kFolderVariable = "SSL_CERT_DIR";

const char* environment(const char* name) {
    const char* const value = std::getenv(name);
    return value ? value : "";
}

std::size_t countOf(std::string_view mark, std::string_view text) {
    std::size_t count = 0;
    for (auto at = text.find(mark); at != text.npos; at = text.find(mark, at + mark.size()))
        ++count;
    return count;
}

/// nullptr unless `bytes` are one certificate and nothing else.
X509* parseCertificate(std::string_view kind, const unsigned char* bytes, long length) {
    const unsigned char* end = bytes;
    X509* certificate = nullptr;
    if (kind == PEM_STRING_X509 || kind == PEM_STRING_X509_OLD)
        certificate = d2i_X509(nullptr, &end, length);
    if (kind == PEM_STRING_X509_TRUSTED) certificate = d2i_X509_AUX(nullptr, &end, length);
    if (certificate && end == bytes + length) return certificate;
    X509_free(certificate);
    return nullptr;
}

bool addCertificates(const std::string& pem, X509_STORE* store) {
    BIO* const bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
    std::size_t count = 0;
    bool isWhole = true;
    char* kind = nullptr;
    char* header = nullptr;
    unsigned char* bytes = nullptr;
    long length = 0;
    while (isWhole && PEM_read_bio(bio, &kind, &header, &bytes, &length) == 1) {
        X509* const certificate = parseCertificate(kind, bytes, length);
        isWhole = certificate && X509_STORE_add_cert(store, certificate) == 1;
        ++count;
        X509_free(certificate);
        OPENSSL_free(kind);
        OPENSSL_free(header);
        OPENSSL_free(bytes);
    }
    BIO_free(bio);
    ERR_clear_error();  // OpenSSL counts the end of the text as an error
    // OpenSSL treats a damaged first or last line as a comment and would skip its certificate.
    return isWhole && count > 0 && countOf("-BEGIN ", pem) == count &&
           countOf("-END ", pem) == count;
}

struct FileReading {
    std::string text;
    std::string fault;
};

FileReading readFile(const char* path) {
    const auto failed = [](int error) {
        return FileReading{{}, std::generic_category().message(error)};
    };
    const int file = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);  // a pipe must not block us
    if (file < 0) return failed(errno);
    struct stat about {};
    FileReading reading;
    if (::fstat(file, &about) != 0) {
        reading = failed(errno);
    } else if (!S_ISREG(about.st_mode)) {
        reading.fault = "it is not a file";
    } else {
        char buffer[65536];
        ssize_t count = 0;
        while (reading.text.size() <= kMostBytes &&
               (count = ::read(file, buffer, sizeof buffer)) > 0) {
            reading.text.append(buffer, static_cast<std::size_t>(count));
        }
        if (count < 0) reading = failed(errno);
    }
    ::close(file);
    return reading;
}

/// Adds the certificates in `pem` to the store. Returns what is wrong, as the end of a sentence;
/// empty on success.
std::string addText(const std::string& pem, X509_STORE* store) {
    if (pem.size() > kMostBytes) return "it is longer than 16 MiB";
    return addCertificates(pem, store)
               ? ""
               : "it must contain complete certificates in PEM form and nothing else";
}

std::string addFile(const char* path, X509_STORE* store) {
    const auto [text, fault] = readFile(path);
    return fault.empty() ? addText(text, store) : fault;
}

std::string fileVersion(const char* path) {
    struct stat about {};
    if (::stat(path, &about) != 0) return "none";
    std::string version;
    for (const auto number :
         {static_cast<std::int64_t>(about.st_dev), static_cast<std::int64_t>(about.st_ino),
          static_cast<std::int64_t>(about.st_size), static_cast<std::int64_t>(about.st_mtim.tv_sec),
          static_cast<std::int64_t>(about.st_mtim.tv_nsec)}) {
        version += std::to_string(number) + " ";
    }
    return version;
}

}  // namespace

void FreeStore::operator()(x509_store_st* store) const { X509_STORE_free(store); }

AuthorityReading readAuthorities(const TrustOptions& options) {
    AuthorityStore store(X509_STORE_new());
    if (!store) return {nullptr, "There is not enough memory for the certificate authorities."};
    std::string source;
    std::string fault;
    if (!options.authorityPEM.empty()) {
        source = "option \"caPEM\"";
        fault = addText(options.authorityPEM, store.get());
    } else if (!options.authorityFile.empty()) {
        source = "option \"caFile\"";
        fault = addFile(options.authorityFile.c_str(), store.get());
    } else {
        // Read the file here, because OpenSSL would ignore one that it cannot read.
        source = std::string("the variable ") + kFileVariable;
        if (const char* const named = environment(kFileVariable); *named)
            fault = addFile(named, store.get());
        if (fault.empty()) X509_STORE_set_default_paths(store.get());
    }
    ERR_clear_error();
    if (!fault.empty())
        return {nullptr,
                "The certificate authorities of " + source + " cannot be used: " + fault + "."};
    return {std::move(store), {}};
}

std::string authoritiesVersion(const TrustOptions& options) {
    if (!options.authorityPEM.empty()) return {};
    if (!options.authorityFile.empty()) return fileVersion(options.authorityFile.c_str());
    const std::string file = environment(kFileVariable);
    if (file.empty()) return environment(kFolderVariable);
    return environment(kFolderVariable) + ("\n" + file + "\n" + fileVersion(file.c_str()));
}

}  // namespace vexim
