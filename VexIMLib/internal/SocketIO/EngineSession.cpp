#include "VexIMLib/internal/SocketIO/EngineSession.h"

#include <algorithm>
#include <utility>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/internal/SocketIO/Base64.h"
#include "VexIMLib/internal/SocketIO/Payload.h"

namespace vexim {
namespace {

using namespace std::chrono_literals;

// Refused by every server, and in a form that tells its revision. Asking for "/" itself would run the connection handler of
// 2.x servers twice, and they drop a join that carries a payload.
constexpr std::string_view kProbeNamespace = "/~probe";
// Node refuses a request head above 16 KiB; cookies and headers need some of it.
constexpr std::size_t kMaxTargetBytes = 12 * 1024;
// What servers take in one body unless they say otherwise.
constexpr std::size_t kDefaultMaxPayload = 1'000'000;
// A GET ends at the latest with the server's next ping.
constexpr auto kGetSlack = 10s;
constexpr auto kNudgeTimeout = 10s;

/// The "code" of an Engine.IO error answer; nullopt when there is none.
std::optional<std::int64_t> errorCodeOf(std::string_view body) {
    const JSONResult parsed = parseJSON(body);
    const Value& code = parsed.value.get("code");
    if (code.kind() == Value::Kind::Integer) return code.integer();
    // On a WebSocket request the body is the bare message.
    if (body == "Transport unknown") return 0;
    if (body == "Session ID unknown") return 1;
    if (body == "Unsupported protocol version") return 5;
    return std::nullopt;
}

constexpr std::int64_t kTransportUnknown = 0;
constexpr std::int64_t kSessionUnknown = 1;
constexpr std::int64_t kUnsupportedRevision = 5;

}  // namespace

EngineSession::EngineSession(SessionConfig config)
    : config_(std::move(config)),
      requested_(config_.revision.value_or(EngineRevision::V4)),
      decoder_(config_.maxMessageBytes) {}

void EngineSession::on(const SessionEvent& happened, TimePoint now, SessionActions& actions) {
    if (phase_ == Phase::Ended) return;
    actions_ = &actions;
    now_ = now;
    std::visit([this](const auto& what) { handle(what); }, happened);
    settle();
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

bool EngineSession::emitsDirectly() const noexcept { return phase_ == Phase::Joined && carrier_ == Carrier::WebSocket; }

bool EngineSession::canEmit() const noexcept {
    if (emitsDirectly()) return true;
    const bool collecting = phase_ == Phase::Joined || phase_ == Phase::Probing;
    return collecting && !postInFlight_ && outgoingBytes_ < open_.maxPayload.value_or(kDefaultMaxPayload);
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
    consider(heartbeatDeadline_);
    consider(nudgeDeadline_);
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
    std::string text = config_.path + "?EIO=" + (requested_ == EngineRevision::V3 ? '3' : '4') + "&transport=";
    text += transport;
    if (!open_.sid.empty()) text += "&sid=" + percentEncode(open_.sid);
    if (transport == "polling") {
        // Without b64 revision 3 would send attachments in the binary form; t keeps caches from answering.
        text += "&b64=1&t=" + std::to_string(now_.time_since_epoch().count()) + "." + std::to_string(++requests_);
    }
    if (!config_.query.empty()) text += "&" + config_.query;
    return text;
}

void EngineSession::openWebSocket() {
    phase_ = Phase::OpeningWebSocket;
    carrier_ = Carrier::WebSocket;
    triedWebSocket_ = true;
    // A proxy may swallow the handshake without a word; then half of the time is left for polling.
    webSocketDeadline_.reset();
    if (config_.transports == TransportChoice::WebSocketThenPolling && !triedPolling_) {
        webSocketDeadline_ = now_ + config_.connectTimeout / 2;
    }
    std::string where = target("websocket");
    if (where.size() > kMaxTargetBytes) return end(EndCause::ConnectFailed, "The connect parameters are too long.");
    act(action::OpenWebSocket{std::move(where)});
}

void EngineSession::openPolling() {
    phase_ = Phase::OpeningPolling;
    carrier_ = Carrier::Polling;
    triedPolling_ = true;
    if (target("polling").size() > kMaxTargetBytes) return end(EndCause::ConnectFailed, "The connect parameters are too long.");
}

void EngineSession::handle(const event::WebSocketOpened&) {
    if (phase_ == Phase::Probing) act(action::SendText{"2probe"});
}

void EngineSession::handle(const event::WebSocketFailed& failure) {
    if (phase_ == Phase::Probing) return abandonUpgrade();
    if (phase_ != Phase::OpeningWebSocket) return;
    using Stage = event::WebSocketFailed::Stage;
    const bool worthPolling = failure.stage == Stage::Handshake || failure.stage == Stage::Proxy;
    if (!worthPolling) return end(EndCause::ConnectFailed, failure.reason);
    refused(failure.httpStatus, failure.body, failure.reason);
}

/// The handshake was answered, but not as hoped: another revision or another transport may be welcome.
void EngineSession::refused(int status, std::string_view body, std::string reason) {
    const auto code = errorCodeOf(body);
    const bool overWebSocket = phase_ == Phase::OpeningWebSocket;
    const bool revisionRefused =
        code == kUnsupportedRevision || (status == 400 && code && *code != kTransportUnknown && *code != 4);
    if (revisionRefused && !config_.revision && requested_ == EngineRevision::V4) {
        requested_ = EngineRevision::V3;
        return overWebSocket ? openWebSocket() : openPolling();
    }
    if (overWebSocket && config_.transports == TransportChoice::WebSocketThenPolling && !triedPolling_) return openPolling();
    const bool otherWelcome = code == kTransportUnknown && config_.transports != TransportChoice::PollingOnly;
    if (!overWebSocket && otherWelcome && !triedWebSocket_) return openWebSocket();

    Dictionary detail;
    if (status != 0) {
        detail.set("status", status);
        detail.set("body", body.substr(0, 1024));
    }
    end(EndCause::ConnectFailed, std::move(reason), std::move(detail), code == kSessionUnknown);
}

void EngineSession::didReceiveOpen(std::string_view json) {
    auto open = parseOpenPacket(json);
    if (!open) return end(EndCause::ProtocolFault, "The server's open packet makes no sense.");
    open_ = std::move(*open);
    if (carrier_ == Carrier::WebSocket) {
        if (config_.revision) {
            revision_ = config_.revision;
        } else if (requested_ == EngineRevision::V3) {
            revision_ = EngineRevision::V3;
        } else if (open_.maxPayload) {
            revision_ = EngineRevision::V4;  // older servers never tell it
        }
    }
    if (revision_) return decide(*revision_);
    phase_ = Phase::Detecting;
    askedProbeNamespace_ = config_.nsp == "/" || !config_.nspQuery.empty() || !config_.joinPayload.isNil();
    send(encodeConnect(askedProbeNamespace_ ? kProbeNamespace : config_.nsp, nullptr).text);
}

// Detection and join

/// Only a WebSocket leaves the question open; see the table of answers in docs/socketio.md.
std::optional<EngineRevision> EngineSession::revisionToldBy(const Packet& packet) const {
    if (packet.type == PacketType::Connect) return packet.payload.isDictionary() ? EngineRevision::V4 : EngineRevision::V3;
    // "/" was not asked for: only revision 3 speaks of it unasked.
    if (packet.nsp == "/") return EngineRevision::V3;
    const bool isAnswer = packet.nsp == (askedProbeNamespace_ ? kProbeNamespace : std::string_view(config_.nsp));
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
        heartbeatDeadline_ = now_ + open_.pingInterval + open_.pingTimeout;
    }
    if (joinIsOut) return;
    if (revision == EngineRevision::V4) {
        send(encodeConnect(config_.nsp, config_.joinPayload).text);
    } else if (config_.nsp != "/") {
        send(encodeConnect(nspWithQuery(), nullptr).text);
    } else if (!probeIsOut) {
        // "/" joins itself. 2.0.x with a middleware does not announce it: then the answer to this tells that it is joined.
        askedProbeNamespace_ = true;
        send(encodeConnect(kProbeNamespace, nullptr).text);
    }
}

std::string EngineSession::nspWithQuery() const {
    return config_.nspQuery.empty() ? config_.nsp : config_.nsp + "?" + config_.nspQuery;
}

void EngineSession::didReceiveWhileJoining(Packet packet) {
    if (packet.nsp == config_.nsp) {
        switch (packet.type) {
            case PacketType::Connect: return joined(&packet);
            case PacketType::Error: {
                const Value& told = packet.payload;
                const auto text = told.isDictionary() ? told.get("message").asString() : told.asString();
                return end(EndCause::Refused, text.value_or("The server refused the namespace."), told);
            }
            case PacketType::Disconnect: return end(EndCause::ServerDisconnect, "io server disconnect");
            case PacketType::Event:
            case PacketType::Ack: return;
        }
    }
    if (revision_ != EngineRevision::V3) return;
    if (packet.nsp == kProbeNamespace && config_.nsp == "/") return joined(nullptr);
    if (packet.nsp == "/" && packet.type == PacketType::Error) {
        // Every later join is ignored without a word.
        return end(EndCause::Refused, packet.payload.asString().value_or("The server refused the connection."), packet.payload);
    }
}

void EngineSession::joined(const Packet* reply) {
    phase_ = Phase::Joined;
    connectDeadline_.reset();
    std::string sid = reply ? reply->payload.get("sid").asString().value_or("") : "";
    act(action::Joined{sid.empty() ? open_.sid : std::move(sid), *revision_, open_.maxPayload});
}

// Receiving

void EngineSession::handle(const event::WebSocketText& message) {
    if (phase_ == Phase::Probing) return didReceiveProbeAnswer(message.text);
    if (carrier_ != Carrier::WebSocket) return;
    const auto packet = decodeEngineText(revision_.value_or(EngineRevision::V4), message.text);
    if (!packet) return end(EndCause::ProtocolFault, "A packet of unknown type.");
    didReceiveEngine(*packet);
}

void EngineSession::handle(const event::WebSocketBinary& message) {
    if (phase_ == Phase::Probing) return abandonUpgrade();
    if (carrier_ != Carrier::WebSocket) return;
    const auto packet = decodeEngineBinary(revision_.value_or(EngineRevision::V4), message.bytes);
    if (!packet) return end(EndCause::ProtocolFault, "A binary packet of unknown type.");
    didReceiveEngine(*packet);
}

void EngineSession::handle(const event::WebSocketClosed& closed) {
    if (phase_ == Phase::Probing || phase_ == Phase::Draining) return abandonUpgrade();
    if (carrier_ != Carrier::WebSocket) return;
    using Cause = event::WebSocketClosed::Cause;
    if (phase_ == Phase::OpeningWebSocket) {
        // Accepted, then closed before a word was said: as good as refused.
        return refused(0, {}, closed.reason);
    }
    switch (closed.cause) {
        case Cause::Peer: return end(EndCause::LinkLost, "transport close");
        case Cause::Network: return end(EndCause::LinkLost, closed.reason.empty() ? "transport error" : closed.reason);
        case Cause::Malformed: return end(EndCause::ProtocolFault, closed.reason);
        case Cause::TooLarge: return end(EndCause::LimitPassed, closed.reason);
    }
}

void EngineSession::handle(const event::WebSocketPong&) { nudgeDeadline_.reset(); }

void EngineSession::handle(const event::GetAnswered& answer) {
    getInFlight_ = false;
    if (carrier_ != Carrier::Polling) return;
    if (phase_ == Phase::OpeningPolling) {
        if (answer.status != 200) {
            return refused(answer.status, answer.body, "The server answered " + std::to_string(answer.status) + ".");
        }
        revision_ = detectRevision(answer.body);
        if (!revision_) return end(EndCause::ProtocolFault, "The answer is none of a Socket.IO server.");
    } else if (answer.status != 200) {
        const bool unknown = errorCodeOf(answer.body) == kSessionUnknown;
        return end(isJoined() ? EndCause::LinkLost : EndCause::ConnectFailed,
                   unknown ? "The server does not know the session." : "The server answered " + std::to_string(answer.status) + ".",
                   nullptr, unknown);
    }
    PayloadReader reader(*revision_, answer.body);
    while (phase_ != Phase::Ended) {
        const auto packet = reader.next();
        if (!packet) break;
        didReceiveEngine(*packet);
    }
    if (phase_ != Phase::Ended && reader.failed()) end(EndCause::ProtocolFault, "A malformed payload.");
}

void EngineSession::handle(const event::PostAnswered& answer) {
    postInFlight_ = false;
    if (carrier_ != Carrier::Polling || answer.status == 200) return;
    if (answer.status == 413) {
        act(action::Report{"The server refused a message as too large.", Dictionary{{"status", answer.status}}});
        return;
    }
    const bool unknown = errorCodeOf(answer.body) == kSessionUnknown;
    end(isJoined() ? EndCause::LinkLost : EndCause::ConnectFailed, "The server answered " + std::to_string(answer.status) + ".",
        nullptr, unknown);
}

void EngineSession::handle(const event::RequestFailed& failure) {
    if (carrier_ != Carrier::Polling) return;
    if (failure.isTooLarge) return end(EndCause::LimitPassed, failure.reason);
    end(isJoined() ? EndCause::LinkLost : EndCause::ConnectFailed, failure.reason);
}

void EngineSession::didReceiveEngine(const EnginePacketView& packet) {
    const bool opening = phase_ == Phase::OpeningWebSocket || phase_ == Phase::OpeningPolling;
    if (opening != (packet.type == EnginePacketType::Open)) {
        return end(EndCause::ProtocolFault, opening ? "The server did not begin with an open packet." : "A second open packet.");
    }
    switch (packet.type) {
        case EnginePacketType::Open: return didReceiveOpen(packet.data);
        case EnginePacketType::Close: return end(isJoined() ? EndCause::LinkLost : EndCause::ConnectFailed, "transport close");
        case EnginePacketType::Ping: return didReceivePing();
        case EnginePacketType::Pong:
            if (revision_ == EngineRevision::V3) {
                heartbeatDeadline_.reset();
                nudgeDeadline_.reset();
            }
            return;
        case EnginePacketType::Upgrade:
        case EnginePacketType::Noop: return;
        case EnginePacketType::Message: break;
    }
    switch (packet.content) {
        case EnginePacketView::Content::Text: return didDecode(decoder_.text(packet.data));
        case EnginePacketView::Content::Binary: return didDecode(decoder_.attachment(Data(packet.data)));
        case EnginePacketView::Content::Base64: {
            auto bytes = decodeBase64(packet.data);
            if (!bytes) return end(EndCause::ProtocolFault, "An attachment that is no base64.");
            return didDecode(decoder_.attachment(Data::fromString(std::move(*bytes))));
        }
    }
}

void EngineSession::didDecode(PacketDecoder::Result result) {
    switch (result.status) {
        case PacketDecoder::Status::Partial: return;
        case PacketDecoder::Status::Malformed: return end(EndCause::ProtocolFault, result.why);
        case PacketDecoder::Status::Complete: break;
    }
    if (phase_ == Phase::Detecting) {
        const auto told = revisionToldBy(result.packet);
        if (!told) return;
        decide(*told);
    }
    if (phase_ == Phase::Joining) return didReceiveWhileJoining(std::move(result.packet));
    didReceiveWhileJoined(std::move(result.packet));
}

void EngineSession::didReceiveWhileJoined(Packet packet) {
    if (packet.nsp != config_.nsp) return;
    switch (packet.type) {
        case PacketType::Event:
        case PacketType::Ack: return act(action::Deliver{std::move(packet)});
        case PacketType::Disconnect: return end(EndCause::ServerDisconnect, "io server disconnect");
        case PacketType::Error:
            return act(action::Report{packet.payload.asString().value_or("The server reported an error."), packet.payload});
        case PacketType::Connect: return;
    }
}

// Heartbeat: revision 3 pings and expects a pong, revision 4 is pinged. Only what is received counts.

void EngineSession::didReceivePing() {
    if (phase_ == Phase::Detecting) decide(EngineRevision::V4);  // servers of revision 3 never ping
    if (revision_ != EngineRevision::V4) return;
    heartbeatDeadline_ = now_ + open_.pingInterval + open_.pingTimeout;
    nudgeDeadline_.reset();
    send("3");
}

void EngineSession::beat() {
    send("2");
    if (!heartbeatDeadline_) heartbeatDeadline_ = now_ + open_.pingTimeout;
    pingDue_ = now_ + open_.pingInterval;
}

void EngineSession::handle(const event::Nudge&) {
    if (!isJoined() || phase_ == Phase::Draining) return;
    if (carrier_ == Carrier::WebSocket) {
        if (!nudgeDeadline_) nudgeDeadline_ = now_ + std::min<std::chrono::milliseconds>(open_.pingTimeout, kNudgeTimeout);
        act(action::PingWebSocket{});
    } else if (revision_ == EngineRevision::V3) {
        beat();
    }
}

void EngineSession::handle(const event::Tick&) {
    const auto isDue = [this](const std::optional<TimePoint>& due) { return due && *due <= now_; };
    if (isConnecting() && isDue(connectDeadline_)) {
        const bool opening = phase_ == Phase::OpeningWebSocket || phase_ == Phase::OpeningPolling;
        return end(EndCause::ConnectFailed,
                   opening ? "The server did not answer in time." : "The namespace was not joined in time.");
    }
    if (phase_ == Phase::OpeningWebSocket && isDue(webSocketDeadline_)) {
        act(action::DropWebSocket{});
        return openPolling();
    }
    if (isDue(heartbeatDeadline_) || isDue(nudgeDeadline_)) return end(EndCause::HeartbeatMissed, "ping timeout");
    if ((phase_ == Phase::Probing || phase_ == Phase::Draining) && isDue(upgradeDeadline_)) return abandonUpgrade();
    if (phase_ != Phase::Draining && isDue(pingDue_)) beat();
}

// Upgrade: probe the WebSocket, let polling run dry, change over. Until then polling carries everything.

void EngineSession::didReceiveProbeAnswer(std::string_view text) {
    if (text != "3probe") return abandonUpgrade();
    phase_ = Phase::Draining;
}

void EngineSession::abandonUpgrade() {
    phase_ = Phase::Joined;
    upgradeDeadline_.reset();
    act(action::DropWebSocket{});
}

void EngineSession::finishUpgradeWhenDrained() {
    if (getInFlight_ || postInFlight_) return;
    phase_ = Phase::Joined;
    carrier_ = Carrier::WebSocket;
    upgradeDeadline_.reset();
    act(action::SendText{"5"});
    for (auto& text : outgoing_) act(action::SendText{std::move(text)});
    outgoing_.clear();
    outgoingBytes_ = 0;
}

// Sending

void EngineSession::send(std::string text) {
    if (carrier_ == Carrier::WebSocket) return act(action::SendText{std::move(text)});
    outgoingBytes_ += text.size();
    outgoing_.push_back(std::move(text));
}

void EngineSession::handle(const event::Emit& message) {
    if (!isJoined()) return;
    send(message.packet.text);
    for (const Data& attachment : message.packet.attachments) {
        if (carrier_ == Carrier::WebSocket) {
            act(action::SendBinary{std::string(binaryPrefix(*revision_)) += attachment.view()});
        } else {
            send(encodeAttachmentAsText(*revision_, attachment.view()));
        }
    }
}

/// What follows from any event: polling's next requests, the start and the end of an upgrade.
void EngineSession::settle() {
    if (phase_ == Phase::Draining) finishUpgradeWhenDrained();
    if (phase_ == Phase::Ended || phase_ == Phase::Idle || phase_ == Phase::Draining || carrier_ != Carrier::Polling) return;
    if (!getInFlight_) {
        getInFlight_ = true;
        const auto patience = phase_ == Phase::OpeningPolling
                                  ? config_.connectTimeout
                                  : open_.pingInterval + open_.pingTimeout + std::chrono::milliseconds(kGetSlack);
        act(action::Get{target("polling"), patience});
    }
    if (phase_ == Phase::OpeningPolling) return;
    post();
    const bool wanted = config_.transports == TransportChoice::PollingThenWebSocket && open_.offersWebSocket;
    if (phase_ == Phase::Joined && wanted && !triedUpgrade_) {
        triedUpgrade_ = true;
        phase_ = Phase::Probing;
        upgradeDeadline_ = now_ + config_.upgradeTimeout;
        act(action::OpenWebSocket{target("websocket")});
    }
}

void EngineSession::post() {
    if (postInFlight_ || outgoing_.empty()) return;
    PayloadWriter writer(*revision_);
    const std::size_t limit = open_.maxPayload.value_or(kDefaultMaxPayload);
    while (!outgoing_.empty() && (writer.empty() || writer.sizeWith(outgoing_.front()) <= limit)) {
        writer.add(outgoing_.front());
        outgoingBytes_ -= outgoing_.front().size();
        outgoing_.pop_front();
    }
    postInFlight_ = true;
    act(action::Post{target("polling"), writer.take()});
}

// The end

void EngineSession::handle(const event::Close&) {
    const std::string leave = encodeDisconnect(config_.nsp).text;
    if (carrier_ == Carrier::WebSocket) {
        if (isJoined()) act(action::SendText{leave});
        act(action::CloseWebSocket{});
    } else if (!open_.sid.empty() && revision_) {
        PayloadWriter writer(*revision_);
        for (const auto& text : outgoing_) writer.add(text);
        if (isJoined()) writer.add(leave);
        writer.add("1");
        if (phase_ == Phase::Probing || phase_ == Phase::Draining) act(action::DropWebSocket{});
        act(action::ClosePolling{target("polling"), writer.take()});
    }
    end(EndCause::Asked, "io client disconnect");
}

void EngineSession::end(EndCause cause, std::string why, Value detail, bool preferWebSocket) {
    phase_ = Phase::Ended;
    act(action::Ended{cause, std::move(why), std::move(detail), preferWebSocket});
}

}  // namespace vexim
