#pragma once

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"

namespace vexim::testing {

inline constexpr const char* kOpen =
    R"(0{"sid":"s1","upgrades":["websocket"],"pingInterval":25000,"pingTimeout":20000})";
inline constexpr const char* kOpenWithMaxPayload =
    R"(0{"sid":"s1","upgrades":[],"pingInterval":25000,"pingTimeout":20000,"maxPayload":1000})";

inline const char* nameOf(EndCause cause) {
    switch (cause) {
        case EndCause::Asked: return "asked";
        case EndCause::ServerDisconnect: return "server-disconnect";
        case EndCause::Refused: return "refused";
        case EndCause::ConnectFailed: return "connect-failed";
        case EndCause::LinkLost: return "link-lost";
        case EndCause::HeartbeatMissed: return "heartbeat-missed";
        case EndCause::ProtocolFault: return "protocol-fault";
        case EndCause::LimitPassed: return "limit-passed";
    }
    return "?";
}

/// An action as text.
struct Describe {
    /// Leaves out what differs from request to request.
    static std::string request(const std::string& target) {
        std::string shown = target.substr(target.find("EIO="));
        if (const auto t = shown.find("&b64=1&t="); t != shown.npos) shown.erase(t);
        return shown;
    }
    std::string operator()(const action::OpenWebSocket& a) const {
        return "ws(" + request(a.target) + ")";
    }
    std::string operator()(const action::SendText& a) const { return ">" + a.text; }
    std::string operator()(const action::SendBinary& a) const {
        return ">bytes:" + std::to_string(a.bytes.size());
    }
    std::string operator()(const action::PingWebSocket&) const { return "ping-ws"; }
    std::string operator()(const action::ReadOn&) const { return "read-on"; }
    std::string operator()(const action::CloseWebSocket&) const { return "close-ws"; }
    std::string operator()(const action::DropWebSocket&) const { return "drop-ws"; }
    std::string operator()(const action::Get& a) const { return "GET(" + request(a.target) + ")"; }
    std::string operator()(const action::Post& a) const { return "POST " + a.body; }
    std::string operator()(const action::ClosePolling& a) const { return "last-POST " + a.body; }
    std::string operator()(const action::Joined& a) const {
        return "joined-v" + std::to_string(static_cast<int>(a.revision));
    }
    std::string operator()(const action::Deliver& a) const {
        const bool isAck = a.packet.type == PacketType::Ack;
        return std::string(isAck ? "ack" : "event") +
               (a.packet.id ? std::to_string(*a.packet.id) : std::string()) +
               writeJSON(a.packet.payload).text;
    }
    std::string operator()(const action::Report& a) const {
        return "report(" + a.description + ")";
    }
    std::string operator()(const action::Ended& a) const {
        return std::string("END ") + nameOf(a.cause);
    }
};

inline SessionConfig chat(TransportChoice transports = TransportChoice::WebSocketOnly) {
    SessionConfig config;
    config.nsp = "/chat";
    config.transports = transports;
    return config;
}

/// A session whose clock stands still. Its actions are returned as text.
class Script {
public:
    explicit Script(SessionConfig config = chat()) : session(std::move(config)) {}

    std::string on(const SessionEvent& what) {
        SessionActions actions;
        session.on(what, now, actions);
        std::string shown;
        for (const auto& action : actions)
            shown += (shown.empty() ? "" : " ") + std::visit(Describe{}, action);
        return shown;
    }
    std::string text(std::string_view frame) { return on(event::WebSocketText{frame}); }
    std::string got(std::string_view body, int status = 200) {
        return on(event::GetAnswered{status, body});
    }
    std::string posted(int status = 200, std::string_view body = "ok") {
        return on(event::PostAnswered{status, body});
    }
    std::string emit(std::string text) {
        return on(event::Emit{{std::move(text), {}}}) + on(event::Flush{});
    }
    /// Advances the clock, with a Tick at each deadline on the way.
    std::string wait(std::chrono::milliseconds time) {
        const auto end = now + time;
        std::string shown;
        while (session.deadline() && *session.deadline() <= end) {
            now = std::max(now, *session.deadline());
            const std::string done = on(event::Tick{});
            if (!done.empty()) shown += (shown.empty() ? "" : " ") + done;
        }
        now = end;
        return shown;
    }

    /// Joined over a WebSocket.
    void join(EngineRevision revision) {
        on(event::Start{});
        on(event::WebSocketOpened{});
        text(kOpen);
        text(revision == EngineRevision::V3 ? "40/chat," : R"(40/chat,{"sid":"x"})");
    }
    /// Joined over polling, with a GET pending and no POST.
    void joinPolling(EngineRevision revision) {
        on(event::Start{});
        const bool isOld = revision == EngineRevision::V3;
        got(isOld ? std::to_string(std::string_view(kOpen).size()) + ":" + kOpen : kOpen);
        posted();
        got(isOld ? "8:40/chat," : R"(40/chat,{"sid":"x"})");
    }

    EngineSession session;
    Clock::TimePoint now{std::chrono::seconds(1000)};
};

}  // namespace vexim::testing
