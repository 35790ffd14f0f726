#include "VexIMLib/Store/internal/OutboxErrors.h"

#include <string>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/VXIMErrors.h"

namespace vexim::store::errors {
namespace {

ErrorPtr make(VXIMStoreErrorCode code, std::string description, const ErrorPtr& cause = nullptr) {
    Dictionary userInfo{{kLocalizedDescriptionKey, std::move(description)}};
    if (cause) userInfo.set(kUnderlyingErrorKey, cause);
    return Error::make(VXIMStoreErrorDomain, code, std::move(userInfo));
}

}  // namespace

ErrorPtr notAccepted(const ErrorPtr& cause) {
    return make(
        VXIMStoreErrorNotAccepted,
        "The service has not accepted the message: it did not send it back and does not have it.",
        cause);
}

ErrorPtr fateUnknown(const ErrorPtr& cause) {
    return make(
        VXIMStoreErrorFateUnknown,
        "The connection was lost before the service confirmed the message. It may or may not have arrived.",
        cause);
}

ErrorPtr tooOld() {
    return make(VXIMStoreErrorTooOld, "The message has waited too long to be sent.");
}
ErrorPtr outboxFull() {
    return make(VXIMStoreErrorOutboxFull, "Too many messages are waiting to be sent.");
}
ErrorPtr notFound() {
    return make(VXIMStoreErrorNotFound, "There is no such message that has failed or is waiting.");
}
ErrorPtr notOpen() { return make(VXIMStoreErrorClosed, "The store is not open."); }
ErrorPtr otherUser() {
    return make(VXIMStoreErrorOtherOwner,
                "The store belongs to another user than the one who has logged in.");
}

bool isWorthRetrying(const ErrorPtr& error) {
    if (!error || isTemporary(error)) return error != nullptr;
    const auto cause = error->underlyingError();
    return cause && cause->is(kURLErrorDomain, URLErrorBadServerResponse) &&
           cause->localizedDescription().starts_with("Request failed: 429 ");
}

}  // namespace vexim::store::errors
