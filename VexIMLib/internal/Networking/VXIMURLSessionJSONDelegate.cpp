// The result of an answer, by its status and body:
//
//   body                        2xx                   4xx          other status, or none
//   {"errorCode": > 0, …}       that code, temporary  that code    that code, temporary
//   other JSON                  the JSON              100          100, temporary
//   anything else, or nothing   the bytes             100          100, temporary
//
// All errors are in "VXErrorDomain". The underlying error is the transport's, or -1011 for the
// status.

#include "VexIMLib/internal/Networking/VXIMURLSessionJSONDelegate.h"

#include <utility>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/VXIMConstants.h"
#include "VexIMLib/internal/Networking/NetworkingErrors.h"

namespace {

/// The error that the service names in its body, or nullptr.
vexim::ErrorPtr serverError(const vexim::Value& json) {
    const auto code = json.get("errorCode").longLongValue();
    if (!json.isDictionary() || code <= 0) return nullptr;
    auto userInfo = *json.asDictionary();
    if (const auto* message = userInfo.find("errorMessage"))
        userInfo.set(vexim::kLocalizedDescriptionKey, vexim::Value(*message));
    return vexim::Error::make(VXErrorDomain, code, std::move(userInfo));
}

}  // namespace

void VXIMURLSessionJSONDelegate::parseResultOfTask(const vexim::URLSessionTask& task) {
    VXIMURLSessionDataDelegate::parseResultOfTask(task);

    const auto data = outputStream()->dataWrittenToMemory();
    const auto json = data.empty() ? vexim::Value() : vexim::parseJSON(data.view()).value;

    auto server = serverError(json);
    if (!server && error()) server = vexim::rest::transportFailed(error());
    if (!json.isNil()) setResult(json);
    setError(errorWithError(server, error()));

    // A 4xx means that the request is wrong, so sending it again would not help.
    const auto status = statusOfTask(task);
    if (error() && (status < 400 || status > 499)) setError(vexim::rest::markedTemporary(error()));
    if (error()) setResult(nullptr);
}
