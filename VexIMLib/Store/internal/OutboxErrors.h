#pragma once

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Store/VXIMStoreErrors.h"

// The errors that outbox and front door make themselves, all in `VXIMStoreErrorDomain`.
namespace vexim::store::errors {

/// The service has neither sent it back nor has it in the history; `cause` (nullptr: none) tells why it could not be looked up.
ErrorPtr notAccepted(const ErrorPtr& cause);
/// The connection was lost before the echo came, and there is no history to look into.
ErrorPtr fateUnknown(const ErrorPtr& cause);
ErrorPtr tooOld();
ErrorPtr outboxFull();
ErrorPtr notFound();
ErrorPtr notOpen();
ErrorPtr otherUser();

}  // namespace vexim::store::errors
