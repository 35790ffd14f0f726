#include "VexIMLib/internal/SocketIO/Client/LinkNotes.h"

#include <iterator>
#include <utility>
#include <variant>

#include "VexIMLib/internal/Configuration/Meter.h"
#include "VexIMLib/internal/Platform/Facts/EventNames.h"

namespace vexim {

std::optional<LinkNote> noteOfTrip(const SessionEvent& what) {
    using Stage = event::WebSocketFailed::Stage;
    if (const auto* failed = std::get_if<event::WebSocketFailed>(&what)) {
        constexpr const char* kStages[] = {"resolve", "connect",   "tls",
                                           "proxy",   "handshake", "cut"};
        static_assert(static_cast<int>(Stage::Cut) == 5);
        Dictionary details{{"stage", kStages[static_cast<std::size_t>(failed->stage)]},
                           {"reason", failed->reason}};
        if (failed->httpStatus != 0) details.set("status", failed->httpStatus);
        return LinkNote{events::kWebSocketFailed, std::move(details)};
    }
    if (const auto* closed = std::get_if<event::WebSocketClosed>(&what)) {
        return LinkNote{events::kWebSocketClosed,
                        {{"reason", closed->reason.empty() ? "the peer closed" : closed->reason}}};
    }
    if (const auto* request = std::get_if<event::RequestFailed>(&what))
        return LinkNote{events::kPollingFailed, {{"reason", request->reason}}};
    return std::nullopt;
}

LinkNote noteOfEnd(const action::Ended& ended, bool wasJoined) {
    static_assert(static_cast<std::size_t>(EndCause::LimitPassed) + 1 ==
                  std::size(kConnectionEndCauses));
    Dictionary details{{"cause", kConnectionEndCauses[static_cast<std::size_t>(ended.cause)]},
                       {"joined", wasJoined}};
    if (ended.cause != EndCause::Refused) details.set("reason", ended.why);
    if (const Value status = ended.detail.get("status"); status.isNumber())
        details.set("status", status);
    return {events::kEnded, std::move(details)};
}

}  // namespace vexim
