#include "VexIMLib/internal/SocketIO/SocketIOCore.h"

#include <algorithm>
#include <iterator>

#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Platform/HostResolver.h"

namespace vexim {
namespace {

// Events that the main queue has not taken yet. Reading goes on for the heartbeat's sake, so there must be an end to it.
constexpr std::size_t kMaxUndeliveredBytes = std::size_t{64} << 20;

// Servers hand events over one loop turn after they were read, and forget those of a client that has said goodbye by then.
// So the goodbye keeps this distance from the last event.
constexpr std::chrono::milliseconds kBeforeGoodbye{50};

ErrorPtr makeError(SocketIOErrorCode code, std::string description) {
    return Error::withDescription(kSocketIOErrorDomain, code, std::move(description));
}

Array errorArguments(const std::string& description, const Value& detail) {
    Array arguments{description};
    if (!detail.isNilOrNull() && !(detail.isDictionary() && detail.asDictionary()->empty())) arguments.append(detail);
    return arguments;
}

}  // namespace

SocketIOCore::SocketIOCore(std::optional<Endpoint> endpoint, SocketIOOptions options)
    : endpoint_(std::move(endpoint)),
      options_(std::move(options)) {}

SocketIOCore::~SocketIOCore() = default;

void SocketIOCore::note(std::string_view line) const {
    if (options_.log) log(LogLevel::Debug, "socket.io: " + std::string(line));
}

// The application's side

void SocketIOCore::joinNamespace(std::string_view nsp) {
    const auto question = nsp.find('?');
    std::string name(nsp.substr(0, question));
    if (!name.starts_with('/')) name.insert(0, "/");
    // A comma would end the namespace on the wire.
    name.erase(std::remove(name.begin(), name.end(), ','), name.end());
    const MutexLock lock(mutex_);
    nsp_ = std::move(name);
    nspQuery_ = question == std::string_view::npos ? "" : std::string(nsp.substr(question + 1));
}

std::string SocketIOCore::nsp() const {
    const MutexLock lock(mutex_);
    return nsp_;
}

Outbox SocketIOCore::beginEpoch(SocketIOStatus status) {
    ++epoch_;
    status_ = status;
    queuedBytes_ = 0;
    queuedMessages_ = 0;
    failAcks(SocketIOErrorDisconnected);
    return std::exchange(outbox_, {});
}

void SocketIOCore::connect() {
    const MutexLock lock(mutex_);
    if (closed_ || status_ == SocketIOStatusConnected) return;
    if (status_ == SocketIOStatusConnecting) {
        NetworkThread::shared().post([self = shared_from_this()] {
            if (self->waitingFor_) self->attemptReconnect(*self->waitingFor_);
        });
        return;
    }
    beginEpoch(SocketIOStatusConnecting);
    NetworkThread::shared().post([self = shared_from_this(), epoch = epoch_] {
        self->attempt_ = 0;
        self->reconnecting_ = false;
        self->startLink(epoch);
    });
}

void SocketIOCore::disconnect() {
    const MutexLock lock(mutex_);
    if (closed_ || status_ == SocketIOStatusNotConnected) return;
    const Outbox leftover = beginEpoch(SocketIOStatusDisconnected);
    pushEvent("disconnect", {"io client disconnect"});
    NetworkThread::shared().post([self = shared_from_this(), leftover] { self->stopLink(leftover); });
}

void SocketIOCore::shutDown() {
    handlers_.removeAll();
    const MutexLock lock(mutex_);
    closed_ = true;
    const Outbox leftover = beginEpoch(SocketIOStatusDisconnected);
    NetworkThread::shared().post([self = shared_from_this(), leftover] {
        self->stopLink(leftover);
        // They belong to this thread; the core may be destroyed on another.
        self->reconnectTimer_.reset();
        self->ackTimer_.reset();
    });
}

void SocketIOCore::networkDidChange() {
    NetworkThread::shared().post([self = shared_from_this()] {
        if (self->waitingFor_) {
            self->attemptReconnect(*self->waitingFor_);
        } else if (self->link_) {
            self->link_->nudge();
        }
    });
}

bool SocketIOCore::emit(std::string_view event, const Array& items) {
    std::string nsp;
    Epoch epoch = 0;
    {
        const MutexLock lock(mutex_);
        nsp = joinedNsp_;
        epoch = epoch_;
    }
    // Without the lock: it is the long part, and several threads may emit.
    const EncodeResult encoded = encodeEvent(nsp, std::nullopt, event, items);
    EmitFault fault = EmitFault::NotEncodable;
    if (encoded.fault == EncodeFault::None) {
        const MutexLock lock(mutex_);
        fault = epoch == epoch_ ? enqueue(encoded.packet) : EmitFault::NotConnected;
    }
    if (fault == EmitFault::None) return true;
    reportEmitFault(encoded.fault, fault, event);
    return false;
}

void SocketIOCore::emitWithAck(std::string_view event, const Array& items, std::chrono::milliseconds timeout,
                               SocketIOClient::AckCallback callback) {
    const MutexLock lock(mutex_);
    // Encoded with the lock held: the id is part of the text, and ids go out in order.
    const std::uint64_t id = nextAckId_;
    const EncodeResult encoded = encodeEvent(joinedNsp_, id, event, items);
    ErrorPtr error;
    if (encoded.fault != EncodeFault::None) {
        error = makeError(SocketIOErrorNotEncodable, "The event cannot be sent.");
    } else {
        switch (enqueue(encoded.packet)) {
            case EmitFault::None: break;
            case EmitFault::NotConnected: error = makeError(SocketIOErrorNotConnected, "The socket is not connected."); break;
            case EmitFault::NotEncodable:
            case EmitFault::QueueFull:
            case EmitFault::TooLarge:
                error = makeError(SocketIOErrorTooLarge, "The message or the queue of messages is too long.");
                break;
        }
    }
    if (error) {
        Delivery refused;
        refused.callback = std::move(callback);
        refused.error = std::move(error);
        return push(std::move(refused));
    }
    ++nextAckId_;
    PendingAck pending{std::move(callback), std::nullopt};
    if (timeout.count() > 0) {
        pending.deadline = Clock::shared()->now() + timeout;
        ackDeadlines_.emplace(*pending.deadline, id);
    }
    acks_.emplace(id, std::move(pending));
}

SocketIOCore::EmitFault SocketIOCore::enqueue(const EncodedPacket& packet) {
    if (status_ != SocketIOStatusConnected) return EmitFault::NotConnected;
    const auto tooLarge = [limit = maxPayload_](std::size_t bytes) { return limit > 0 && bytes > limit; };
    if (tooLarge(packet.text.size())) return EmitFault::TooLarge;
    for (const Data& attachment : packet.attachments) {
        if (tooLarge(attachment.size())) return EmitFault::TooLarge;
    }
    const std::size_t cost = Outbox::cost(packet);
    const bool full = queuedBytes_ + cost > options_.maxQueuedBytes || queuedMessages_ >= options_.maxQueuedMessages;
    if (full) return EmitFault::QueueFull;
    queuedBytes_ += cost;
    ++queuedMessages_;
    outbox_.push(packet);
    schedulePump();
    return EmitFault::None;
}

void SocketIOCore::schedulePump() {
    if (std::exchange(pumpScheduled_, true)) return;
    NetworkThread::shared().post([self = shared_from_this()] { self->pump(); });
}

void SocketIOCore::sendAck(Epoch epoch, std::uint64_t id, const Array& items) {
    const MutexLock lock(mutex_);
    if (epoch != epoch_) return;
    const EncodeResult encoded = encodeAck(joinedNsp_, id, items);
    if (encoded.fault == EncodeFault::None && enqueue(encoded.packet) == EmitFault::None) return;
    pushEvent("error", {"An acknowledgement could not be sent."});
}

void SocketIOCore::reportEmitFault(EncodeFault encodeFault, EmitFault fault, std::string_view event) {
    std::string why;
    switch (encodeFault) {
        case EncodeFault::None:
            why = fault == EmitFault::NotConnected ? "the socket is not connected"
                  : fault == EmitFault::TooLarge   ? "it is longer than the server takes"
                                                   : "the queue is full";
            break;
        case EncodeFault::NotEncodable: why = "its items are not JSON"; break;
        case EncodeFault::ReservedName: why = "its name is reserved"; break;
        case EncodeFault::TooDeep: why = "its items are nested too deeply"; break;
        case EncodeFault::TooManyAttachments: why = "it has too many attachments"; break;
    }
    const MutexLock lock(mutex_);
    pushEvent("error", {"\"" + std::string(event) + "\" was not sent: " + why + "."});
}

// To the main queue

void SocketIOCore::pushEvent(std::string event, Array arguments) {
    if (closed_) return;
    Delivery delivery;
    delivery.event = std::move(event);
    delivery.arguments = std::move(arguments);
    push(std::move(delivery));
}

void SocketIOCore::push(Delivery delivery) {
    undeliveredBytes_ += delivery.bytes;
    inbox_.push_back(std::move(delivery));
    if (std::exchange(deliveryScheduled_, true)) return;
    MainQueue::shared().async([self = shared_from_this()] { self->deliverBatch(); });
}

void SocketIOCore::failAcks(SocketIOErrorCode code) {
    // By id, so that they fail in the order in which they were asked for.
    std::vector<std::uint64_t> ids;
    for (const auto& [id, pending] : acks_) ids.push_back(id);
    std::ranges::sort(ids);
    for (const auto id : ids) {
        Delivery failed;
        failed.callback = std::move(acks_[id].callback);
        failed.error = makeError(code, "The connection was lost before the answer came.");
        push(std::move(failed));
    }
    acks_.clear();
    ackDeadlines_.clear();
}

void SocketIOCore::deliverBatch() {
    std::vector<Delivery> batch;
    {
        const MutexLock lock(mutex_);
        batch.swap(inbox_);
        deliveryScheduled_ = false;
    }
    std::size_t done = 0;
    // An exception from a handler leaves the rest in line, before what has come meanwhile.
    struct PutBack {
        SocketIOCore& core;
        std::vector<Delivery>& batch;
        std::size_t& done;
        ~PutBack() {
            const MutexLock lock(core.mutex_);
            for (std::size_t i = 0; i < done; ++i) core.undeliveredBytes_ -= batch[i].bytes;
            if (done == batch.size()) return;
            batch.erase(batch.begin(), batch.begin() + static_cast<std::ptrdiff_t>(done));
            std::ranges::move(core.inbox_, std::back_inserter(batch));
            core.inbox_ = std::move(batch);
            if (std::exchange(core.deliveryScheduled_, true)) return;
            MainQueue::shared().async([self = core.shared_from_this()] { self->deliverBatch(); });
        }
    } putBack{*this, batch, done};
    while (done < batch.size()) deliver(batch[done++]);
}

void SocketIOCore::deliver(Delivery& delivery) {
    if (delivery.callback) {
        const auto callback = std::exchange(delivery.callback, nullptr);
        return callback(delivery.arguments, delivery.error);
    }
    handlers_.call(delivery.event, delivery.arguments, delivery.ack);
    delivery.arguments.clear();
}

// The network thread's side

void SocketIOCore::startLink(Epoch epoch) {
    SessionConfig session = options_.session;
    {
        const MutexLock lock(mutex_);
        if (epoch != epoch_) return;
        session.nsp = nsp_;
        session.nspQuery = nspQuery_;
        if (!endpoint_) {
            ++epoch_;
            status_ = SocketIOStatusDisconnected;
            return pushEvent("error", {"The URL is none of a Socket.IO server."});
        }
    }
    if (preferWebSocket_ && session.transports == TransportChoice::PollingThenWebSocket) {
        session.transports = TransportChoice::WebSocketThenPolling;
    }
    if (goodbyeTimer_ && goodbyeTimer_->isPending()) {
        goodbyeTimer_->cancel();
        if (link_) link_->close();
    }
    retireLink();
    waitingFor_.reset();
    emittedAt_.reset();
    linkEpoch_ = epoch;
    joined_ = false;
    TransportOptions transport = options_.transport;
    transport.endpoint = *endpoint_;
    transport.proxy = proxyFor(endpoint_->isSecure, endpoint_->host, endpoint_->port);
    note("connecting to " + endpoint_->authorityWithPort());
    link_ = std::make_shared<SocketIOLink>(std::move(session), std::move(transport), static_cast<SocketIOLink::Owner&>(*this),
                                           SocketIOLink::Environment{Clock::shared(), &HostResolver::system()});
    link_->start();
}

void SocketIOCore::stopLink(Outbox leftover) {
    if (reconnectTimer_) reconnectTimer_->cancel();
    waitingFor_.reset();
    if (!link_) return;
    const auto now = Clock::shared()->now();
    if (!sending_.empty() || !leftover.empty()) emittedAt_ = now;
    while (!sending_.empty() && link_->canEmit()) link_->emitFrom(sending_);
    while (sending_.empty() && !leftover.empty() && link_->canEmit()) link_->emitFrom(leftover);
    sending_.clear();
    const auto quiet = emittedAt_ ? *emittedAt_ + kBeforeGoodbye - now : Clock::TimePoint::duration::zero();
    if (quiet <= Clock::TimePoint::duration::zero()) return link_->close();
    link_->flush();
    if (!goodbyeTimer_) goodbyeTimer_ = std::make_unique<NetworkTimer>();
    goodbyeTimer_->start(quiet, [self = shared_from_this()] {
        if (self->link_) self->link_->close();
    });
}

/// A link cannot be destroyed from inside its own calls.
void SocketIOCore::retireLink() {
    if (link_) NetworkThread::shared().post([self = shared_from_this(), link = std::exchange(link_, nullptr)] {});
}

void SocketIOCore::scheduleReconnect(Epoch epoch) {
    const auto wait = reconnectDelay(options_.reconnect, attempt_, Random::shared()->next32());
    if (!wait) return;
    waitingFor_ = epoch;
    if (!reconnectTimer_) reconnectTimer_ = std::make_unique<NetworkTimer>();
    reconnectTimer_->start(*wait, [weak = weak_from_this(), epoch] {
        if (const auto self = weak.lock()) self->attemptReconnect(epoch);
    });
}

void SocketIOCore::attemptReconnect(Epoch epoch) {
    if (waitingFor_ != epoch) return;
    waitingFor_.reset();
    reconnectTimer_->cancel();
    {
        const MutexLock lock(mutex_);
        if (epoch != epoch_) return;
        pushEvent("reconnect", {std::int64_t{attempt_} + 1});
    }
    ++attempt_;
    startLink(epoch);
}

void SocketIOCore::pump() {
    std::size_t bytes = 0;
    std::size_t messages = 0;
    for (;;) {
        {
            const MutexLock lock(mutex_);
            if (linkEpoch_ == epoch_) {
                queuedBytes_ -= std::exchange(bytes, 0);
                queuedMessages_ -= std::exchange(messages, 0);
                if (sending_.empty()) std::swap(sending_, outbox_);
            }
            // Without room this goes on when the link's turn ends next.
            if (sending_.empty() || !link_ || !link_->canEmit()) {
                pumpScheduled_ = false;
                break;
            }
        }
        while (link_ && link_->canEmit() && !sending_.empty()) {
            bytes += link_->emitFrom(sending_);
            ++messages;
        }
        if (link_) link_->flush();
        emittedAt_ = Clock::shared()->now();
    }
    // Last: what was queued while this ran did not call for a run of its own.
    armAckTimer();
}

void SocketIOCore::linkDidJoin(const action::Joined& joined) {
    joined_ = true;
    joinedAt_ = Clock::shared()->now();
    reconnecting_ = false;
    preferWebSocket_ = false;
    flushTurn();
    const MutexLock lock(mutex_);
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
            if (found == acks_.end()) return;  // answered before, timed out, or never asked for
            delivery.callback = std::move(found->second.callback);
            if (found->second.deadline) ackDeadlines_.erase({*found->second.deadline, *packet.id});
            acks_.erase(found);
        }
        delivery.arguments = std::move(packet.payload.mutableArray());
    } else {
        Array& payload = packet.payload.mutableArray();
        delivery.event = payload.get(0).description();
        payload.remove(0);
        delivery.arguments = std::move(payload);
        if (packet.id) {
            delivery.ack = AckEmitter([weak = weak_from_this(), epoch = linkEpoch_, id = *packet.id](const Array& items) {
                if (const auto self = weak.lock()) self->sendAck(epoch, id, items);
            });
        }
    }
    turn_.push_back(std::move(delivery));
}

