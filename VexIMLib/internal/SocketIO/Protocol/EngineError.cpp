#include "VexIMLib/internal/SocketIO/Protocol/EngineError.h"

#include "VexIMLib/Foundation/JSON.h"

namespace vexim {

std::optional<EngineError> parseEngineError(std::string_view body) {
    const JSONResult parsed = parseJSON(body);
    const Value& code = parsed.value.get("code");
    if (code.kind() == Value::Kind::Integer && code.integer() >= 0 && code.integer() <= 5) {
        return static_cast<EngineError>(code.integer());
    }
    if (body == "Transport unknown") return EngineError::TransportUnknown;
    if (body == "Session ID unknown") return EngineError::SessionUnknown;
    if (body == "Unsupported protocol version") return EngineError::UnsupportedRevision;
    return std::nullopt;
}

}  // namespace vexim
