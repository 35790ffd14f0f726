#pragma once

#include <string>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/VXIMErrors.h"

// Every error that the client and the resources make themselves, all in `VXIMErrorDomain`. (REST
// failures come from the request layer as they are; a login's failure carries the service's code.)
namespace vexim::errors {

ErrorPtr withoutReceiver();
ErrorPtr disconnected();
/// The connection did not take a message, for the reason that `cause` gives.
ErrorPtr notTaken(const ErrorPtr& cause);
/// A connection that was lost, as the reason says; in `VXIMConnectionErrorDomain`.
ErrorPtr connectionLost(const Value& reason);
ErrorPtr emptyPassengerId(std::string description);
/// What the service answered cannot be made into what was asked for; `cause` says why.
ErrorPtr unusableAnswer(const Exception& cause);
/// A message that cannot be put on the wire any more, because it was changed after it was handed
/// over.
ErrorPtr unsendable(const Exception& cause);

}  // namespace vexim::errors
