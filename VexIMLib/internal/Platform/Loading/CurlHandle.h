#pragma once

#include <curl/curl.h>

#include <memory>
#include <string_view>

#include "VexIMLib/internal/Platform/Loading/CurlTrust.h"

namespace vexim {

class CurlMulti;

/// An easy handle with everything set that no request changes. Handles are kept and used again:
/// making and setting one up costs as much as a short transfer. Network thread only.
class CurlHandle {
public:
    /// A spare one, or a new one.
    static std::unique_ptr<CurlHandle> take();
    /// Not part of a multi any more.
    static void giveBack(std::unique_ptr<CurlHandle> handle);

    /// The connections for short exchanges and downloads, HTTP/2 where TLS offers it, and those for
    /// long uploads, HTTP/1.1.
    static CurlMulti& multi();
    static CurlMulti& multiForUploads();

    explicit CurlHandle(CURL* easy);
    CurlHandle(const CurlHandle&) = delete;
    CurlHandle& operator=(const CurlHandle&) = delete;
    ~CurlHandle();

    CURL* easy() const noexcept { return easy_; }
    /// Who decides about certificates; to be told before each transfer.
    CurlTrust& trust() noexcept { return trust_; }
    const CurlTrust& trust() const noexcept { return trust_; }
    /// What libcurl said about the failure of the last transfer.
    std::string_view errorText(CURLcode result) const;

private:
    CURL* const easy_;
    CurlTrust trust_;
    char errorText_[CURL_ERROR_SIZE] = {};
};

}  // namespace vexim
