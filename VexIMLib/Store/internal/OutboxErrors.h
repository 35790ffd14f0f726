#pragma once

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Store/VXIMStoreErrors.h"

// The errors that outbox and front door make themselves, all in `VXIMStoreErrorDomain`.
namespace vexim::store::errors {

/// The service has neither sent it back nor has it in the history; `cause` (nullptr: none) tells
/// why it could not be looked up.
ErrorPtr notAccepted(const ErrorPtr& cause);
/// The connection was lost before the echo came, and there is no history to look into.
ErrorPtr fateUnknown(const ErrorPtr& cause);
ErrorPtr tooOld();
ErrorPtr outboxFull();
ErrorPtr notFound();
ErrorPtr notOpen();
ErrorPtr otherUser();

/// Whether the same may succeed later by itself: a temporary error, or a service that is asked too
/// often (RFC 6585, 4), which the core calls a refusal as any other 4xx.
bool mayPass(const ErrorPtr& error);

}  // namespace vexim::store::errors
