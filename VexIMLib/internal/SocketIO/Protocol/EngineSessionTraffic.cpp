// The session's traffic: receiving, sending, the heartbeat, and the upgrade from polling to a
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

// A GET ends with the server's next ping at the latest. With this extra time, the session's own
// deadlines decide first.
constexpr std::chrono::milliseconds kGetSlack = 10s;
constexpr auto kNudgeTimeout = 10s;
constexpr const char* kPong = "3";
// A GET that the server held this long is normal long polling.
constexpr auto kHeldGet = 1s;
// The size of a portion of an answer. Each packet counts a quarter of a KiB more, which is about
// its cost.
constexpr std::size_t kPortionBytes = 256 * 1024;
constexpr std::size_t kPacketBytes = 256;
// An answer of at most this size is not divided.
constexpr std::size_t kShortAnswer = 16 * 1024;
// Before an unread ping there may be some MiB in the buffers of two systems. 64 KiB at a time, this
// often within the server's timeout, is enough.
constexpr int kPortionsInPatience = 4096;

/// How long to wait before the next GET after this many empty answers in a row that came at once.
/// Otherwise a server that never holds a GET would keep us asking. The first few do not wait,
/// because servers end a GET like this for an upgrade.
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
            return end(EndCause::ProtocolFault,
                       "The answer does not come from a Socket.IO server.");
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

/// Stops after a portion; the rest of the answer waits.
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
    if (phase_ != Phase::Ended && isMalformed)
        end(EndCause::ProtocolFault, "The server sent a malformed payload.");
}

void EngineSession::handle(const event::ReadOn&) {
    if (reader_) readPortion();
}

/// Deliver what came before a fault, then report the fault.
void EngineSession::readToTheEnd() {
    while (reader_) readPortion();
}

void EngineSession::handle(const event::PostAnswered& answer) {
    postInFlight_ = false;
    if (carrier_ != Carrier::Polling || answer.status == 200) return;
    if (answer.status == 413) {
        addAction(action::Report{"The server refused a message as too large.",
                                 Dictionary{{"status", answer.status}},
                                 VXIMConnectionErrorLimitPassed});
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

/// What any event may cause: the next polling requests, and the start and the end of an upgrade.
void EngineSession::addFollowUps() {
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
        addAction(action::Get{target("polling"), patience + kGetSlack});
    }
    if (phase_ == Phase::OpeningPolling) return;
    post();
    const bool wanted =
        config_.transports == TransportChoice::PollingThenWebSocket && open_.offersWebSocket;
    if (phase_ == Phase::Joined && wanted && !triedUpgrade_) {
        triedUpgrade_ = true;
        phase_ = Phase::Probing;
        upgradeDeadline_ = now_ + std::min(config_.upgradeTimeout, config_.connectTimeout);
        addAction(action::OpenWebSocket{target("websocket")});
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
    addAction(action::Post{target("polling"), writer.take()});
}

}  // namespace vexim
