#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/internal/Platform/Trust/CertificateFault.h"
#include "VexIMLib/internal/Platform/Trust/Trust.h"

namespace vexim {

/// Puts a trust in the place of libcurl's own certificate store and name check. One for each easy
/// handle.
class CurlTrust {
public:
    CurlTrust() = default;
    CurlTrust(const CurlTrust&) = delete;
    CurlTrust& operator=(const CurlTrust&) = delete;

    /// For the transfers of `easy` from now on, while this lives. The handle takes no connection
    /// and no TLS session over that another trust has opened.
    void apply(CURL* easy, std::shared_ptr<const Trust> trust, std::string host);

    /// What TLS says about a transfer that ended with `result` and libcurl's `text`; nullopt when
    /// it was not TLS that failed.
    std::optional<CertificateFault> fault(CURL* easy, CURLcode result, std::string_view text) const;

private:
    static CURLcode onContext(CURL* easy, void* context, void* self);

    std::shared_ptr<const Trust> trust_;
    std::string host_;
};

}  // namespace vexim
