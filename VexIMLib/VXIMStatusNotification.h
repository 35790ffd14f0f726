#pragma once

/// Posted to the default notification centre, with the client as the sender, whenever a client's status has changed: for what
/// stands beside the application and leaves it its delegate. Under "status" is the new one, a number of `VXIMClientStatus`.
/// Observers run inside the client's step, on the main queue: call the client from there by way of the queue only.
inline constexpr const char* VXIMClientDidChangeStatusNotification = "VXIMClientDidChangeStatusNotification";
