#pragma once

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/VXIMErrors.h"

// Names of the notifications that the client posts to the default notification centre, with itself
// as the sender. Each one's value is its own name, but for the last. VXIMClient.h tells when, and
// with what user information.
VEXIM_EXPORT extern const char* const VXIMUserDidLoginNotification;
VEXIM_EXPORT extern const char* const VXIMClientDidReceiveMessageNotification;
VEXIM_EXPORT extern const char* const VXIMClientDidReceiveSystemMessageNotification;
VEXIM_EXPORT extern const char* const VXIMFriendOnlineNotification;
VEXIM_EXPORT extern const char* const VXIMFriendOfflineNotification;

/// The connection has a trouble that ends no operation: a connect failed, the server refused or
/// reported something, a limit was passed. Under "data" is an array: a sentence, what the server
/// said if anything, and last the error, in `VXIMConnectionErrorDomain` (`vexim::connectionError`
/// takes it out). The value of this name is "socket.io.error".
VEXIM_EXPORT extern const char* const VXIMClientConnectionErrorNotification;

/// Posted to the default notification centre, with the client as the sender, whenever a client's
/// status has changed: for what stands beside the application and leaves it its delegate. Under
/// "status" is the new one, a number of `VXIMClientStatus`. Observers run on the main queue, behind
/// the step that changed it: `status()` may have gone on meanwhile.
inline constexpr const char* VXIMClientDidChangeStatusNotification =
    "VXIMClientDidChangeStatusNotification";

// The version of the library that runs, which can be newer than the one compiled against. The
// string also names the library, and ends with a newline.
VEXIM_EXPORT extern const double VexIMLibVersionNumber;
VEXIM_EXPORT extern const unsigned char VexIMLibVersionString[];

// Suggested throttling for uploads over slow mobile links: bytes a packet, and seconds between
// packets. Nothing applies them by itself.
VEXIM_EXPORT extern const unsigned long kVXIMAFUploadStream3GSuggestedPacketSize;
VEXIM_EXPORT extern const double kVXIMAFUploadStream3GSuggestedDelay;
