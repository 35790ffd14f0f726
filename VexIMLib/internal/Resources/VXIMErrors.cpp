#include "VexIMLib/internal/Resources/VXIMErrors.h"

#include <utility>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/VXIMConstants.h"

namespace vexim::errors {

ErrorPtr withoutReceiver() {
    return Error::withDescription(VXIMErrorDomain, kCannotSend, "Message cannot send without receiver infomation.");
}

ErrorPtr disconnected() {
    return Error::withDescription(VXIMErrorDomain, kCannotSend, "Message cannot send when connection disconnected");
}

ErrorPtr notTaken(const ErrorPtr& cause) {
    const auto reason = cause->info(kLocalizedFailureReasonKey).asString();
    return Error::make(
        VXIMErrorDomain, kCannotSend,
        Dictionary{{kLocalizedDescriptionKey, "Message cannot send: " + reason.value_or("the connection refused it") + "."},
                   {kUnderlyingErrorKey, cause}});
}

ErrorPtr emptyPassengerId(std::string description) {
    return Error::withDescription(VXIMErrorDomain, kEmptyPassengerId, std::move(description));
}

ErrorPtr unusableAnswer(const Exception& cause) {
    return Error::withDescription(VXIMErrorDomain, kUnusableAnswer,
                                  std::string("The service's answer cannot be used: ") + cause.what());
}

ErrorPtr unsendable(const Exception& cause) {
    return Error::withDescription(VXIMErrorDomain, kCannotSend, std::string("Message cannot send: ") + cause.what());
}

}  // namespace vexim::errors
