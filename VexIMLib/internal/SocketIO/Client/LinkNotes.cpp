#include "VexIMLib/internal/SocketIO/Client/LinkNotes.h"

#include <iterator>
#include <utility>
#include <variant>

#include "VexIMLib/internal/Configuration/Meter.h"
#include "VexIMLib/internal/Platform/Facts/EventNames.h"

namespace vexim {

namespace {

const char* nameOf(event::WebSocketFailed::Stage stage) {
    using Stage = event::WebSocketFailed::Stage;
    switch (stage) {
        case Stage::Resolve: return "resolve";
        case Stage::Connect: return "connect";
        case Stage::Tls: return "tls";
        case Stage::Proxy: return "proxy";
        case Stage::Handshake: return "handshake";
        case Stage::Cut: return "cut";
    }
    return "unknown";
}

}  // namespace

std::optional<LinkNote> noteOfLostTransport(const SessionEvent& what) {
    if (const auto* failed = std::get_if<event::WebSocketFailed>(&what)) {
        Dictionary details{{"stage", nameOf(failed->stage)}, {"reason", failed->reason}};
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
