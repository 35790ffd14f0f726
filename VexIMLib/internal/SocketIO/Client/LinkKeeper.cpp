#include "VexIMLib/internal/SocketIO/Client/LinkKeeper.h"

#include <chrono>
#include <cmath>
#include <utility>

#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/internal/Platform/Facts/EventNames.h"
#include "VexIMLib/internal/SocketIO/Client/LinkNotes.h"
#include "VexIMLib/internal/SocketIO/Protocol/ConnectionError.h"
#include "VexIMLib/internal/SocketIO/Transports/Proxy.h"

namespace vexim {
namespace {

// Servers process events one loop turn after reading them, and drop those of a client that has
// disconnected by then. So wait this long between the last event and the disconnect.
constexpr std::chrono::milliseconds kBeforeGoodbye{50};

/// Events of the connection itself. "connect" and "disconnect" are also reserved by the protocol,
/// and are an error from a server.
bool isOwnEvent(std::string_view event) { return event == "error" || event == "reconnect"; }

AttemptKind attemptKind(const Reconnector& reconnector) {
    return reconnector.isReconnecting() ? AttemptKind::Reconnect : AttemptKind::First;
}

/// What was sent, for the meter.
struct Sent {
    std::size_t events = 0;
    std::size_t bytes = 0;
};
/// Sends the first packet of `queue`, and returns its cost.
std::size_t emitNext(SocketIOLink& link, PacketQueue& queue, Sent& sent) {
    const std::size_t overhead = PacketQueue::overhead(queue.front());
    const std::size_t cost = link.emitFrom(queue);
    ++sent.events;
    sent.bytes += cost - overhead;
    return cost;
}
void count(Meter* meter, const Sent& sent) {
    if (!meter || sent.events == 0) return;
    meter->add(Metric::EventsSent, 0, sent.events);
    meter->add(Metric::EventsSentBytes, 0, sent.bytes);
}

/// How to connect, or why that is not possible.
struct Route {
    TransportOptions transport;
    ErrorPtr error;
};
Route routeTo(const std::optional<Endpoint>& endpoint, TransportOptions transport) {
    if (!endpoint) {
        return {{},
                makeConnectionError(VXIMConnectionErrorBadAddress,
                                    "it must name a host and begin with https:// or http://")};
    }
    transport.endpoint = *endpoint;
    transport.proxy = proxyFor(endpoint->isSecure, endpoint->host, endpoint->port);
    if (transport.proxy && transport.proxy->host.empty()) {
        return {
            {},
            makeConnectionError(VXIMConnectionErrorProxy, "This kind of proxy is not supported.")};
    }
    if (const auto distrust = transport.trust.faultFor(endpoint->isSecure); !distrust.empty())
        return {{}, makeConnectionError(VXIMConnectionErrorNotSecure, distrust)};
    return {std::move(transport), nullptr};
}

}  // namespace

LinkKeeper::LinkKeeper(std::shared_ptr<SocketIOCore> core, std::optional<Endpoint> endpoint,
                       SocketIOOptions options, SocketIOEnvironment environment,
                       std::shared_ptr<EventRecord> record)
    : core_(std::move(core)),
      endpoint_(std::move(endpoint)),
      options_(std::move(options)),
      environment_(std::move(environment)),
      record_(std::move(record)),
      reconnector_(options_.reconnect) {}

// Any thread

void LinkKeeper::start(Epoch epoch) {
    NetworkThread::shared().post([self = shared_from_this(), epoch] {
        self->reconnector_.begin();
        self->openLink(epoch);
    });
}

void LinkKeeper::attemptNow() {
    NetworkThread::shared().post([self = shared_from_this()] { self->attempt(); });
}

void LinkKeeper::stop(PacketQueue leftover) {
    NetworkThread::shared().post(
        [self = shared_from_this(), leftover = std::move(leftover)]() mutable {
            self->closeLink(std::move(leftover));
        });
}

void LinkKeeper::send() {
    NetworkThread::shared().post([self = shared_from_this()] { self->sendWaiting(); });
}

void LinkKeeper::resumeReading() {
    NetworkThread::shared().post([self = shared_from_this()] {
        if (self->core_->isReadingPaused()) return;  // full again; the next call continues
        if (self->link_) self->link_->resumeReading();
        self->watchAcks();
    });
}

void LinkKeeper::networkDidChange() {
    NetworkThread::shared().post([self = shared_from_this()] {
        if (self->waitingFor_) {
            self->attempt();
        } else if (self->link_) {
            self->link_->networkDidChange();
        }
    });
}

// Links

void LinkKeeper::openLink(Epoch epoch) {
    const auto nsp = core_->namespaceFor(epoch);
    if (!nsp) return;
    if (meter_) meter_->add(Metric::ConnectionAttempts, attemptKind(reconnector_));
    Route route = routeTo(endpoint_, options_.transport);
    if (route.error) {
        const bool givesUp = reconnector_.didNotStart() == Reconnector::Verdict::GiveUp;
        if (!core_->didEnd(epoch, {.error = route.error, .loss = {}, .givesUp = givesUp})) return;
        if (meter_) meter_->add(Metric::ConnectionsEnded, EndCause::ConnectFailed);
        return note(events::kEnded, {{"cause", "connect failed"},
                                     {"joined", false},
                                     {"reason", route.error->localizedDescription()}});
    }
    if (std::exchange(goodbyeTimer_, nullptr) && link_) link_->close();
    retireLink();
    reconnector_.willOpen();
    waitingFor_.reset();
    emittedAt_.reset();
    epoch_ = epoch;
    if (meter_) attemptedAt_ = now();
    notedReservedName_ = false;
    if (isNoting())
        note(events::kConnecting, {{"to", endpoint_->authorityWithPort()},
                                   {"tls", endpoint_->isSecure},
                                   {"proxy", route.transport.proxy.has_value()},
                                   {"attempt", std::int64_t{reconnector_.attempt()}}});
    SessionConfig session = options_.session;
    session.nsp = nsp->name;
    session.nspQuery = nsp->query;
    if (preferWebSocket_ && session.transports == TransportChoice::PollingThenWebSocket)
        session.transports = TransportChoice::WebSocketThenPolling;
    link_ = std::make_shared<SocketIOLink>(std::move(session), std::move(route.transport),
                                           static_cast<SocketIOLink::Owner&>(*this), environment_);
    link_->start();
}

void LinkKeeper::closeLink(PacketQueue leftover) {
    reconnectTimer_.reset();
    ackTimer_.reset();
    ackArmedFor_.reset();
    waitingFor_.reset();
    if (!link_) return;
    if (!sending_.empty() || !leftover.empty()) emittedAt_ = now();
    Sent sent;
    while (!sending_.empty() && link_->canEmit()) emitNext(*link_, sending_, sent);
    while (sending_.empty() && !leftover.empty() && link_->canEmit())
        emitNext(*link_, leftover, sent);
    count(meter_, sent);
    sending_.clear();
    const auto quiet =
        emittedAt_ ? *emittedAt_ + kBeforeGoodbye - now() : Clock::TimePoint::duration::zero();
    if (quiet <= Clock::TimePoint::duration::zero()) return link_->close();
    link_->flush();
    goodbyeTimer_ = std::make_unique<NetworkTimer>();
    goodbyeTimer_->start(quiet, [self = shared_from_this()] {
        if (self->link_) self->link_->close();
        // here, because a timer must be destroyed on this thread, and this object may be destroyed
        // on another
        self->goodbyeTimer_.reset();
    });
}

/// A link cannot be destroyed inside its own calls.
void LinkKeeper::retireLink() {
    if (link_)
        NetworkThread::shared().post(
            [self = shared_from_this(), link = std::exchange(link_, nullptr)] {});
}

void LinkKeeper::waitForAttempt(Epoch epoch) {
    const auto wait = reconnector_.wait(environment_.random->next32());
    waitingFor_ = epoch;
    note(events::kWaiting,
         {{"seconds", std::round(std::chrono::duration<double>(wait).count() * 10) / 10}});
    if (!reconnectTimer_) reconnectTimer_ = std::make_unique<NetworkTimer>();
    reconnectTimer_->startAt(now() + wait, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->attempt();
    });
}

