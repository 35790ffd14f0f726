#include "VexIMLib/VXIMConstants.h"

const char* const VXIMUserDidLoginNotification = "VXIMUserDidLoginNotification";
const char* const VXIMClientDidReceiveMessageNotification =
    "VXIMClientDidReceiveMessageNotification";
const char* const VXIMClientDidReceiveSystemMessageNotification =
    "VXIMClientDidReceiveSystemMessageNotification";
const char* const VXIMFriendOnlineNotification = "VXIMFriendOnlineNotification";
const char* const VXIMFriendOfflineNotification = "VXIMFriendOfflineNotification";
const char* const VXIMClientConnectionErrorNotification = "socket.io.error";

const double VexIMLibVersionNumber = 1.0;
const unsigned char VexIMLibVersionString[] = "@(#)PROGRAM:VexIMLib  PROJECT:VexIMLib-1\n";

const unsigned long kVXIMAFUploadStream3GSuggestedPacketSize = 16384;
const double kVXIMAFUploadStream3GSuggestedDelay = 0.2;
