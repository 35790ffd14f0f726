#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"

#include <utility>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/internal/SocketIO/Protocol/ConnectionError.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineError.h"
#include "VexIMLib/internal/SocketIO/Protocol/Payload.h"

namespace vexim {
namespace {

using namespace std::chrono_literals;

// Every server refuses this namespace, and the form of the refusal shows its revision. Joining "/"
// would run the connection handler of 2.x servers twice, and they drop a join with a payload.
constexpr std::string_view kProbeNamespace = "/~probe";
// Node refuses request headers above 16 KiB in all; cookies and other headers need a part of that.
constexpr std::size_t kMaxTargetBytes = 12 * 1024;

std::string refusal(const std::optional<std::string>& serversWords) {
    return "The server refused the connection" +
           (serversWords.value_or("").empty() ? "" : ": " + *serversWords) + ".";
}

}  // namespace

EngineSession::EngineSession(SessionConfig config)
    : config_(std::move(config)),
      decoder_(config_.maxMessageBytes) {}

void EngineSession::on(const SessionEvent& happened, TimePoint now, SessionActions& actions) {
    if (phase_ == Phase::Ended) return;
    actions_ = &actions;
    now_ = now;
    std::visit([this](const auto& what) { handle(what); }, happened);
    addFollowUps();
    actions_ = nullptr;
}

bool EngineSession::isConnecting() const noexcept {
    switch (phase_) {
        case Phase::OpeningWebSocket:
        case Phase::OpeningPolling:
        case Phase::Detecting:
        case Phase::Joining: return true;
        case Phase::Idle:
        case Phase::Joined:
        case Phase::Probing:
        case Phase::Draining:
        case Phase::Ended: return false;
    }
    return false;
}

bool EngineSession::isJoined() const noexcept {
    return phase_ == Phase::Joined || phase_ == Phase::Probing || phase_ == Phase::Draining;
}

bool EngineSession::emitsDirectly() const noexcept {
    return phase_ == Phase::Joined && carrier_ == Carrier::WebSocket;
}

bool EngineSession::canEmit() const noexcept {
    if (emitsDirectly()) return true;
    return isJoined() && !postInFlight_ && outgoingBytes_ < open_.bodyLimit();
}

std::optional<EngineSession::TimePoint> EngineSession::deadline() const {
    std::optional<TimePoint> first;
    const auto consider = [&first](const std::optional<TimePoint>& due) {
        if (due && (!first || *due < *first)) first = due;
    };
    if (phase_ == Phase::Ended || phase_ == Phase::Idle) return std::nullopt;
    if (isConnecting()) consider(connectDeadline_);
    if (phase_ == Phase::OpeningWebSocket) consider(webSocketDeadline_);
    if (phase_ == Phase::Probing || phase_ == Phase::Draining) consider(upgradeDeadline_);
    if (phase_ != Phase::Draining) consider(pingDue_);
    if (isPaused_) {
        consider(readOnDue_);
    } else {
        consider(heartbeatDeadline_);
        consider(livenessDeadline_);
        consider(getDue_);
    }
    return first;
}

// Opening

void EngineSession::handle(const event::Start&) {
    if (phase_ != Phase::Idle) return;
    connectDeadline_ = now_ + config_.connectTimeout;
    switch (config_.transports) {
        case TransportChoice::WebSocketThenPolling:
        case TransportChoice::WebSocketOnly: return openWebSocket();
        case TransportChoice::PollingOnly:
        case TransportChoice::PollingThenWebSocket: return openPolling();
    }
}

std::string EngineSession::target(std::string_view transport) {
    std::string text =
        config_.path + "?EIO=" + (requested_ == EngineRevision::V3 ? '3' : '4') + "&transport=";
    text += transport;
    if (!open_.sid.empty()) text += "&sid=" + percentEncode(open_.sid);
    if (transport == "polling") {
        // Without b64, revision 3 would send attachments in binary form. t keeps caches from
        // answering.
        text += "&b64=1&t=" + std::to_string(now_.time_since_epoch().count()) + "." +
                std::to_string(++requests_);
    }
    if (!config_.query.empty()) text += "&" + config_.query;
    return text;
}

/// Each transport begins with the configured revision, or with 4, which every server answers. If
/// the other transport fell back to revision 3, a proxy may have been the reason.
void EngineSession::begin(bool& tried) {
    if (!std::exchange(tried, true)) requested_ = config_.revision.value_or(EngineRevision::V4);
}

void EngineSession::openWebSocket() {
    phase_ = Phase::OpeningWebSocket;
    carrier_ = Carrier::WebSocket;
    begin(triedWebSocket_);
    // A proxy may silently drop the handshake. Then half of the time is left for polling.
    webSocketDeadline_.reset();
    if (config_.transports == TransportChoice::WebSocketThenPolling && !triedPolling_) {
        webSocketDeadline_ = now_ + config_.connectTimeout / 2;
    }
    std::string where = target("websocket");
    if (where.size() > kMaxTargetBytes)
        return failToConnect(VXIMConnectionErrorLimitPassed,
                             "The connect parameters are too long.");
    addAction(action::OpenWebSocket{std::move(where)});
}

void EngineSession::openPolling() {
    phase_ = Phase::OpeningPolling;
    carrier_ = Carrier::Polling;
    begin(triedPolling_);
    if (target("polling").size() > kMaxTargetBytes)
        return failToConnect(VXIMConnectionErrorLimitPassed,
                             "The connect parameters are too long.");
}

void EngineSession::handle(const event::WebSocketOpened&) {
    if (phase_ == Phase::Probing) addAction(action::SendText{"2probe"});
}

void EngineSession::handle(const event::WebSocketFailed& failure) {
    if (phase_ == Phase::Probing) return abandonUpgrade();
    if (phase_ != Phase::OpeningWebSocket) return;
    using Stage = event::WebSocketFailed::Stage;
    const bool worthPolling = failure.stage >= Stage::Proxy;
    if (!worthPolling) return failToConnect(kindOf(failure.stage, 0, std::nullopt), failure.reason);
    refused(failure.stage, failure.httpStatus, failure.body, failure.reason);
}

/// The handshake was refused. Try another revision or another transport.
void EngineSession::refused(event::WebSocketFailed::Stage stage, int status, std::string_view body,
                            std::string reason) {
    const auto code = parseEngineError(body);
    const bool overWebSocket = phase_ == Phase::OpeningWebSocket;
    const bool revisionRefused =
        code == EngineError::UnsupportedRevision ||
        (status == 400 && code != EngineError::TransportUnknown && code != EngineError::Forbidden);
    if (revisionRefused && !config_.revision && requested_ == EngineRevision::V4) {
        requested_ = EngineRevision::V3;
        return overWebSocket ? openWebSocket() : openPolling();
    }
    if (overWebSocket && config_.transports == TransportChoice::WebSocketThenPolling &&
        !triedPolling_)
        return openPolling();
    const bool otherWelcome =
        code == EngineError::TransportUnknown && config_.transports != TransportChoice::PollingOnly;
    if (!overWebSocket && otherWelcome && !triedWebSocket_) return openWebSocket();

    Dictionary detail;
    if (status != 0) {
        detail.set("status", status);
        // Any other body may be a page that quotes the request, with its credentials.
        if (code) detail.set("body", body.substr(0, 1024));
    }
    end(EndCause::ConnectFailed, std::move(reason), std::move(detail),
        code == EngineError::SessionUnknown, kindOf(stage, status, code));
}

void EngineSession::didReceiveOpen(std::string_view json) {
    auto open = parseOpenPacket(json);
    if (!open) return end(EndCause::ProtocolFault, "The server's open packet is invalid.");
    open_ = std::move(*open);
    if (carrier_ == Carrier::WebSocket) {
        if (config_.revision) {
            revision_ = config_.revision;
        } else if (requested_ == EngineRevision::V3) {
            revision_ = EngineRevision::V3;
        } else if (open_.maxPayload) {
            revision_ = EngineRevision::V4;  // older servers never send it
        }
    }
    if (revision_) return decide(*revision_);
    phase_ = Phase::Detecting;
    askedProbeNamespace_ =
        config_.nsp == "/" || !config_.nspQuery.empty() || !config_.joinPayload.isNil();
    send(encodeConnect(askedProbeNamespace_ ? kProbeNamespace : config_.nsp, nullptr).text);
}

// Detection and join

/// The revision is unknown only on a WebSocket. The table of answers is in docs/socketio.md.
std::optional<EngineRevision> EngineSession::revisionToldBy(const Packet& packet) const {
    if (packet.type == PacketType::Connect)
        return packet.payload.isDictionary() ? EngineRevision::V4 : EngineRevision::V3;
    // We did not ask for "/". Only revision 3 mentions it without being asked.
    if (packet.nsp == "/") return EngineRevision::V3;
    const bool isAnswer =
        packet.nsp == (askedProbeNamespace_ ? kProbeNamespace : std::string_view(config_.nsp));
    if (packet.type != PacketType::Error || !isAnswer) return std::nullopt;
    return packet.payload.isDictionary() ? EngineRevision::V4 : EngineRevision::V3;
}

void EngineSession::decide(EngineRevision revision) {
    const bool joinIsOut = phase_ == Phase::Detecting && !askedProbeNamespace_;
    const bool probeIsOut = phase_ == Phase::Detecting && askedProbeNamespace_;
    revision_ = revision;
    phase_ = Phase::Joining;
    if (revision == EngineRevision::V3) {
        pingDue_ = now_ + open_.pingInterval;
    } else {
        waitForNextPing();
    }
    if (joinIsOut) return;
    if (revision == EngineRevision::V4) {
        send(encodeConnect(config_.nsp, config_.joinPayload).text);
    } else if (config_.nsp != "/") {
        send(encodeConnect(nspWithQuery(), nullptr).text);
    } else if (!probeIsOut) {
        // "/" is joined automatically. 2.0.x servers with a middleware do not announce it; then the
        // answer to this shows that it is joined.
        askedProbeNamespace_ = true;
        send(encodeConnect(kProbeNamespace, nullptr).text);
    }
}

std::string EngineSession::nspWithQuery() const {
    if (config_.nspQuery.empty()) return config_.nsp;
    std::string text = config_.nsp + '?';
    // a comma would end the namespace
    for (const char c : config_.nspQuery) c == ',' ? text += "%2C" : text += c;
    return text;
}

void EngineSession::didReceiveWhileJoining(Packet packet) {
    if (packet.nsp == config_.nsp) {
        switch (packet.type) {
            case PacketType::Connect: return joined(&packet);
            case PacketType::Error: {
                const Value& told = packet.payload;
                const auto text =
                    told.isDictionary() ? told.get("message").asString() : told.asString();
                return end(EndCause::Refused, refusal(text), told);
            }
            case PacketType::Disconnect:
                return end(EndCause::ServerDisconnect, "io server disconnect");
            case PacketType::Event:
            case PacketType::Ack: return;
        }
    }
    if (revision_ != EngineRevision::V3) return;
    if (packet.nsp == kProbeNamespace && config_.nsp == "/") return joined(nullptr);
    if (packet.nsp == "/" && packet.type == PacketType::Error) {
        // After this, servers silently ignore every join.
        return end(EndCause::Refused, refusal(packet.payload.asString()), packet.payload);
    }
}

void EngineSession::joined(const Packet* reply) {
    phase_ = Phase::Joined;
    connectDeadline_.reset();
    std::string sid = reply ? reply->payload.get("sid").asString().value_or("") : "";
    addAction(
        action::Joined{sid.empty() ? open_.sid : std::move(sid), *revision_, open_.maxPayload});
}

// The end

void EngineSession::handle(const event::Close&) {
    const std::string leave = encodeDisconnect(config_.nsp).text;
    if (carrier_ == Carrier::WebSocket) {
        if (isJoined()) addAction(action::SendText{leave});
        addAction(action::CloseWebSocket{});
    } else if (!open_.sid.empty() && revision_) {
        PayloadWriter writer(*revision_);
        for (const auto& text : outgoing_) writer.add(text);
        if (isJoined()) writer.add(leave);
        writer.add("1");
        if (phase_ == Phase::Probing || phase_ == Phase::Draining)
            addAction(action::DropWebSocket{});
        addAction(action::ClosePolling{target("polling"), writer.take()});
    }
    end(EndCause::Asked, "io client disconnect");
}

void EngineSession::end(EndCause cause, std::string why, Value detail, bool preferWebSocket,
                        std::optional<VXIMConnectionErrorKind> kind) {
    const bool isOpening = phase_ == Phase::OpeningWebSocket || phase_ == Phase::OpeningPolling;
    if (isOpening && cause == EndCause::ProtocolFault) kind = VXIMConnectionErrorNotSocketIO;
    phase_ = Phase::Ended;
    addAction(action::Ended{cause, std::move(why), std::move(detail), preferWebSocket, kind});
}

void EngineSession::failToConnect(VXIMConnectionErrorKind kind, std::string why) {
    end(EndCause::ConnectFailed, std::move(why), nullptr, false, kind);
}

}  // namespace vexim
