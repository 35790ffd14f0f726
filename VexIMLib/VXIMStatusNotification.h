#pragma once

/// Posted to the default notification centre, with the client as the sender, whenever a client's status has changed: for what
/// stands beside the application and leaves it its delegate. Under "status" is the new one, a number of `VXIMClientStatus`.
/// Observers run on the main queue, behind the step that changed it: `status()` may have gone on meanwhile.
inline constexpr const char* VXIMClientDidChangeStatusNotification = "VXIMClientDidChangeStatusNotification";
