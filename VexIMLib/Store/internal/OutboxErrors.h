#pragma once

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Store/VXIMStoreErrors.h"

// The errors that the outbox and `VXIMConversations` make themselves, all in
// `VXIMStoreErrorDomain`.
namespace vexim::store::errors {

/// The service did not send it back and does not have it in the history. `cause` (may be nullptr)
/// says why it could not be looked up.
ErrorPtr notAccepted(const ErrorPtr& cause);
/// The connection was lost before the echo came, and there is no history to check.
ErrorPtr fateUnknown(const ErrorPtr& cause);
ErrorPtr tooOld();
ErrorPtr outboxFull();
ErrorPtr notFound();
ErrorPtr notOpen();
ErrorPtr otherUser();

/// Whether trying again later may help: a temporary error, or too many requests (RFC 6585, 4),
/// which the core treats as a refusal like any other 4xx.
bool isWorthRetrying(const ErrorPtr& error);

}  // namespace vexim::store::errors
