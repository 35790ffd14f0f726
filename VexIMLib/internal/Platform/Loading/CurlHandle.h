#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>
#include <string_view>

#include "VexIMLib/internal/Platform/Loading/CurlHeaderList.h"
#include "VexIMLib/internal/Platform/Loading/CurlTrust.h"

namespace vexim {

class CurlMulti;
class URL;

/// An easy handle with all the options that are the same for every request. Handles are reused,
/// because making one costs as much as a short transfer. Network thread only.
class CurlHandle {
public:
    /// Returns a spare handle or a new one.
    static std::unique_ptr<CurlHandle> take();
    /// Takes back a handle that is not part of a multi any more.
    static void recycle(std::unique_ptr<CurlHandle> handle);

    /// The two pools of connections: one for short exchanges and downloads, with HTTP/2 where TLS
    /// offers it, and one for long uploads, with HTTP/1.1.
    static CurlMulti& multi();
    static CurlMulti& multiForUploads();

    CurlHandle();
    CurlHandle(const CurlHandle&) = delete;
    CurlHandle& operator=(const CurlHandle&) = delete;
    ~CurlHandle();

    CURL* easy() const noexcept { return easy_; }
    /// Sets where the next transfer goes.
    void setURL(const URL& url);
    /// The header lines of the next transfer; none at first. Their memory is reused.
    CurlHeaderList& headers() noexcept { return headers_; }
    /// Decides about certificates. Set it before each transfer.
    CurlTrust& trust() noexcept { return trust_; }
    const CurlTrust& trust() const noexcept { return trust_; }
    /// Forgets the header lines and the error of the last transfer. A handle from `take` has none.
    void forgetLast() noexcept;
    /// What libcurl said about the failure of the last transfer.
    std::string_view errorText(CURLcode result) const;

private:
    CURL* const easy_;
    CURLU* const address_;  // the last URL that could be set in parts
    std::string origin_;    // of `address_`
    CurlHeaderList headers_;
    CurlTrust trust_;
    char errorText_[CURL_ERROR_SIZE] = {};
};

}  // namespace vexim
