#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim {

// Keys of an error's user information: a sentence, the reason in it as a part of a sentence, an
// `Error`, and a text.
inline constexpr const char* kLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr const char* kLocalizedFailureReasonKey = "NSLocalizedFailureReason";
inline constexpr const char* kUnderlyingErrorKey = "NSUnderlyingError";
inline constexpr const char* kFailingURLKey = "NSErrorFailingURLKey";

/// Domain of what goes wrong while a URL is loaded, with the codes below.
inline constexpr const char* kURLErrorDomain = "NSURLErrorDomain";
/// The published codes of URL loading.
enum URLErrorCode : std::int64_t {
    URLErrorUnknown = -1,
    URLErrorCancelled = -999,
    URLErrorBadURL = -1000,
    URLErrorTimedOut = -1001,
    URLErrorUnsupportedURL = -1002,
    URLErrorCannotFindHost = -1003,
    URLErrorCannotConnectToHost = -1004,
    URLErrorNetworkConnectionLost = -1005,
    URLErrorDNSLookupFailed = -1006,
    URLErrorHTTPTooManyRedirects = -1007,
    URLErrorResourceUnavailable = -1008,
    URLErrorNotConnectedToInternet = -1009,
    URLErrorBadServerResponse = -1011,
    URLErrorZeroByteResource = -1014,
    URLErrorCannotDecodeRawData = -1015,
    URLErrorCannotDecodeContentData = -1016,
    URLErrorCannotParseResponse = -1017,
    URLErrorRequestBodyStreamExhausted = -1021,
    URLErrorFileDoesNotExist = -1100,
    URLErrorFileIsDirectory = -1101,
    URLErrorNoPermissionsToReadFile = -1102,
    URLErrorDataLengthExceedsMaximum = -1103,
    URLErrorSecureConnectionFailed = -1200,
    URLErrorServerCertificateHasBadDate = -1201,
    URLErrorServerCertificateUntrusted = -1202,
    URLErrorServerCertificateHasUnknownRoot = -1203,
    URLErrorServerCertificateNotYetValid = -1204,
};

/// Domain of what cannot be read or written as JSON (3840, 3851) or as an archive (3851, 4864), and
/// of files.
inline constexpr const char* kCocoaErrorDomain = "NSCocoaErrorDomain";
/// Domain of the system's own errors; the code is `errno`.
inline constexpr const char* kPOSIXErrorDomain = "NSPOSIXErrorDomain";

class Error;
/// nullptr is success.
using ErrorPtr = std::shared_ptr<Error>;

/// A failure of the world, as completions receive it. Immutable.
class VEXIM_EXPORT Error final : public Object {
public:
    using Object::Object;
    /// Any user information, normally a dictionary with the keys above; nil is none.
    static ErrorPtr make(std::string domain, std::int64_t code, Value userInfo = nullptr);
    /// With `description` as the only entry of the user information.
    static ErrorPtr withDescription(std::string domain, std::int64_t code, std::string description);

    // Together they say what went wrong; compare with `is`.
    const std::string& domain() const noexcept { return domain_; }
    std::int64_t code() const noexcept { return code_; }

    /// Normally a dictionary; a service's own value may stand here as it arrived.
    const Value& userInfo() const noexcept { return userInfo_; }
    /// The entry of the user information when that is a dictionary, else nil.
    Value info(std::string_view key) const { return userInfo_.get(key); }
    /// The user information's localized description, else the service's own words ("errorMessage",
    /// as a refused login has them), else a sentence with domain and code.
    std::string localizedDescription() const;
    /// What caused this error; nullptr when it does not tell.
    ErrorPtr underlyingError() const;
    /// Whether domain and code are these.
    bool is(std::string_view domain, std::int64_t code) const noexcept {
        return domain_ == domain && code_ == code;
    }

    static const Class& staticClass();
    const Class& runtimeClass() const override;
    std::string description() const override;
    bool isEqual(const Object& other) const override;

    bool initialise(std::string domain, std::int64_t code, Value userInfo);

private:
    std::string domain_;
    std::int64_t code_ = 0;
    Value userInfo_;
};

}  // namespace vexim
