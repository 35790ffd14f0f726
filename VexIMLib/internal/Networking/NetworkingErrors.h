#pragma once

#include <cstdint>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Exception.h"

// Every error that the HTTP transport makes.
namespace vexim::rest {

/// 100, with the description of `cause`.
ErrorPtr transportFailed(const ErrorPtr& cause);
/// 100, with the description of `cause` and `cause` beneath: a file of the application's could not
/// be written.
ErrorPtr fileFailed(const ErrorPtr& cause);
/// -1011 "Request failed: 404 not found", with the response's URL.
ErrorPtr badServerResponse(std::int64_t status, const Value& failingURL);
/// -999
ErrorPtr cancelled();
/// 100, for a mistake that only showed while the operation was under way, where nobody can catch
/// it.
ErrorPtr raised(const Exception& exception);

/// The same error with "temporary" = true.
ErrorPtr markedTemporary(const ErrorPtr& error);
/// Whether it is so marked. (`vexim::isTemporary` also asks for the cause.)
bool isMarkedTemporary(const ErrorPtr& error);

}  // namespace vexim::rest
