#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vexim {

/// Why a server refused a request, as the body of its answer says: {"code": n, "message": …} or,
/// for a WebSocket request, only the message. Numbered as on the wire.
enum class EngineError : std::uint8_t {
    TransportUnknown = 0,  // switched off: try another one
    SessionUnknown = 1,    // expired, or another node answered
    BadHandshake = 2,
    BadRequest = 3,
    Forbidden = 4,
    UnsupportedRevision = 5,
};

/// nullopt if the body gives no reason.
std::optional<EngineError> parseEngineError(std::string_view body);

}  // namespace vexim
