// The core's part on the network thread: links, reconnecting, emptying the send queue, deadlines of
// acknowledgements.
#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/internal/Platform/Threads/HostResolver.h"
#include "VexIMLib/internal/SocketIO/Client/SocketIOCore.h"
#include "VexIMLib/internal/SocketIO/Protocol/ConnectionError.h"

namespace vexim {
namespace {

// The limit for events that the main queue has not taken yet. Even while reading is paused some are
// read because of the heartbeat, so there must be a limit.
constexpr std::size_t kMaxUndeliveredBytes = std::size_t{64} << 20;

// Servers process events one loop turn after reading them, and drop those of a client that has
// disconnected by then. So wait this long between the last event and the disconnect.
constexpr std::chrono::milliseconds kBeforeGoodbye{50};

/// Events of the connection itself. "connect" and "disconnect" are also reserved by the protocol,
/// and are an error from a server.
bool isOwnEvent(std::string_view event) { return event == "error" || event == "reconnect"; }

AttemptKind attemptKind(bool isReconnecting) {
    return isReconnecting ? AttemptKind::Reconnect : AttemptKind::First;
}

/// Leave out the server's own words.
Dictionary describeEnd(const action::Ended& ended, bool wasJoined) {
    static_assert(static_cast<std::size_t>(EndCause::LimitPassed) + 1 ==
                  std::size(kConnectionEndCauses));
    Dictionary details{{"cause", kConnectionEndCauses[static_cast<std::size_t>(ended.cause)]},
                       {"joined", wasJoined}};
    if (ended.cause != EndCause::Refused) details.set("reason", ended.why);
    if (const Value status = ended.detail.get("status"); status.isNumber())
        details.set("status", status);
    return details;
}

}  // namespace

void SocketIOCore::note(std::string_view what, Dictionary details) const {
    if (options_.log)
        log(LogLevel::Debug,
            "socket.io: " + VXIMDiagnosisEvent{0, std::string(what), details}.description());
    if (record_) record_->add(what, std::move(details));
}

void SocketIOCore::linkDidTrip(const SessionEvent& what) {
    using Stage = event::WebSocketFailed::Stage;
    if (const auto* failed = std::get_if<event::WebSocketFailed>(&what)) {
        constexpr const char* kStages[] = {"resolve", "connect",   "tls",
                                           "proxy",   "handshake", "cut"};
        static_assert(static_cast<int>(Stage::Cut) == 5);
        Dictionary details{{"stage", kStages[static_cast<std::size_t>(failed->stage)]},
                           {"reason", failed->reason}};
        if (failed->httpStatus != 0) details.set("status", failed->httpStatus);
        note("websocket failed", std::move(details));
    } else if (const auto* closed = std::get_if<event::WebSocketClosed>(&what)) {
        note("websocket closed",
             {{"reason", closed->reason.empty() ? "the peer closed" : closed->reason}});
    } else if (const auto* request = std::get_if<event::RequestFailed>(&what)) {
        note("polling failed", {{"reason", request->reason}});
    }
}

void SocketIOCore::startLink(Epoch epoch) {
    SessionConfig session = options_.session;
    TransportOptions transport = options_.transport;
    ErrorPtr hindrance;
    if (endpoint_) {
        const std::string distrust = transport.trust.hindrance(endpoint_->isSecure);
        if (!distrust.empty())
            hindrance = makeConnectionError(VXIMConnectionErrorNotSecure, distrust);
        transport.endpoint = *endpoint_;
        transport.proxy = proxyFor(endpoint_->isSecure, endpoint_->host, endpoint_->port);
        if (transport.proxy && transport.proxy->host.empty())
            hindrance = makeConnectionError(VXIMConnectionErrorProxy,
                                            "This kind of proxy is not supported.");
    } else {
        hindrance = makeConnectionError(VXIMConnectionErrorBadAddress,
                                        "it must name a host and begin with https:// or http://");
    }
    {
        const Section section(*this);
        if (epoch != epoch_) return;
        if (meter_) meter_->add(Metric::ConnectionAttempts, attemptKind(reconnecting_));
        session.nsp = nsp_;
        session.nspQuery = nspQuery_;
        if (hindrance) {
            ++epoch_;
            status_ = SocketIOStatusDisconnected;
            pushEvent("error", errorArguments(hindrance));
            didGiveUp();
        }
    }
    if (hindrance && meter_) meter_->add(Metric::ConnectionsEnded, EndCause::ConnectFailed);
    if (hindrance)
        return note("ended", {{"cause", "connect failed"},
                              {"joined", false},
                              {"reason", hindrance->localizedDescription()}});
    if (preferWebSocket_ && session.transports == TransportChoice::PollingThenWebSocket) {
        session.transports = TransportChoice::WebSocketThenPolling;
    }
    if (std::exchange(goodbyeTimer_, nullptr) && link_) link_->close();
    retireLink();
    waitingFor_.reset();
    emittedAt_.reset();
    linkEpoch_ = epoch;
    if (meter_) attemptedAt_ = Clock::shared()->now();
    joined_ = false;
    notedImpostor_ = false;
    note("connecting", {{"to", endpoint_->authorityWithPort()},
                        {"tls", endpoint_->isSecure},
                        {"proxy", transport.proxy.has_value()},
                        {"attempt", std::int64_t{attempt_}}});
    link_ = std::make_shared<SocketIOLink>(
        std::move(session), std::move(transport), static_cast<SocketIOLink::Owner&>(*this),
        SocketIOLink::Environment{Clock::shared(), &HostResolver::system()});
    link_->start();
}

void SocketIOCore::stopLink(Outbox leftover) {
    if (reconnectTimer_) reconnectTimer_->cancel();
    waitingFor_.reset();
    if (!link_) return;
    const auto now = Clock::shared()->now();
    if (!sending_.empty() || !leftover.empty()) emittedAt_ = now;
    Sent sent;
    while (!sending_.empty() && link_->canEmit()) emitNext(sending_, sent);
    while (sending_.empty() && !leftover.empty() && link_->canEmit()) emitNext(leftover, sent);
    count(sent);
    sending_.clear();
    const auto quiet =
        emittedAt_ ? *emittedAt_ + kBeforeGoodbye - now : Clock::TimePoint::duration::zero();
    if (quiet <= Clock::TimePoint::duration::zero()) return link_->close();
    link_->flush();
    goodbyeTimer_ = std::make_unique<NetworkTimer>();
    goodbyeTimer_->start(quiet, [self = shared_from_this()] {
        if (self->link_) self->link_->close();
        // here, because it belongs to this thread and the core may be destroyed on another
        self->goodbyeTimer_.reset();
    });
}

/// A link cannot be destroyed inside its own calls.
void SocketIOCore::retireLink() {
    if (link_)
        NetworkThread::shared().post(
            [self = shared_from_this(), link = std::exchange(link_, nullptr)] {});
}

void SocketIOCore::scheduleReconnect(Epoch epoch) {
    const auto wait = reconnectDelay(options_.reconnect, attempt_, Random::shared()->next32());
    if (!wait) return;
    waitingFor_ = epoch;
    note("waiting",
         {{"seconds", std::round(std::chrono::duration<double>(*wait).count() * 10) / 10}});
    if (!reconnectTimer_) reconnectTimer_ = std::make_unique<NetworkTimer>();
    reconnectTimer_->startAt(Clock::shared()->now() + *wait, [weak = weak_from_this(), epoch] {
        if (const auto self = weak.lock()) self->attemptReconnect(epoch);
    });
}

void SocketIOCore::attemptReconnect(Epoch epoch) {
    if (waitingFor_ != epoch) return;
    waitingFor_.reset();
    reconnectTimer_->cancel();
    {
        const Section section(*this);
        if (epoch != epoch_) return;
        pushEvent("reconnect", {std::int64_t{attempt_} + 1});
    }
    ++attempt_;
    startLink(epoch);
}

/// After "reconnect" the application expects another event.
void SocketIOCore::didGiveUp() {
    if (std::exchange(reconnecting_, false)) pushEvent("disconnect", {"reconnect failed"});
}

std::size_t SocketIOCore::emitNext(Outbox& outbox, Sent& sent) {
    const std::size_t overhead = meter_ ? Outbox::overhead(outbox.front()) : 0;
    const std::size_t cost = link_->emitFrom(outbox);
    ++sent.events;
    sent.bytes += cost - overhead;
    return cost;
}

void SocketIOCore::count(const Sent& sent) {
    if (!meter_ || sent.events == 0) return;
    meter_->add(Metric::EventsSent, 0, sent.events);
    meter_->add(Metric::EventsSentBytes, 0, sent.bytes);
}

void SocketIOCore::pump() {
    std::size_t bytes = 0;
    std::size_t messages = 0;
    Sent sent;
    for (;;) {
        {
            const MutexLock lock(mutex_);
            if (linkEpoch_ == epoch_) {
                queuedBytes_ -= std::exchange(bytes, 0);
                queuedMessages_ -= std::exchange(messages, 0);
                if (sending_.empty()) std::swap(sending_, outbox_);
            }
            // If there is no room, this continues at the link's next end of turn.
            if (sending_.empty() || !link_ || !link_->canEmit()) {
                pumpScheduled_ = false;
                break;
            }
        }
        while (link_ && link_->canEmit() && !sending_.empty()) {
            bytes += emitNext(sending_, sent);
            ++messages;
        }
        if (link_) link_->flush();
        emittedAt_ = Clock::shared()->now();
    }
    count(sent);
    // Check last: events queued while this ran have not started another run.
    armAckTimer();
}

void SocketIOCore::linkDidJoin(const action::Joined& joined) {
    note("joined", {{"revision", joined.revision == EngineRevision::V3 ? 3 : 4}});
    joined_ = true;
    joinedAt_ = Clock::shared()->now();
    if (meter_) {
        meter_->add(Metric::ConnectionsJoined, attemptKind(reconnecting_));
        meter_->observe(Metric::ConnectDuration, 0, *joinedAt_ - attemptedAt_);
    }
    reconnecting_ = false;
    preferWebSocket_ = false;
    flushTurn();
    const Section section(*this);
    if (linkEpoch_ != epoch_) return;
    joinedNsp_ = nsp_;
    maxPayload_ = joined.maxPayload.value_or(0);
    status_ = SocketIOStatusConnected;
    pushEvent("connect", {nsp_});
}

void SocketIOCore::linkDidReceive(Packet packet, std::size_t bytes) {
    Delivery delivery;
    delivery.bytes = bytes;
    if (packet.type == PacketType::Ack) {
        {
            const MutexLock lock(mutex_);
            const auto found = linkEpoch_ == epoch_ ? acks_.find(*packet.id) : acks_.end();
            if (found == acks_.end()) return;  // answered before, timed out, or never requested
            delivery.callback = std::move(found->second.callback);
            if (found->second.deadline) ackDeadlines_.erase({*found->second.deadline, *packet.id});
            acks_.erase(found);
        }
        delivery.arguments = std::move(packet.payload.mutableArray());
    } else {
        Array& payload = packet.payload.mutableArray();
        delivery.event = payload.get(0);
        const std::string_view name = delivery.event.asStringView().value_or("");
        if (isOwnEvent(name)) return noteImpostor(name);
        payload.remove(0);
        delivery.arguments = std::move(payload);
        if (packet.id) {
            delivery.ack = AckEmitter(
                [weak = weak_from_this(), epoch = linkEpoch_, id = *packet.id](const Array& items) {
                    if (const auto self = weak.lock()) self->sendAck(epoch, id, items);
                });
        }
    }
    turn_.push_back(std::move(delivery));
}

/// Only once for each connection; otherwise a server could push everything else out of the record.
void SocketIOCore::noteImpostor(std::string_view event) {
    if (!std::exchange(notedImpostor_, true))
        note("event dropped",
             {{"name", event}, {"reason", "the name is reserved for the connection"}});
}

void SocketIOCore::flushTurn() {
    if (turn_.empty()) return;
    if (meter_) {
        std::size_t bytes = 0;
        for (const auto& delivery : turn_) bytes += delivery.bytes;
        meter_->add(Metric::EventsReceived, 0, turn_.size());
        meter_->add(Metric::EventsReceivedBytes, 0, bytes);
    }
    const Section section(*this);
    if (linkEpoch_ != epoch_)
        std::erase_if(turn_, [](const Delivery& delivery) { return !delivery.callback; });
    for (auto& delivery : turn_) countUndelivered(delivery);
    if (inbox_.empty()) {
        inbox_.swap(turn_);
    } else {
        std::ranges::move(turn_, std::back_inserter(inbox_));
        turn_.clear();
    }
}

void SocketIOCore::linkDidReport(const action::Report& report) {
    flushTurn();
    const Section section(*this);
    if (linkEpoch_ == epoch_)
        pushEvent("error", errorArguments(makeConnectionError(report.kind, report.description,
                                                              report.detail)));
}

void SocketIOCore::linkDidEndTurn() {
    flushTurn();
    bool overflows = false;
    bool isFull = false;
    bool hasToSend = false;
    {
        const MutexLock lock(mutex_);
        const bool isCurrent = linkEpoch_ == epoch_;
        overflows = isCurrent && undeliveredBytes_ > kMaxUndeliveredBytes;
        // Only after the join: the messages that open a connection are short, and have a deadline.
        isFull = isCurrent && joined_ && undeliveredBytes_ >= options_.maxReadAhead;
        if (isFull && !pausedSince_) pausedSince_ = Clock::shared()->now();
        hasToSend = !outbox_.empty() || !sending_.empty();
    }
    if (!link_) return;
    if (overflows)
        return link_->abort(EndCause::LimitPassed,
                            "The application is too slow: too many undelivered events.");
    if (isFull) link_->pauseReading();
    if (hasToSend) pump();
}

void SocketIOCore::resumeReading() {
    {
        const MutexLock lock(mutex_);
        if (pausedSince_) return;  // full again; the next call continues
    }
    if (link_) link_->resumeReading();
    armAckTimer();
}

void SocketIOCore::linkDidEnd(const action::Ended& ended) {
    flushTurn();
    retireLink();
    sending_.clear();
    preferWebSocket_ = ended.preferWebSocket;
    const bool wasJoined = std::exchange(joined_, false);
    if (wasJoined && joinedAt_ &&
        Clock::shared()->now() - *joinedAt_ >= options_.reconnect.stableAfter)
        attempt_ = 0;
    note("ended", describeEnd(ended, wasJoined));
    if (meter_) meter_->add(Metric::ConnectionsEnded, ended.cause);

    const bool isFinal = ended.cause == EndCause::Asked ||
                         ended.cause == EndCause::ServerDisconnect ||
                         ended.cause == EndCause::Refused;
    const bool mayRetry = !isFinal && (wasJoined || reconnecting_);
    const bool isFault = !wasJoined || ended.cause == EndCause::ProtocolFault ||
                         ended.cause == EndCause::LimitPassed;
    Epoch next = 0;
    {
        const Section section(*this);
        if (linkEpoch_ != epoch_) return;  // disconnect() has reported everything
        beginEpoch(SocketIOStatusDisconnected);
        next = epoch_;
        if (isFault) {
            const auto kind = ended.kind.value_or(kindOf(ended.cause));
            pushEvent("error", errorArguments(makeConnectionError(kind, ended.why, ended.detail)));
        }
        if (wasJoined) pushEvent("disconnect", {ended.why});
        const auto& policy = options_.reconnect;
        if (!mayRetry || !policy.enabled || (policy.maxAttempts && attempt_ >= *policy.maxAttempts))
            return didGiveUp();
        status_ = SocketIOStatusConnecting;
    }
    reconnecting_ = true;
    scheduleReconnect(next);
}

// Missing answers

void SocketIOCore::armAckTimer() {
    std::optional<Clock::TimePoint> first;
    {
        const MutexLock lock(mutex_);
        if (!ackDeadlines_.empty() && !pausedSince_)
            first = ackDeadlines_.begin()->first + pausedBefore_;
    }
    if (!first || (ackArmedFor_ && *ackArmedFor_ <= *first)) return;
    ackArmedFor_ = first;
    if (!ackTimer_) ackTimer_ = std::make_unique<NetworkTimer>();
    ackTimer_->startAt(*first, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        self->ackArmedFor_.reset();
        self->expireAcks();
        self->armAckTimer();
    });
}

void SocketIOCore::expireAcks() {
    const auto now = Clock::shared()->now();
    const Section section(*this);
    while (!pausedSince_ && !ackDeadlines_.empty() &&
           ackDeadlines_.begin()->first + pausedBefore_ <= now) {
        const auto id = ackDeadlines_.begin()->second;
        ackDeadlines_.erase(ackDeadlines_.begin());
        const auto found = acks_.find(id);
        if (found == acks_.end()) continue;
        Delivery expired;
        expired.callback = std::move(found->second.callback);
        expired.error = makeError(SocketIOErrorAckTimedOut, "The answer did not come in time.");
        acks_.erase(found);
        push(std::move(expired));
    }
}

}  // namespace vexim
