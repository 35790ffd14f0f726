#pragma once

#include <optional>
#include <string_view>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMErrors.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineError.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"

namespace vexim {

/// The kind for a connection that ended without any other reason.
VXIMConnectionErrorKind kindOf(EndCause cause) noexcept;
/// The kind for a WebSocket that did not open. `code` is the reason that a Socket.IO server gave.
VXIMConnectionErrorKind kindOf(event::WebSocketFailed::Stage stage, int httpStatus,
                               std::optional<EngineError> code) noexcept;
/// The kind and the words for a polling request that got no answer.
struct TransferFault {
    VXIMConnectionErrorKind kind;
    std::string_view words;
};
/// From libcurl's result (a CURLcode) and its `text`, which may become the description.
TransferFault faultOfTransfer(int result, std::string_view text) noexcept;

/// For a server that was reached and closed the connection.
inline constexpr const char* kCutOff = "The server closed the connection before it answered.";

/// If `reason` is a whole sentence, it is the description. If it is a part of one, or empty, the
/// text of the kind comes before it. `detail` is what the server said, or nil.
ErrorPtr makeConnectionError(VXIMConnectionErrorKind kind, std::string_view reason,
                             const Value& detail = nullptr);

/// The arguments of the "error" event: the description, the detail (if any), the error.
Array errorArguments(const ErrorPtr& error);

}  // namespace vexim
