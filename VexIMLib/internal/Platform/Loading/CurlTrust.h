#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/internal/Platform/Trust/CertificateFault.h"
#include "VexIMLib/internal/Platform/Trust/Trust.h"

namespace vexim {

/// Lets a `Trust` check certificates and host names, in place of libcurl's own checks. One for each
/// easy handle.
class CurlTrust {
public:
    CurlTrust() = default;
    CurlTrust(const CurlTrust&) = delete;
    CurlTrust& operator=(const CurlTrust&) = delete;

    /// Applies to future transfers of `easy`, as long as this object lives. The handle never reuses
    /// a connection or a TLS session of another trust.
    void apply(CURL* easy, std::shared_ptr<const Trust> trust, std::string host);

    /// What was wrong with TLS in a transfer that ended with `result` and libcurl's `text`; nullopt
    /// if it failed for another reason.
    std::optional<CertificateFault> fault(CURL* easy, CURLcode result, std::string_view text) const;

private:
    static CURLcode onContext(CURL* easy, void* context, void* self);

    std::shared_ptr<const Trust> trust_;
    std::string host_;
};

}  // namespace vexim
