// The session's traffic: receiving, sending, the heartbeat, and the upgrade from polling to a
// WebSocket.
#include <algorithm>
#include <chrono>
#include <utility>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/internal/Foundation/Text/Base64.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"
#include "VexIMLib/internal/SocketIO/Protocol/Payload.h"

namespace vexim {
namespace {

using namespace std::chrono_literals;

constexpr auto kNudgeTimeout = 10s;
constexpr const char* kPong = "3";
// Before an unread ping there may be some MiB in the buffers of two systems. 64 KiB at a time, this
// often within the server's timeout, is enough.
constexpr int kPortionsInPatience = 4096;

}  // namespace

// Receiving

void EngineSession::handle(const event::WebSocketText& message) {
    if (phase_ == Phase::Probing) return didReceiveProbeAnswer(message.text);
    if (carrier_ != Carrier::WebSocket) return;
    const auto packet = decodeEngineText(revision_.value_or(EngineRevision::V4), message.text);
    if (!packet)
        return end(EndCause::ProtocolFault, "The server sent a packet of an unknown type.");
    didReceiveEngine(*packet);
}

void EngineSession::handle(const event::WebSocketBinary& message) {
    if (phase_ == Phase::Probing) return abandonUpgrade();
    if (carrier_ != Carrier::WebSocket) return;
    const auto packet = decodeEngineBinary(revision_.value_or(EngineRevision::V4), message.bytes);
    if (!packet)
        return end(EndCause::ProtocolFault, "The server sent a binary packet of an unknown type.");
    didReceiveEngine(*packet);
}

void EngineSession::handle(const event::WebSocketClosed& closed) {
    if (phase_ == Phase::Probing || phase_ == Phase::Draining) return abandonUpgrade();
    if (carrier_ != Carrier::WebSocket) return;
    using Cause = event::WebSocketClosed::Cause;
    if (phase_ == Phase::OpeningWebSocket) {
        // Accepted and then closed before any message: this counts as refused.
        using Stage = event::WebSocketFailed::Stage;
        const bool isCut = closed.cause == Cause::Peer || closed.cause == Cause::Network;
        return refused(isCut ? Stage::Cut : Stage::Handshake, 0, {}, closed.reason);
    }
    switch (closed.cause) {
        case Cause::Peer: return end(EndCause::LinkLost, "transport close");
        case Cause::Network:
            return end(EndCause::LinkLost,
                       closed.reason.empty() ? "transport error" : closed.reason);
        case Cause::Malformed: return end(EndCause::ProtocolFault, closed.reason);
        case Cause::TooLarge: return end(EndCause::LimitPassed, closed.reason);
    }
}

void EngineSession::handle(const event::WebSocketPong&) { nudgeDeadline_.reset(); }

void EngineSession::handle(const event::WebSocketPing&) {
    const auto since = webSocketPings_.last ? now_ - *webSocketPings_.last
                                            : std::chrono::nanoseconds(open_.pingInterval);
    webSocketPings_.heard(now_, std::max<std::chrono::nanoseconds>(since, 1s));
    if (isPaused_) expectPing();
}

void EngineSession::didReceiveEngine(const EnginePacketView& packet) {
    const bool opening = phase_ == Phase::OpeningWebSocket || phase_ == Phase::OpeningPolling;
    if (opening != (packet.type == EnginePacketType::Open)) {
        return end(EndCause::ProtocolFault, opening
                                                ? "The server did not begin with an open packet."
                                                : "The server sent a second open packet.");
    }
    switch (packet.type) {
        case EnginePacketType::Open: return didReceiveOpen(packet.data);
        case EnginePacketType::Close:
            return isJoined() ? end(EndCause::LinkLost, "transport close")
                              : failToConnect(VXIMConnectionErrorLost, "transport close");
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
    receivedBytes_ += packet.data.size();
    switch (packet.content) {
        case EnginePacketView::Content::Text: return didDecode(decoder_.text(packet.data));
        case EnginePacketView::Content::Binary:
            return didDecode(decoder_.attachment(Data(packet.data)));
        case EnginePacketView::Content::Base64: {
            auto bytes = decodeBase64(packet.data);
            if (!bytes) return end(EndCause::ProtocolFault, "An attachment is not base64.");
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
        case PacketType::Ack:
            return addAction(action::Deliver{std::move(packet), std::exchange(receivedBytes_, 0)});
        case PacketType::Disconnect: return end(EndCause::ServerDisconnect, "io server disconnect");
        case PacketType::Error: {
            const std::string told = packet.payload.asString().value_or("");
            return addAction(action::Report{
                "The server reports an error" + (told.empty() ? "" : ": " + told) + ".",
                packet.payload});
        }
        case PacketType::Connect: return;
    }
}

// Heartbeat: with revision 3 we send pings and expect pongs; with revision 4 the server sends
// pings. Only received data counts as a sign of life.

void EngineSession::didReceivePing() {
    if (phase_ == Phase::Detecting) decide(EngineRevision::V4);  // servers of revision 3 never ping
    if (revision_ != EngineRevision::V4) return;
    heartbeatDeadline_ = now_ + open_.pingInterval + open_.pingTimeout;
    nudgeDeadline_.reset();
    enginePings_.heard(now_, open_.pingInterval);
    if (isPaused_) expectPing();
    // One pong answers all pings received so far. This bounds the memory if a server keeps sending
    // pings and accepts no POST.
    if (carrier_ == Carrier::Polling && !outgoing_.empty() && outgoing_.back() == kPong) return;
    send(kPong);
}

void EngineSession::sendPing() {
    send("2");
    if (!heartbeatDeadline_) heartbeatDeadline_ = now_ + open_.pingTimeout;
    pingDue_ = now_ + open_.pingInterval;
}

void EngineSession::handle(const event::Nudge&) {
    if (!isJoined() || phase_ == Phase::Draining) return;
    if (carrier_ == Carrier::WebSocket) {
        if (!nudgeDeadline_)
            nudgeDeadline_ =
                now_ + std::min<std::chrono::milliseconds>(open_.pingTimeout, kNudgeTimeout);
        addAction(action::PingWebSocket{});
    } else if (revision_ == EngineRevision::V3) {
        sendPing();
    }
}

void EngineSession::handle(const event::Tick&) {
    const auto isDue = [this](const std::optional<TimePoint>& due) { return due && *due <= now_; };
    if (isConnecting() && isDue(connectDeadline_)) {
        const bool opening = phase_ == Phase::OpeningWebSocket || phase_ == Phase::OpeningPolling;
        return failToConnect(VXIMConnectionErrorTimedOut,
                             opening ? "The server did not answer in time."
                                     : "The namespace was not joined in time.");
    }
    if (phase_ == Phase::OpeningWebSocket && isDue(webSocketDeadline_)) {
        addAction(action::DropWebSocket{});
        return openPolling();
    }
    // Unread data says nothing about the server.
    if (!isPaused_ && (isDue(heartbeatDeadline_) || isDue(nudgeDeadline_)))
        return end(EndCause::HeartbeatMissed, "ping timeout");
    if ((phase_ == Phase::Probing || phase_ == Phase::Draining) && isDue(upgradeDeadline_))
        return abandonUpgrade();
    if (phase_ != Phase::Draining && isDue(pingDue_)) sendPing();
    if (isPaused_ && isDue(readOnDue_)) readOnForPing();
}

// Back-pressure: while the application is too slow, we read only up to the server's pings, so that
// we can answer them. Our own deadlines stand still.

/// Subtract half of a delay: some servers ping at fixed times, others a fixed time after our pong.
void EngineSession::Rhythm::heard(TimePoint now, std::chrono::nanoseconds interval) {
    const auto late =
        next && now > *next ? std::min<std::chrono::nanoseconds>(now - *next, interval) : 0ns;
    last = now;
    next = now + interval - late / 2;
}

void EngineSession::handle(const event::Pause&) {
    if (!isJoined() || std::exchange(isPaused_, true)) return;
    expectPing();
}

void EngineSession::handle(const event::Resume&) {
    if (!std::exchange(isPaused_, false)) return;
    readOnDue_.reset();
    wantsGet_ = false;
    if (heartbeatDeadline_)
        heartbeatDeadline_ = std::max(*heartbeatDeadline_, now_ + open_.pingTimeout);
    if (nudgeDeadline_)
        nudgeDeadline_ =
            now_ + std::min<std::chrono::milliseconds>(open_.pingTimeout, kNudgeTimeout);
}

void EngineSession::expectPing() {
    readOnDue_.reset();
    for (auto* rhythm : {&enginePings_, &webSocketPings_}) {
        // Stop looking for a missing ping once the server would have stopped waiting for the pong.
        if (rhythm->next && now_ > *rhythm->next + open_.pingTimeout) rhythm->next.reset();
        if (rhythm->next && (!readOnDue_ || *rhythm->next < *readOnDue_)) readOnDue_ = rhythm->next;
    }
}

void EngineSession::readOnForPing() {
    expectPing();
    if (!readOnDue_ || *readOnDue_ > now_) return;
    readOnDue_ =
        now_ + std::max<std::chrono::nanoseconds>(open_.pingTimeout / kPortionsInPatience, 1ms);
    if (carrier_ == Carrier::WebSocket) return addAction(action::ReadOn{});
    if (reader_) return readPortion();
    wantsGet_ = !getInFlight_;
}

// Upgrade: probe the WebSocket, let polling finish, switch. Until then everything uses polling. The
// server decides when the last GET returns, so POSTs continue until then: a server that keeps the
// GET delays nothing.

void EngineSession::didReceiveProbeAnswer(std::string_view text) {
    if (text != "3probe") return abandonUpgrade();
    phase_ = Phase::Draining;
    getDue_.reset();
}

void EngineSession::abandonUpgrade() {
    phase_ = Phase::Joined;
    upgradeDeadline_.reset();
    addAction(action::DropWebSocket{});
}

void EngineSession::finishUpgradeWhenDrained() {
    if (getInFlight_ || postInFlight_ || reader_) return;
    phase_ = Phase::Joined;
    carrier_ = Carrier::WebSocket;
    upgradeDeadline_.reset();
    addAction(action::SendText{"5"});
    for (auto& text : outgoing_) addAction(action::SendText{std::move(text)});
    outgoing_.clear();
    outgoingBytes_ = 0;
}

// Sending

void EngineSession::send(std::string text) {
    if (carrier_ == Carrier::WebSocket) return addAction(action::SendText{std::move(text)});
    outgoingBytes_ += text.size();
    outgoing_.push_back(std::move(text));
}

void EngineSession::handle(const event::Emit& message) {
    if (!isJoined()) return;
    const auto& [text, attachments] = message.packet;
    if (carrier_ == Carrier::WebSocket) {
        send(text);
        for (const Data& each : attachments)
            addAction(action::SendBinary{std::string(binaryPrefix(*revision_)) += each.view()});
        return;
    }
    std::vector<std::string> packets{text};
    for (const Data& each : attachments)
        packets.push_back(encodeAttachmentAsText(*revision_, each.view()));
    // As text an attachment is a third longer. Never send only a part of a message: the server
    // would wait for the rest.
    const PayloadWriter body(*revision_);
    const auto isTooLong = [&](const std::string& packet) {
        return open_.maxPayload && body.sizeWith(packet) > *open_.maxPayload;
    };
    if (std::ranges::any_of(packets, isTooLong))
        return addAction(action::Report{"A message is longer than the server accepts.", nullptr});
    for (auto& packet : packets) send(std::move(packet));
}

}  // namespace vexim
