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

/// What to call a connection's end that is no more than this.
VXIMConnectionErrorKind kindOf(EndCause cause) noexcept;
/// A WebSocket that did not open; `code` is what a Socket.IO server gave as its reason.
VXIMConnectionErrorKind kindOf(event::WebSocketFailed::Stage stage, int httpStatus,
                               std::optional<EngineError> code) noexcept;
/// What a polling request that got no answer is called.
struct TransferFault {
    VXIMConnectionErrorKind kind;
    std::string_view words;
};
/// By the transfer library's result (a CURLcode) and its `text`, which the words may be.
TransferFault faultOfTransfer(int result, std::string_view text) noexcept;

/// Of a peer that was reached and went away.
inline constexpr const char* kCutOff = "The server closed the connection before it answered.";

/// `reason` is a whole sentence, which then is the description, or a part of one or nothing: then
/// the kind begins the sentence. `detail` is what the server said, or nil.
ErrorPtr makeConnectionError(VXIMConnectionErrorKind kind, std::string_view reason,
                             const Value& detail = nullptr);

/// The "error" event's arguments: the description, the detail if there is one, the error.
Array errorArguments(const ErrorPtr& error);

}  // namespace vexim
