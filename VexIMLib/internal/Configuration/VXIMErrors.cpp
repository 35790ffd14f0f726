// Which errors are temporary. Their texts are where the errors are made, see docs/design.md; a
// refused login has the service's own text.
#include "VexIMLib/VXIMErrors.h"

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/NotificationCenter.h"

const char* const VXIMErrorDomain = "VXIMErrorDomain";
const char* const VXErrorDomain = "VXErrorDomain";
const char* const VXIMConnectionErrorDomain = "VXIMConnectionErrorDomain";

namespace vexim {
namespace {

bool isTemporary(URLErrorCode code) {
    switch (code) {
        case URLErrorTimedOut:
        case URLErrorCannotFindHost:
        case URLErrorCannotConnectToHost:
        case URLErrorNetworkConnectionLost:
        case URLErrorDNSLookupFailed:
        case URLErrorNotConnectedToInternet:
        case URLErrorRequestBodyStreamExhausted: return true;
        default: return false;
    }
}

bool isTemporary(VXIMConnectionErrorKind kind) {
    switch (kind) {
        case VXIMConnectionErrorHostNotFound:
        case VXIMConnectionErrorUnreachable:
        case VXIMConnectionErrorTimedOut:
        case VXIMConnectionErrorLost: return true;
        case VXIMConnectionErrorOther:
        case VXIMConnectionErrorBadAddress:
        case VXIMConnectionErrorNotSecure:
        case VXIMConnectionErrorProxy:
        case VXIMConnectionErrorNotSocketIO:
        case VXIMConnectionErrorRefused:
        case VXIMConnectionErrorProtocolFault:
        case VXIMConnectionErrorLimitPassed:
        case VXIMConnectionErrorServerReported: return false;
    }
    return false;
}

}  // namespace

bool isTemporary(const ErrorPtr& error) {
    if (!error) return false;
    if (error->domain() == VXIMConnectionErrorDomain)
        return isTemporary(static_cast<VXIMConnectionErrorKind>(error->code()));
    // -1011 stands for an HTTP status; the mark in the outer error decides that case.
    const bool isTransport =
        error->domain() == kURLErrorDomain && error->code() != URLErrorBadServerResponse;
    if (isTransport) return isTemporary(static_cast<URLErrorCode>(error->code()));
    // Requests mark every transport failure as temporary. The underlying error is more precise.
    const ErrorPtr cause = error->underlyingError();
    if (cause && !cause->is(kURLErrorDomain, URLErrorBadServerResponse)) return isTemporary(cause);
    return error->info(kTemporaryKey).boolValue();
}

ErrorPtr connectionError(const Notification& notification) {
    const Value data = notification.userInfo ? notification.userInfo->get("data") : Value();
    const Array* arguments = data.asArray();
    if (arguments && !arguments->empty()) {
        if (auto error = arguments->get(arguments->size() - 1).as<Error>()) return error;
    }
    const std::string told = arguments ? arguments->get(0).asString().value_or("") : "";
    return Error::withDescription(
        VXIMConnectionErrorDomain, VXIMConnectionErrorOther,
        told.empty() ? "The connection failed for an unknown reason." : told);
}

}  // namespace vexim
