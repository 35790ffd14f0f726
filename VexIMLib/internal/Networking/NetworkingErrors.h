#pragma once

#include <cstdint>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Exception.h"

// Every error that the HTTP transport makes.
namespace vexim::rest {

/// 100, with the description of `cause`.
ErrorPtr transportFailed(const ErrorPtr& cause);
/// 100, with the description of `cause` and `cause` as underlying error: a file of the application
/// could not be written.
ErrorPtr fileFailed(const ErrorPtr& cause);
/// -1011 "Request failed: 404 not found", with the response's URL.
ErrorPtr badServerResponse(std::int64_t status, const Value& failingURL);
/// -999
ErrorPtr cancelled();
/// 100, for a mistake that was found only while the operation ran, where nobody can catch an
/// exception.
ErrorPtr raised(const Exception& exception);

/// The same error with "temporary" = true.
ErrorPtr markedTemporary(const ErrorPtr& error);
/// Whether it has this mark. (`vexim::isTemporary` also looks at the cause.)
bool isMarkedTemporary(const ErrorPtr& error);

}  // namespace vexim::rest
