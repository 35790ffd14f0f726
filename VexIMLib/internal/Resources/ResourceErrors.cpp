#include "VexIMLib/internal/Resources/ResourceErrors.h"

#include <utility>

#include "VexIMLib/Foundation/Dictionary.h"

namespace vexim::errors {

ErrorPtr withoutReceiver() {
    return Error::withDescription(VXIMErrorDomain, VXIMErrorCannotSend,
                                  "Message cannot send without receiver infomation.");
}

ErrorPtr disconnected() {
    return Error::make(
        VXIMErrorDomain, VXIMErrorCannotSend,
        Dictionary{{kLocalizedDescriptionKey, "Message cannot send when connection disconnected"},
                   {kTemporaryKey, true}});
}

ErrorPtr notTaken(const ErrorPtr& cause) {
    const auto reason = cause->info(kLocalizedFailureReasonKey).asString();
    return Error::make(
        VXIMErrorDomain, VXIMErrorCannotSend,
        Dictionary{{kLocalizedDescriptionKey,
                    "Message cannot send: " + reason.value_or("the connection refused it") + "."},
                   {kUnderlyingErrorKey, cause}});
}

ErrorPtr connectionLost(const Value& reason) {
    const std::string why = reason.asString().value_or("");
    return Error::withDescription(VXIMConnectionErrorDomain, VXIMConnectionErrorLost,
                                  "The connection was lost" + (why.empty() ? "" : ": " + why) +
                                      (why.ends_with('.') ? "" : "."));
}

ErrorPtr emptyPassengerId(std::string description) {
    return Error::withDescription(VXIMErrorDomain, VXIMErrorPassengerWithoutId,
                                  std::move(description));
}

ErrorPtr unusableAnswer(const Exception& cause) {
    return Error::withDescription(
        VXIMErrorDomain, VXIMErrorUnusableAnswer,
        std::string("The service's answer cannot be used: ") + cause.what());
}

ErrorPtr unsendable(const Exception& cause) {
    return Error::withDescription(VXIMErrorDomain, VXIMErrorCannotSend,
                                  std::string("Message cannot send: ") + cause.what());
}

}  // namespace vexim::errors
