// The session's traffic: receiving, sending, and the upgrade from polling to a WebSocket.
#include <algorithm>
#include <utility>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/internal/Foundation/Text/Base64.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"
#include "VexIMLib/internal/SocketIO/Protocol/Payload.h"

namespace vexim {

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
                livenessDeadline_.reset();
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
