// The session's traffic: what is received and sent, the heartbeat, and the change from polling to a
// WebSocket.
#include <algorithm>
#include <chrono>
#include <utility>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/internal/Foundation/Text/Base64.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineError.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"
#include "VexIMLib/internal/SocketIO/Protocol/Payload.h"

namespace vexim {
namespace {

using namespace std::chrono_literals;

// A GET ends at the latest with the server's next ping. The slack leaves it to the session's own
// deadlines to say what is late.
constexpr std::chrono::milliseconds kGetSlack = 10s;
constexpr auto kNudgeTimeout = 10s;
constexpr const char* kPong = "3";
// A GET that was held for so long was no empty promise.
constexpr auto kHeldGet = 1s;
// Of an answer that is gone through in one go, for which each packet counts a quarter of a KiB
// more: it takes about that.
constexpr std::size_t kPortionBytes = 256 * 1024;
constexpr std::size_t kPacketBytes = 256;
// An answer that is no longer than this is not worth parting.
constexpr std::size_t kShortAnswer = 16 * 1024;
// What lies before a ping that waits unread are the buffers of two systems, some MiB: 64 KiB each
// time, so often within the server's patience, are enough.
constexpr int kPortionsInPatience = 4096;

/// How long the next GET waits after so many in a row that were answered at once with nothing: a
/// server that holds none would have us ask without end. The first few cost nothing; servers end a
/// GET so when they are asked to upgrade.
std::chrono::milliseconds brakeAfter(unsigned hastyAnswers) {
    constexpr unsigned kFree = 3;
    constexpr unsigned kDoublings = 6;  // 16 ms to about a second
    if (hastyAnswers < kFree) return 0ms;
    return 16ms * (1 << std::min(hastyAnswers - kFree, kDoublings));
}

}  // namespace

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

void EngineSession::handle(const event::GetAnswered& answer) {
    getInFlight_ = false;
    if (carrier_ != Carrier::Polling) return;
    if (phase_ == Phase::OpeningPolling) {
        if (answer.status != 200) {
            return refused(event::WebSocketFailed::Stage::Handshake, answer.status, answer.body,
                           "The server answered " + std::to_string(answer.status) + ".");
        }
        revision_ = detectRevision(answer.body);
        if (!revision_)
            return end(EndCause::ProtocolFault, "The answer is none of a Socket.IO server.");
    } else if (answer.status != 200) {
        const bool unknown = parseEngineError(answer.body) == EngineError::SessionUnknown;
        return end(isJoined() ? EndCause::LinkLost : EndCause::ConnectFailed,
                   unknown ? "The server does not know the session."
                           : "The server answered " + std::to_string(answer.status) + ".",
                   nullptr, unknown, VXIMConnectionErrorRefused);
    }
    isIdleAnswer_ = true;
    if (isPaused_ || (isJoined() && answer.body.size() > kShortAnswer)) {
        answer_ = answer.body;
        reader_.emplace(*revision_, answer_);
        if (!isPaused_) readPortion();
        return;
    }
    reader_.emplace(*revision_, answer.body);
    readToTheEnd();
}

/// Stops before a message's packets are too many to be delivered together; what is left of the
/// answer waits.
void EngineSession::readPortion() {
    for (std::size_t cost = 0; cost < kPortionBytes && phase_ != Phase::Ended;) {
        const auto packet = reader_->next();
        if (!packet) return didEndAnswer(reader_->failed());
        cost += packet->data.size() + kPacketBytes;
        isIdleAnswer_ = isIdleAnswer_ && packet->type != EnginePacketType::Open &&
                        packet->type != EnginePacketType::Message;
        didReceiveEngine(*packet);
    }
    if (phase_ == Phase::Ended) didEndAnswer(false);
}

void EngineSession::didEndAnswer(bool isMalformed) {
    reader_.reset();
    std::string().swap(answer_);
    hastyAnswers_ = isIdleAnswer_ && now_ - getSentAt_ < kHeldGet ? hastyAnswers_ + 1 : 0;
    if (const auto wait = brakeAfter(hastyAnswers_); wait > 0ms) getDue_ = now_ + wait;
    if (phase_ != Phase::Ended && isMalformed) end(EndCause::ProtocolFault, "A malformed payload.");
}

void EngineSession::handle(const event::ReadOn&) {
    if (reader_) readPortion();
}

/// What had come before a fault is delivered before it is told.
void EngineSession::readToTheEnd() {
    while (reader_) readPortion();
}

void EngineSession::handle(const event::PostAnswered& answer) {
    postInFlight_ = false;
    if (carrier_ != Carrier::Polling || answer.status == 200) return;
    if (answer.status == 413) {
        act(action::Report{"The server refused a message as too large.",
                           Dictionary{{"status", answer.status}}, VXIMConnectionErrorLimitPassed});
        return;
    }
    readToTheEnd();
    if (phase_ == Phase::Ended) return;
    const bool unknown = parseEngineError(answer.body) == EngineError::SessionUnknown;
    end(isJoined() ? EndCause::LinkLost : EndCause::ConnectFailed,
        "The server answered " + std::to_string(answer.status) + ".", nullptr, unknown,
        VXIMConnectionErrorRefused);
}

void EngineSession::handle(const event::RequestFailed& failure) {
    if (carrier_ != Carrier::Polling) return;
    readToTheEnd();
    if (phase_ == Phase::Ended) return;
    if (failure.isTooLarge) return end(EndCause::LimitPassed, failure.reason);
    end(isJoined() ? EndCause::LinkLost : EndCause::ConnectFailed, failure.reason, nullptr, false,
        failure.kind);
}

void EngineSession::didReceiveEngine(const EnginePacketView& packet) {
    const bool opening = phase_ == Phase::OpeningWebSocket || phase_ == Phase::OpeningPolling;
    if (opening != (packet.type == EnginePacketType::Open)) {
        return end(EndCause::ProtocolFault, opening
                                                ? "The server did not begin with an open packet."
                                                : "A second open packet.");
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
        case PacketType::Ack:
            return act(action::Deliver{std::move(packet), std::exchange(receivedBytes_, 0)});
        case PacketType::Disconnect: return end(EndCause::ServerDisconnect, "io server disconnect");
        case PacketType::Error: {
            const std::string told = packet.payload.asString().value_or("");
            return act(action::Report{
                "The server reports an error" + (told.empty() ? "" : ": " + told) + ".",
                packet.payload});
        }
        case PacketType::Connect: return;
    }
}

// Heartbeat: revision 3 pings and expects a pong, revision 4 is pinged. Only what is received
// counts.

void EngineSession::didReceivePing() {
    if (phase_ == Phase::Detecting) decide(EngineRevision::V4);  // servers of revision 3 never ping
    if (revision_ != EngineRevision::V4) return;
    heartbeatDeadline_ = now_ + open_.pingInterval + open_.pingTimeout;
    nudgeDeadline_.reset();
    enginePings_.heard(now_, open_.pingInterval);
    if (isPaused_) expectPing();
    // One pong answers every ping that has come. A peer that asks without end and takes no POST is
    // not to fill the memory.
    if (carrier_ == Carrier::Polling && !outgoing_.empty() && outgoing_.back() == kPong) return;
    send(kPong);
}

void EngineSession::beat() {
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
        act(action::PingWebSocket{});
    } else if (revision_ == EngineRevision::V3) {
        beat();
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
        act(action::DropWebSocket{});
        return openPolling();
    }
    // What we do not read says nothing about the peer.
    if (!isPaused_ && (isDue(heartbeatDeadline_) || isDue(nudgeDeadline_)))
        return end(EndCause::HeartbeatMissed, "ping timeout");
    if ((phase_ == Phase::Probing || phase_ == Phase::Draining) && isDue(upgradeDeadline_))
        return abandonUpgrade();
    if (phase_ != Phase::Draining && isDue(pingDue_)) beat();
    if (isPaused_ && isDue(readOnDue_)) readOnForPing();
}