void SocketIOCore::flushTurn() {
    if (turn_.empty()) return;
    bool overflows = false;
    {
        const MutexLock lock(mutex_);
        const bool isStale = linkEpoch_ != epoch_;
        for (auto& delivery : turn_) {
            if (isStale && !delivery.callback) continue;
            push(std::move(delivery));
        }
        overflows = !isStale && undeliveredBytes_ > kMaxUndeliveredBytes;
    }
    turn_.clear();
    if (overflows && link_) link_->abort(EndCause::LimitPassed, "The application does not keep up: too many undelivered events.");
}

void SocketIOCore::linkDidReport(const action::Report& report) {
    flushTurn();
    const MutexLock lock(mutex_);
    if (linkEpoch_ == epoch_) pushEvent("error", errorArguments(report.description, report.detail));
}

void SocketIOCore::linkDidEndTurn() {
    flushTurn();
    {
        const MutexLock lock(mutex_);
        if (outbox_.empty() && sending_.empty()) return;
    }
    pump();
}

void SocketIOCore::linkDidEnd(const action::Ended& ended) {
    flushTurn();
    retireLink();
    sending_.clear();
    preferWebSocket_ = ended.preferWebSocket;
    const bool wasJoined = std::exchange(joined_, false);
    if (wasJoined && joinedAt_ && Clock::shared()->now() - *joinedAt_ >= options_.reconnect.stableAfter) attempt_ = 0;
    note("the connection ended: " + ended.why);

    const bool isFinal =
        ended.cause == EndCause::Asked || ended.cause == EndCause::ServerDisconnect || ended.cause == EndCause::Refused;
    const bool mayRetry = !isFinal && (wasJoined || reconnecting_);
    const bool isFault = !wasJoined || ended.cause == EndCause::ProtocolFault || ended.cause == EndCause::LimitPassed;
    Epoch next = 0;
    {
        const MutexLock lock(mutex_);
        if (linkEpoch_ != epoch_) return;  // disconnect() has said everything
        beginEpoch(SocketIOStatusDisconnected);
        next = epoch_;
        if (isFault) pushEvent("error", errorArguments(ended.why, ended.detail));
        if (wasJoined) pushEvent("disconnect", {ended.why});
        const auto& policy = options_.reconnect;
        if (!mayRetry || !policy.enabled || (policy.maxAttempts && attempt_ >= *policy.maxAttempts)) return;
        status_ = SocketIOStatusConnecting;
    }
    reconnecting_ = true;
    scheduleReconnect(next);
}

// Answers that do not come

void SocketIOCore::armAckTimer() {
    std::optional<Clock::TimePoint> first;
    {
        const MutexLock lock(mutex_);
        if (!ackDeadlines_.empty()) first = ackDeadlines_.begin()->first;
    }
    if (!first || (ackArmedFor_ && *ackArmedFor_ <= *first)) return;
    ackArmedFor_ = first;
    if (!ackTimer_) ackTimer_ = std::make_unique<NetworkTimer>();
    const auto wait = std::max(*first - Clock::shared()->now(), Clock::TimePoint::duration::zero());
    ackTimer_->start(wait, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        self->ackArmedFor_.reset();
        self->expireAcks();
        self->armAckTimer();
    });
}

void SocketIOCore::expireAcks() {
    const auto now = Clock::shared()->now();
    const MutexLock lock(mutex_);
    while (!ackDeadlines_.empty() && ackDeadlines_.begin()->first <= now) {
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
