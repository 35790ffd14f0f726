#include "VexIMLib/internal/Networking/NetworkingErrors.h"

#include <utility>

#include "VexIMLib/VXIMErrors.h"
#include "VexIMLib/internal/Platform/Facts/ReasonPhrases.h"
#include "VexIMLib/internal/Platform/Facts/URLErrors.h"

namespace vexim::rest {

ErrorPtr transportFailed(const ErrorPtr& cause) {
    auto description = cause->localizedDescription();
    if (description.empty()) description = "The connection to the Vexora servers failed.";
    return Error::withDescription(VXErrorDomain, VXErrorNoUsableAnswer, std::move(description));
}

ErrorPtr fileFailed(const ErrorPtr& cause) {
    return Error::make(VXErrorDomain, VXErrorNoUsableAnswer,
                       Dictionary{{kLocalizedDescriptionKey, cause->localizedDescription()},
                                  {kUnderlyingErrorKey, cause}});
}

ErrorPtr badServerResponse(std::int64_t status, const Value& failingURL) {
    Dictionary userInfo{{kLocalizedDescriptionKey,
                         "Request failed: " + std::to_string(status) + " " +
                             std::string(localizedStringForStatusCode(static_cast<int>(status)))}};
    userInfo.setOrRemove(kFailingURLKey, failingURL);
    return Error::make(kURLErrorDomain, URLErrorBadServerResponse, std::move(userInfo));
}

ErrorPtr cancelled() { return makeURLError(URLErrorCancelled); }

ErrorPtr raised(const Exception& exception) {
    return Error::withDescription(VXErrorDomain, VXErrorNoUsableAnswer, exception.what());
}

ErrorPtr markedTemporary(const ErrorPtr& error) {
    auto userInfo =
        error->userInfo().isDictionary() ? *error->userInfo().asDictionary() : Dictionary{};
    userInfo.set(kTemporaryKey, true);
    return Error::make(error->domain(), error->code(), std::move(userInfo));
}

bool isMarkedTemporary(const ErrorPtr& error) {
    return error && error->info(kTemporaryKey).boolValue();
}

}  // namespace vexim::rest