// Back-pressure: while the application does not keep up, nothing is read but what lies before the
// peer's pings, so that it hears our pongs. Our own deadlines stand still.

/// Half of a delay is taken back: some servers ping at fixed times, others so long after our pong.
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
        // A ping that does not come is not looked for any longer than the server would wait for the
        // answer.
        if (rhythm->next && now_ > *rhythm->next + open_.pingTimeout) rhythm->next.reset();
        if (rhythm->next && (!readOnDue_ || *rhythm->next < *readOnDue_)) readOnDue_ = rhythm->next;
    }
}

void EngineSession::readOnForPing() {
    expectPing();
    if (!readOnDue_ || *readOnDue_ > now_) return;
    readOnDue_ =
        now_ + std::max<std::chrono::nanoseconds>(open_.pingTimeout / kPortionsInPatience, 1ms);
    if (carrier_ == Carrier::WebSocket) return act(action::ReadOn{});
    if (reader_) return readPortion();
    wantsGet_ = !getInFlight_;
}

// Upgrade: probe the WebSocket, let polling run dry, change over. Until then polling carries
// everything. The server decides when the last GET comes back, so POSTs go on until it has: a
// server that keeps it holds up nothing.

void EngineSession::didReceiveProbeAnswer(std::string_view text) {
    if (text != "3probe") return abandonUpgrade();
    phase_ = Phase::Draining;
    getDue_.reset();
}

