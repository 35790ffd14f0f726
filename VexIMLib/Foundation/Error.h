#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim {

// Keys of an error's user information: the description (a sentence), the reason (a part of a
// sentence), the underlying `Error`, and the URL as text.
inline constexpr const char* kLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr const char* kLocalizedFailureReasonKey = "NSLocalizedFailureReason";
inline constexpr const char* kUnderlyingErrorKey = "NSUnderlyingError";
inline constexpr const char* kFailingURLKey = "NSErrorFailingURLKey";

/// Domain of the errors of URL loading; the codes are below.
inline constexpr const char* kURLErrorDomain = "NSURLErrorDomain";
/// The published codes of URL loading.
enum URLErrorCode : std::int64_t {
    /// none of the others
    URLErrorUnknown = -1,
    /// the application cancelled the transfer
    URLErrorCancelled = -999,
    /// the text is not a URL
    URLErrorBadURL = -1000,
    /// no answer in time
    URLErrorTimedOut = -1001,
    /// the scheme is not supported
    URLErrorUnsupportedURL = -1002,
    /// the host name does not exist
    URLErrorCannotFindHost = -1003,
    /// nothing listens there, or there is no route
    URLErrorCannotConnectToHost = -1004,
    /// the connection was lost before the answer was complete
    URLErrorNetworkConnectionLost = -1005,
    /// the host name could not be looked up
    URLErrorDNSLookupFailed = -1006,
    /// more than 20 redirections
    URLErrorHTTPTooManyRedirects = -1007,
    /// the resource is not available
    URLErrorResourceUnavailable = -1008,
    /// this device has no network
    URLErrorNotConnectedToInternet = -1009,
    /// the server's answer is unusable, or its status is not a success
    URLErrorBadServerResponse = -1011,
    /// the answer is empty
    URLErrorZeroByteResource = -1014,
    /// the answer's raw data cannot be decoded
    URLErrorCannotDecodeRawData = -1015,
    /// the answer's content encoding is broken or not supported
    URLErrorCannotDecodeContentData = -1016,
    /// the answer is not valid HTTP
    URLErrorCannotParseResponse = -1017,
    /// the body had to be sent again, but can be read only once
    URLErrorRequestBodyStreamExhausted = -1021,
    /// there is no such file
    URLErrorFileDoesNotExist = -1100,
    /// the file is a directory
    URLErrorFileIsDirectory = -1101,
    /// the file may not be read
    URLErrorNoPermissionsToReadFile = -1102,
    /// the answer is longer than the limit
    URLErrorDataLengthExceedsMaximum = -1103,
    /// no TLS connection could be made
    URLErrorSecureConnectionFailed = -1200,
    /// the certificate has expired
    URLErrorServerCertificateHasBadDate = -1201,
    /// the certificate is not trusted
    URLErrorServerCertificateUntrusted = -1202,
    /// the certificate's authority is not known
    URLErrorServerCertificateHasUnknownRoot = -1203,
    /// the certificate is not valid yet
    URLErrorServerCertificateNotYetValid = -1204,
};

/// Domain of the errors of files, of JSON (3840 reading, 3851 writing) and of archives (4864
/// reading, 3851 writing).
inline constexpr const char* kCocoaErrorDomain = "NSCocoaErrorDomain";
/// Domain of the system's own errors; the code is `errno`.
inline constexpr const char* kPOSIXErrorDomain = "NSPOSIXErrorDomain";

class Error;
/// An error, or nullptr for success.
using ErrorPtr = std::shared_ptr<Error>;

/// What went wrong, as completions receive it. Immutable, so it may be used from any thread.
///
///     if (error->is(vexim::kURLErrorDomain, vexim::URLErrorCancelled)) return;
///     std::cerr << error->localizedDescription() << '\n';
///     if (vexim::isTemporary(error)) offerToTryAgain();
class VEXIM_EXPORT Error final : public Object {
public:
    using Object::Object;
    /// Makes an error. `userInfo` is normally a dictionary with the keys above; nil means none.
    static ErrorPtr make(std::string domain, std::int64_t code, Value userInfo = nullptr);
    /// Makes an error whose user information has only a description.
    static ErrorPtr withDescription(std::string domain, std::int64_t code, std::string description);

    // Together these identify the error; compare them with `is`.
    const std::string& domain() const noexcept { return domain_; }
    std::int64_t code() const noexcept { return code_; }

    /// Normally a dictionary. For a refused login it is the value that the service sent, of any
    /// type.
    const Value& userInfo() const noexcept { return userInfo_; }
    /// The entry of the user information; nil if there is none or it is not a dictionary.
    Value info(std::string_view key) const { return userInfo_.get(key); }
    /// The description in the user information. If there is none, the service's own text
    /// ("errorMessage", in a refused login); otherwise a sentence with domain and code.
    std::string localizedDescription() const;
    /// The error that caused this one; nullptr if there is none.
    ErrorPtr underlyingError() const;
    /// Whether the error has this domain and this code.
    bool is(std::string_view domain, std::int64_t code) const noexcept {
        return domain_ == domain && code_ == code;
    }

    /// The runtime record of the class.
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
