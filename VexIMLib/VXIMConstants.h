#pragma once

#include "VexIMLib/Foundation/Export.h"

// Names of the notifications that the client posts to the default notification centre, with itself as the sender. Each one's
// value is its own name. VXIMClient.h tells when, and with what user information.
VEXIM_EXPORT extern const char* const VXIMUserDidLoginNotification;
VEXIM_EXPORT extern const char* const VXIMClientDidReceiveMessageNotification;
VEXIM_EXPORT extern const char* const VXIMClientDidReceiveSystemMessageNotification;
VEXIM_EXPORT extern const char* const VXIMFriendOnlineNotification;
VEXIM_EXPORT extern const char* const VXIMFriendOfflineNotification;

/// Domain of the errors that the library makes itself: a send that cannot be made (1), an answer of the service that cannot be
/// used, such as a list with an element that makes no object (2), a refused login (the service's code),
/// a passenger without an id (5004).
VEXIM_EXPORT extern const char* const VXIMErrorDomain;
/// Domain of the errors of REST requests: what the service answered (its own code, above 0), or that no usable answer came
/// (100), with the reason as the underlying error.
VEXIM_EXPORT extern const char* const VXErrorDomain;

// The version of the library that runs, which can be newer than the one compiled against. The string also names the library,
// and ends with a newline.
VEXIM_EXPORT extern const double VexIMLibVersionNumber;
VEXIM_EXPORT extern const unsigned char VexIMLibVersionString[];

// Suggested throttling for uploads over slow mobile links: bytes a packet, and seconds between packets. Nothing applies them
// by itself.
VEXIM_EXPORT extern const unsigned long kVXIMAFUploadStream3GSuggestedPacketSize;
VEXIM_EXPORT extern const double kVXIMAFUploadStream3GSuggestedDelay;