void EngineSession::abandonUpgrade() {
    phase_ = Phase::Joined;
    upgradeDeadline_.reset();
    act(action::DropWebSocket{});
}

void EngineSession::finishUpgradeWhenDrained() {
    if (getInFlight_ || postInFlight_ || reader_) return;
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
    const auto& [text, attachments] = message.packet;
    if (carrier_ == Carrier::WebSocket) {
        send(text);
        for (const Data& each : attachments)
            act(action::SendBinary{std::string(binaryPrefix(*revision_)) += each.view()});
        return;
    }
    std::vector<std::string> packets{text};
    for (const Data& each : attachments)
        packets.push_back(encodeAttachmentAsText(*revision_, each.view()));
    // As text an attachment is a third longer. With the half of a message the server would wait for
    // the rest.
    const PayloadWriter body(*revision_);
    const auto isTooLong = [&](const std::string& packet) {
        return open_.maxPayload && body.sizeWith(packet) > *open_.maxPayload;
    };
    if (std::ranges::any_of(packets, isTooLong))
        return act(action::Report{"A message is longer than the server takes.", nullptr});
    for (auto& packet : packets) send(std::move(packet));
}

/// What follows from any event: polling's next requests, the start and the end of an upgrade.
void EngineSession::settle() {
    if (phase_ == Phase::Draining) finishUpgradeWhenDrained();
    if (phase_ == Phase::Ended || phase_ == Phase::Idle || carrier_ != Carrier::Polling) return;
    const bool mayGet = isPaused_ ? wantsGet_ : !getDue_ || *getDue_ <= now_;
    if (phase_ != Phase::Draining && !getInFlight_ && !reader_ && mayGet) {
        getInFlight_ = true;
        wantsGet_ = false;
        getSentAt_ = now_;
        getDue_.reset();
        const auto patience = phase_ == Phase::OpeningPolling
                                  ? config_.connectTimeout
                                  : open_.pingInterval + open_.pingTimeout;
        act(action::Get{target("polling"), patience + kGetSlack});
    }
    if (phase_ == Phase::OpeningPolling) return;
    post();
    const bool wanted =
        config_.transports == TransportChoice::PollingThenWebSocket && open_.offersWebSocket;
    if (phase_ == Phase::Joined && wanted && !triedUpgrade_) {
        triedUpgrade_ = true;
        phase_ = Phase::Probing;
        upgradeDeadline_ = now_ + std::min(config_.upgradeTimeout, config_.connectTimeout);
        act(action::OpenWebSocket{target("websocket")});
    }
}

void EngineSession::post() {
    if (postInFlight_ || outgoing_.empty()) return;
    PayloadWriter writer(*revision_);
    const std::size_t limit = open_.bodyLimit();
    while (!outgoing_.empty() && (writer.empty() || writer.sizeWith(outgoing_.front()) <= limit)) {
        writer.add(outgoing_.front());
        outgoingBytes_ -= outgoing_.front().size();
        outgoing_.pop_front();
    }
    postInFlight_ = true;
    act(action::Post{target("polling"), writer.take()});
}

}  // namespace vexim