void LinkKeeper::attempt() {
    const auto epoch = std::exchange(waitingFor_, std::nullopt);
    if (!epoch) return;
    reconnectTimer_->cancel();
    if (!core_->queueEvent(*epoch, "reconnect", {std::int64_t{reconnector_.attempt()} + 1})) return;
    reconnector_.nextAttempt();
    openLink(*epoch);
}

// Sending

void LinkKeeper::sendWaiting() {
    SendQueue::Written written;
    Sent sent;
    // If there is no room, this continues at the link's next end of turn.
    while (core_->refill(epoch_, std::exchange(written, {}), link_ && link_->canEmit(), sending_)) {
        while (link_ && link_->canEmit() && !sending_.empty()) {
            written.bytes += emitNext(*link_, sending_, sent);
            ++written.messages;
        }
        if (link_) link_->flush();
        emittedAt_ = now();
    }
    count(meter_, sent);
    // Check last: events queued while this ran have not started another run.
    watchAcks();
}

void LinkKeeper::watchAcks() {
    const auto first = core_->expireAcks();
    if (!first || (ackArmedFor_ && *ackArmedFor_ <= *first)) return;
    ackArmedFor_ = first;
    if (!ackTimer_) ackTimer_ = std::make_unique<NetworkTimer>();
    ackTimer_->startAt(*first, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        self->ackArmedFor_.reset();
        self->watchAcks();
    });
}

