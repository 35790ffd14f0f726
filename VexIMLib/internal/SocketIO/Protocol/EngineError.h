#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vexim {

/// Why a server refused a request, as it says in the answer's body: {"code": n, "message": …} or,
/// on a WebSocket request, the bare message. Numbered as on the wire.
enum class EngineError : std::uint8_t {
    TransportUnknown = 0,  // switched off: another may be welcome
    SessionUnknown = 1,    // expired, or another node answered
    BadHandshake = 2,
    BadRequest = 3,
    Forbidden = 4,
    UnsupportedRevision = 5,
};

/// nullopt when the body names none.
std::optional<EngineError> parseEngineError(std::string_view body);

}  // namespace vexim
