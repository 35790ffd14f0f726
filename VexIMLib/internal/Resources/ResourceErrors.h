#pragma once

#include <string>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/VXIMErrors.h"

// Every error that the client and the resources make themselves. They are in `VXIMErrorDomain`
// unless a comment says otherwise. (REST failures come unchanged from the request layer; a failed
// login has the service's code.)
namespace vexim::errors {

ErrorPtr withoutReceiver();
ErrorPtr disconnected();
/// The connection did not accept a message; `cause` is the reason.
ErrorPtr notTaken(const ErrorPtr& cause);
/// The connection was lost, for the given reason; in `VXIMConnectionErrorDomain`.
ErrorPtr connectionLost(const Value& reason);
ErrorPtr emptyPassengerId(std::string description);
/// The service's answer cannot be turned into the requested object; `cause` says why.
ErrorPtr unusableAnswer(const Exception& cause);
/// A message cannot be sent any more because it was changed after the send began.
ErrorPtr unsendable(const Exception& cause);

}  // namespace vexim::errors