// From the link

void LinkKeeper::linkDidJoin(const action::Joined& joined) {
    if (isNoting())
        note(events::kJoined, {{"revision", joined.revision == EngineRevision::V3 ? 3 : 4}});
    if (meter_) {
        meter_->add(Metric::ConnectionsJoined, attemptKind(reconnector_));
        meter_->observe(Metric::ConnectDuration, 0, now() - attemptedAt_);
    }
    reconnector_.didJoin(now());
    preferWebSocket_ = false;
    flushTurn();
    core_->didJoin(epoch_, joined.maxPayload.value_or(0));
}

void LinkKeeper::linkDidReceive(Packet packet, std::size_t bytes) {
    Delivery::Item item;
    item.bytes = bytes;
    Array& payload = packet.payload.mutableArray();
    if (packet.type == PacketType::Ack) {
        auto callback = core_->takeAck(epoch_, *packet.id);
        if (!callback || !*callback) return;
        item.callback = *std::move(callback);
    } else {
        item.event = payload.get(0);
        const std::string_view name = item.event.asStringView().value_or("");
        if (isOwnEvent(name)) return noteReservedName(name);
        payload.remove(0);
        if (packet.id) {
            item.ack = AckEmitter(
                [weak = std::weak_ptr(core_), epoch = epoch_, id = *packet.id](const Array& items) {
                    if (const auto core = weak.lock()) core->sendAck(epoch, id, items);
                });
        }
    }
    item.arguments = std::move(payload);
    turn_.push_back(std::move(item));
}

void LinkKeeper::flushTurn() {
    if (turn_.empty()) return;
    if (meter_) {
        std::size_t bytes = 0;
        for (const auto& item : turn_) bytes += item.bytes;
        meter_->add(Metric::EventsReceived, 0, turn_.size());
        meter_->add(Metric::EventsReceivedBytes, 0, bytes);
    }
    core_->deliver(epoch_, turn_);
}

void LinkKeeper::linkDidLoseTransport(const SessionEvent& what) {
    if (auto lost = noteOfLostTransport(what)) note(lost->name, std::move(lost->details));
}

void LinkKeeper::linkDidReport(const action::Report& report) {
    flushTurn();
    core_->queueEvent(
        epoch_, "error",
        errorArguments(makeConnectionError(report.kind, report.description, report.detail)));
}

void LinkKeeper::linkDidEndTurn() {
    flushTurn();
    const auto end = core_->endTurn(epoch_, reconnector_.isJoined());
    if (!link_) return;
    if (end.overflows)
        return link_->abort(EndCause::LimitPassed,
                            "The application is too slow: too many undelivered events.");
    if (end.pauses) link_->pauseReading();
    if (end.hasToSend || !sending_.empty()) sendWaiting();
}

void LinkKeeper::linkDidEnd(const action::Ended& ended) {
    flushTurn();
    retireLink();
    sending_.clear();
    preferWebSocket_ = ended.preferWebSocket;
    const bool wasJoined = reconnector_.isJoined();
    if (isNoting()) {
        LinkNote last = noteOfEnd(ended, wasJoined);
        note(last.name, std::move(last.details));
    }
    if (meter_) meter_->add(Metric::ConnectionsEnded, ended.cause);

    const auto verdict = reconnector_.didEnd(ended.cause, now());
    SocketIOCore::Ending ending;
    ending.givesUp = verdict == Reconnector::Verdict::GiveUp;
    ending.retries = verdict == Reconnector::Verdict::Retry;
    if (wasJoined) ending.loss = ended.why;
    if (!wasJoined || ended.cause == EndCause::ProtocolFault ||
        ended.cause == EndCause::LimitPassed) {
        ending.error =
            makeConnectionError(ended.kind.value_or(kindOf(ended.cause)), ended.why, ended.detail);
    }
    const auto next = core_->didEnd(epoch_, ending);
    if (next && ending.retries) waitForAttempt(*next);
}

// The record

void LinkKeeper::note(std::string_view what, Dictionary details) const {
    if (options_.log)
        log(LogLevel::Debug,
            "socket.io: " + VXIMDiagnosisEvent{0, std::string(what), details}.description());
    if (record_) record_->add(what, std::move(details));
}

/// Only once for each connection; otherwise a server could push everything else out of the record.
void LinkKeeper::noteReservedName(std::string_view event) {
    if (!std::exchange(notedReservedName_, true))
        note(events::kEventDropped,
             {{"name", event}, {"reason", "the name is reserved for the connection"}});
}

}  // namespace vexim
