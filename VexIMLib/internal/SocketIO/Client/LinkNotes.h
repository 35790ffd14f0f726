#pragma once

#include <optional>
#include <string_view>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"

namespace vexim {

/// One line of a client's record.
struct LinkNote {
    std::string_view name;
    Dictionary details;
};

/// For a transport that failed or closed; nullopt for other events.
std::optional<LinkNote> noteOfLostTransport(const SessionEvent& what);
/// Leaves out the text of a refusal, which the server has written.
LinkNote noteOfEnd(const action::Ended& ended, bool wasJoined);

}  // namespace vexim
