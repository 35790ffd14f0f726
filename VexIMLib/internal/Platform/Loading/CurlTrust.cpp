#include "VexIMLib/internal/Platform/Loading/CurlTrust.h"

#include <openssl/x509_vfy.h>

#include <utility>

#include "VexIMLib/Foundation/Error.h"

namespace vexim {
namespace {

/// libcurl's context is OpenSSL's only if OpenSSL is its TLS library.
bool usesOpenSSL() {
    static const bool does = [] {
        const char* const library = curl_version_info(CURLVERSION_NOW)->ssl_version;
        return library && std::string_view(library).starts_with("OpenSSL/");
    }();
    return does;
}

/// OpenSSL's reason at the end of "OpenSSL/3.0: error:0A00010B:SSL routines::wrong version number";
/// empty for other texts.
std::string_view reasonIn(std::string_view text) {
    const auto beginning = text.find("error:");
    return beginning == text.npos ? std::string_view{} : text.substr(text.rfind(':') + 1);
}

}  // namespace

void CurlTrust::apply(CURL* easy, std::shared_ptr<const Trust> trust, std::string host) {
    trust_ = std::move(trust);
    host_ = std::move(host);
    curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, &CurlTrust::onContext);
    curl_easy_setopt(easy, CURLOPT_SSL_CTX_DATA, this);
    // If the function above were not called, there would be no authority, and every server would be
    // refused.
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(easy, CURLOPT_CAINFO, nullptr);
    // libcurl cannot see what the function does, but it shares nothing between different folders of
    // authorities. So each trust gets a folder name. OpenSSL never reads that folder, because it
    // has our store when it verifies.
    curl_easy_setopt(easy, CURLOPT_CAPATH,
                     ("/trust/" + std::to_string(trust_ ? trust_->identity() : 0)).c_str());
}

CURLcode CurlTrust::onContext(CURL*, void* context, void* self) {
    const auto& [trust, host] = *static_cast<CurlTrust*>(self);
    const bool isConfigured =
        usesOpenSSL() && trust && trust->configure(static_cast<ssl_ctx_st*>(context), host);
    return isConfigured ? CURLE_OK : CURLE_SSL_CERTPROBLEM;
}

std::optional<CertificateFault> CurlTrust::fault(CURL* easy, CURLcode result,
                                                 std::string_view text) const {
    switch (result) {
        case CURLE_PEER_FAILED_VERIFICATION: {
            long verified = X509_V_OK;
            curl_easy_getinfo(easy, CURLINFO_SSL_VERIFYRESULT, &verified);
            return certificateFault(verified == X509_V_OK ? X509_V_ERR_UNSPECIFIED : verified,
                                    host_);
        }
        case CURLE_SSL_CERTPROBLEM: return impossibleHost(host_);
        case CURLE_SSL_CONNECT_ERROR: return handshakeFault(reasonIn(text));
        default: return std::nullopt;
    }
}

}  // namespace vexim
