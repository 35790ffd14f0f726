#pragma once

#include <array>
#include <string_view>

/// The names of all events in a diagnosis, with their details. They appear in reports, so they
/// never change.
namespace vexim::events {

/// The client's status changed: "from", "to".
inline constexpr std::string_view kStatus = "status";
/// The service answered a login: "accepted", and "code" when it refused.
inline constexpr std::string_view kLoginAnswered = "login answered";
/// An attempt at a connection began: "to", "tls", "proxy", "attempt".
inline constexpr std::string_view kConnecting = "connecting";
/// A WebSocket could not be opened, or broke: "stage", "reason", perhaps "status".
inline constexpr std::string_view kWebSocketFailed = "websocket failed";
/// The peer closed the WebSocket: "reason".
inline constexpr std::string_view kWebSocketClosed = "websocket closed";
/// A polling request failed: "reason".
inline constexpr std::string_view kPollingFailed = "polling failed";
/// The namespace was joined: "revision".
inline constexpr std::string_view kJoined = "joined";
/// A connection ended: "cause", "joined", perhaps "reason" and "status".
inline constexpr std::string_view kEnded = "ended";
/// The next attempt comes after a wait: "seconds".
inline constexpr std::string_view kWaiting = "waiting";
/// An event from the peer was dropped because its name is reserved: "name", "reason".
inline constexpr std::string_view kEventDropped = "event dropped";
/// A REST request failed: "method", "domain", "code", "host", "seconds", perhaps
/// "underlying" and "status"
inline constexpr std::string_view kRequestFailed = "request failed";

inline constexpr std::array kAll{kStatus,          kLoginAnswered, kConnecting,   kWebSocketFailed,
                                 kWebSocketClosed, kPollingFailed, kJoined,       kEnded,
                                 kWaiting,         kEventDropped,  kRequestFailed};

}  // namespace vexim::events
