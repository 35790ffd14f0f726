#pragma once

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/VXIMErrors.h"

// Names of the notifications that the client posts to the default notification centre, with itself
// as the sender. The value of each is its own name, except for
// `VXIMClientConnectionErrorNotification`. VXIMClient.h says when they are posted.
VEXIM_EXPORT extern const char* const VXIMUserDidLoginNotification;
VEXIM_EXPORT extern const char* const VXIMClientDidReceiveMessageNotification;
VEXIM_EXPORT extern const char* const VXIMClientDidReceiveSystemMessageNotification;
VEXIM_EXPORT extern const char* const VXIMFriendOnlineNotification;
VEXIM_EXPORT extern const char* const VXIMFriendOfflineNotification;

/// Something is wrong with the connection: a connect failed, the server refused or reported
/// something, or a limit was exceeded. No completion reports it. The user information has an array
/// under "data": a sentence, what the server said (if anything), and last the error, in
/// `VXIMConnectionErrorDomain`. `vexim::connectionError` returns this error. The value of the name
/// is "socket.io.error".
VEXIM_EXPORT extern const char* const VXIMClientConnectionErrorNotification;

/// Posted to the default notification centre, with the client as the sender, whenever the client's
/// status has changed. Code that must leave the delegate to the application uses this. The user
/// information has the new status under "status", a number of `VXIMClientStatus`. Observers run on
/// the main queue, shortly after the change, so `status()` may have changed again by then.
inline constexpr const char* VXIMClientDidChangeStatusNotification =
    "VXIMClientDidChangeStatusNotification";

// The version of the library that is running, which can be newer than the headers. The string also
// has the library's name, and ends with a newline.
VEXIM_EXPORT extern const double VexIMLibVersionNumber;
VEXIM_EXPORT extern const unsigned char VexIMLibVersionString[];

// Suggested throttling for uploads over slow mobile links: bytes per packet, and seconds between
// packets. The library does not apply them on its own.
VEXIM_EXPORT extern const unsigned long kVXIMAFUploadStream3GSuggestedPacketSize;
VEXIM_EXPORT extern const double kVXIMAFUploadStream3GSuggestedDelay;
