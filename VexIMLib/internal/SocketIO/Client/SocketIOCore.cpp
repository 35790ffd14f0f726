#include "VexIMLib/internal/SocketIO/Client/SocketIOCore.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/SocketIO/Protocol/ConnectionError.h"

namespace vexim {
namespace {

constexpr std::size_t kMostUnheard = 10'000;
// The memory of an event besides its text. For short events that is nearly all of it, and a server
// can send millions of them.
constexpr std::size_t kDeliveryBytes = 256;

EmitRefusal refusedAs(SocketIOErrorCode code, bool isQueueFull) {
    return code == SocketIOErrorNotConnected ? EmitRefusal::NotConnected
           : isQueueFull                     ? EmitRefusal::QueueFull
           : code == SocketIOErrorTooLarge   ? EmitRefusal::TooLong
                                             : EmitRefusal::NotEncodable;
}

std::string quoted(std::string_view event) { return "\"" + std::string(event) + "\""; }

// Practically forever, without overflow.
constexpr std::chrono::milliseconds kLongestPatience = std::chrono::hours(24 * 365 * 10);

}  // namespace

ErrorPtr SocketIOCore::makeError(SocketIOErrorCode code, std::string description) {
    return Error::withDescription(kSocketIOErrorDomain, code, std::move(description));
}

SocketIOCore::SocketIOCore(std::optional<Endpoint> endpoint, SocketIOOptions options)
    : endpoint_(std::move(endpoint)),
      options_(std::move(options)) {}

SocketIOCore::~SocketIOCore() = default;

// The application's side

void SocketIOCore::joinNamespace(std::string_view nsp) {
    const auto question = nsp.find('?');
    std::string name(nsp.substr(0, question));
    if (!name.starts_with('/')) name.insert(0, "/");
    // A comma would end the namespace in a packet.
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
    endPause();
    failAcks(SocketIOErrorDisconnected);
    return std::exchange(outbox_, {});
}

void SocketIOCore::connect() {
    const Section section(*this);
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
    const Section section(*this);
    if (closed_ || status_ == SocketIOStatusNotConnected) return;
    const Outbox leftover = beginEpoch(SocketIOStatusDisconnected);
    pushEvent("disconnect", {"io client disconnect"});
    NetworkThread::shared().post(
        [self = shared_from_this(), leftover] { self->stopLink(leftover); });
}

void SocketIOCore::shutDown() {
    handlers_.removeAll();
    const Section section(*this);
    closed_ = true;
    const Outbox leftover = beginEpoch(SocketIOStatusDisconnected);
    NetworkThread::shared().post([self = shared_from_this(), leftover] {
        self->stopLink(leftover);
        // Destroy them here: they belong to this thread, and the core may be destroyed on another.
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

ErrorPtr SocketIOCore::tryEmit(std::string_view event, const Array& items) {
    std::string nsp;
    Epoch epoch = 0;
    {
        const MutexLock lock(mutex_);
        nsp = joinedNsp_;
        epoch = epoch_;
    }
    // Without the lock: this takes longest, and several threads may emit.
    const EncodeResult encoded = encodeEvent(nsp, std::nullopt, event, items);
    EmitFault fault = EmitFault::NotEncodable;
    bool wakesPump = false;
    if (encoded.fault == EncodeFault::None) {
        const MutexLock lock(mutex_);
        fault = epoch == epoch_ ? enqueue(encoded.packet) : EmitFault::NotConnected;
        wakesPump = fault == EmitFault::None && !std::exchange(pumpScheduled_, true);
    }
    // Without the lock; otherwise the network thread would wake up only to wait for it.
    if (wakesPump) postPump();
    return fault == EmitFault::None ? nullptr : refusal(encoded.fault, fault, quoted(event));
}

bool SocketIOCore::emit(std::string_view event, const Array& items) {
    const ErrorPtr refused = tryEmit(event, items);
    if (!refused) return true;
    const Section section(*this);
    // The return value already gives the reason. This bounds the memory when a caller keeps
    // emitting and never reads the errors.
    if (inbox_.size() < kMostUnheard) pushEvent("error", errorArguments(refused));
    return false;
}

void SocketIOCore::emitWithAck(std::string_view event, const Array& items,
                               std::chrono::milliseconds timeout,
                               SocketIOClient::AckCallback callback) {
    const Section section(*this);
    // Encoded with the lock held: the id is a part of the text, and ids must be sent in order.
    const std::uint64_t id = nextAckId_;
    const EncodeResult encoded = encodeEvent(joinedNsp_, id, event, items);
    const EmitFault fault =
        encoded.fault == EncodeFault::None ? enqueue(encoded.packet) : EmitFault::NotEncodable;
    if (fault != EmitFault::None) {
        Delivery refused;
        refused.callback = std::move(callback);
        refused.error = refusal(encoded.fault, fault, quoted(event));
        return push(std::move(refused));
    }
    schedulePump();
    ++nextAckId_;
    PendingAck pending{std::move(callback), std::nullopt};
    if (timeout.count() > 0) {
        const auto now = Clock::shared()->now();
        pending.deadline = now - pausedFor(now) + std::min(timeout, kLongestPatience);
        ackDeadlines_.emplace(*pending.deadline, id);
    }
    acks_.emplace(id, std::move(pending));
}

SocketIOCore::EmitFault SocketIOCore::enqueue(const EncodedPacket& packet) {
    if (status_ != SocketIOStatusConnected) return EmitFault::NotConnected;
    const std::size_t most =
        maxPayload_ > 0 ? maxPayload_ : std::numeric_limits<std::size_t>::max();
    if (packet.text.size() > most) return EmitFault::TooLarge;
    for (const Data& attachment : packet.attachments) {
        if (attachment.size() > most) return EmitFault::TooLarge;
    }
    const std::size_t cost = Outbox::cost(packet);
    if (cost > options_.maxQueuedBytes) return EmitFault::Oversize;
    const bool full = queuedBytes_ + cost > options_.maxQueuedBytes ||
                      queuedMessages_ >= options_.maxQueuedMessages;
    if (full) return EmitFault::QueueFull;
    queuedBytes_ += cost;
    ++queuedMessages_;
    outbox_.push(packet);
    return EmitFault::None;
}

void SocketIOCore::schedulePump() {
    if (!std::exchange(pumpScheduled_, true)) postPump();
}

void SocketIOCore::postPump() {
    NetworkThread::shared().post([self = shared_from_this()] { self->pump(); });
}

void SocketIOCore::sendAck(Epoch epoch, std::uint64_t id, const Array& items) {
    const Section section(*this);
    if (epoch != epoch_) return;
    const EncodeResult encoded = encodeAck(joinedNsp_, id, items);
    const EmitFault fault =
        encoded.fault == EncodeFault::None ? enqueue(encoded.packet) : EmitFault::NotEncodable;
    if (fault == EmitFault::None) return schedulePump();
    pushEvent("error", errorArguments(refusal(encoded.fault, fault, "An acknowledgement")));
}

ErrorPtr SocketIOCore::refusal(EncodeFault encodeFault, EmitFault fault,
                               std::string_view what) const {
    SocketIOErrorCode code = SocketIOErrorNotEncodable;
    const char* why = "";
    switch (encodeFault) {
        case EncodeFault::None:
            code = fault == EmitFault::NotConnected ? SocketIOErrorNotConnected
                                                    : SocketIOErrorTooLarge;
            why = fault == EmitFault::NotConnected ? "the socket is not connected"
                  : fault == EmitFault::TooLarge   ? "it is longer than the server accepts"
                  : fault == EmitFault::Oversize   ? "it is longer than the whole send queue"
                                                   : "the send queue is full";
            break;
        case EncodeFault::NotEncodable: why = "its items are not JSON"; break;
        case EncodeFault::NotUTF8: why = "a text in it is not valid UTF-8"; break;
        case EncodeFault::ReservedName: why = "its name is reserved"; break;
        case EncodeFault::TooDeep:
            code = SocketIOErrorTooLarge, why = "its items are nested too deeply";
            break;
        case EncodeFault::TooManyAttachments:
            code = SocketIOErrorTooLarge, why = "it has too many attachments";
            break;
    }
    if (meter_) meter_->add(Metric::EmitsRefused, refusedAs(code, fault == EmitFault::QueueFull));
    Dictionary userInfo{
        {kLocalizedDescriptionKey, std::string(what) + " was not sent: " + why + "."},
        {kLocalizedFailureReasonKey, why}};
    if (encodeFault == EncodeFault::None && fault == EmitFault::QueueFull)
        userInfo.set(kTemporaryKey, true);
    return Error::make(kSocketIOErrorDomain, code, std::move(userInfo));
}

// To the main queue

void SocketIOCore::pushEvent(const char* event, Array arguments) {
    if (closed_) return;
    Delivery delivery;
    delivery.event = event;
    delivery.arguments = std::move(arguments);
    push(std::move(delivery));
}

void SocketIOCore::push(Delivery delivery) {
    countUndelivered(delivery);
    inbox_.push_back(std::move(delivery));
}

void SocketIOCore::countUndelivered(Delivery& delivery) {
    // There are as many failing answers as the application has requested, so no limit is needed.
    if (!delivery.error) delivery.bytes += kDeliveryBytes;
    undeliveredBytes_ += delivery.bytes;
}

void SocketIOCore::announce() {
    detail::asyncSteps([self = shared_from_this(), began = false]() mutable {
        return self->deliverSome(std::exchange(began, true));
    });
}

SocketIOCore::Section::Section(SocketIOCore& core) : core_(core) { core_.mutex_.lock(); }

SocketIOCore::Section::~Section() {
    const bool isNews = !core_.inbox_.empty() && !std::exchange(core_.deliveryScheduled_, true);
    core_.mutex_.unlock();
    if (isNews) core_.announce();
}

void SocketIOCore::failAcks(SocketIOErrorCode code) {
    // Sorted by id, so that they fail in the order in which they were requested.
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

/// Delivers the events that are queued now, until the main queue's turn is over. Returns true if
/// some are left. A handler may run the queue and so call this recursively.
bool SocketIOCore::deliverSome(bool isContinued) {
    if (!isContinued) {
        const MutexLock lock(mutex_);
        if (ready_.empty()) {
            ready_.swap(inbox_);
        } else {
            std::ranges::move(inbox_, std::back_inserter(ready_));
            inbox_.clear();
        }
        undeliveredReady_ = ready_.size() - nextReady_;
        deliveryScheduled_ = false;
    }
    // Even if a handler throws, the rest stays in line. Inside a handler, its own event is already
    // subtracted.
    struct Turn {
        SocketIOCore& core;
        ~Turn() {
            const bool isThrough = core.nextReady_ == core.ready_.size();
            if (isThrough) {
                core.ready_.clear();
                core.nextReady_ = 0;
            }
            const MutexLock lock(core.mutex_);
            // While events keep coming, reuse the memory of their list; an idle connection keeps
            // none.
            if (isThrough && core.inbox_.empty()) std::vector<Delivery>().swap(core.ready_);
            core.undeliveredReady_ = core.ready_.size() - core.nextReady_;
            core.countDelivered();
        }
    } turn{*this};
    while (nextReady_ < ready_.size()) {
        const Delivery next = std::move(ready_[nextReady_++]);
        deliveredBytes_ += next.bytes;
        deliver(next);
        if (detail::isTurnOver()) break;
    }
    return nextReady_ < ready_.size();
}

/// Resume reading only when half of the space is free; otherwise each event would stop and start
/// it.
void SocketIOCore::countDelivered() {
    undeliveredBytes_ -= std::exchange(deliveredBytes_, 0);
    if (!pausedSince_ || undeliveredBytes_ > options_.maxReadAhead / 2) return;
    endPause();
    NetworkThread::shared().post([self = shared_from_this()] { self->resumeReading(); });
}

Clock::TimePoint::duration SocketIOCore::pausedFor(Clock::TimePoint now) const {
    return pausedBefore_ +
           (pausedSince_ ? now - *pausedSince_ : Clock::TimePoint::duration::zero());
}

void SocketIOCore::endPause() {
    if (pausedSince_) pausedBefore_ = pausedFor(Clock::shared()->now());
    pausedSince_.reset();
}

void SocketIOCore::addLevels(Meter::Figures& figures) const {
    const auto add = [&](Metric metric, std::size_t amount, std::size_t label = 0) {
        figures[Meter::slot(metric, label)] += amount;
    };
    const MutexLock lock(mutex_);
    const auto status = status_.load();
    const auto state = status == SocketIOStatusConnected    ? ConnectionState::Connected
                       : status == SocketIOStatusConnecting ? ConnectionState::Connecting
                                                            : ConnectionState::Disconnected;
    add(Metric::Connections, 1, static_cast<std::size_t>(state));
    add(Metric::ConnectionsPaused, pausedSince_ ? 1 : 0);
    add(Metric::SendQueueEvents, queuedMessages_);
    add(Metric::SendQueueBytes, queuedBytes_);
    add(Metric::UndeliveredEvents, inbox_.size() + undeliveredReady_);
    add(Metric::UndeliveredBytes, undeliveredBytes_);
}

void SocketIOCore::deliver(const Delivery& delivery) {
    if (delivery.callback) return delivery.callback(delivery.arguments, delivery.error);
    handlers_.call(delivery.event.asStringView().value_or(""), delivery.arguments, delivery.ack);
}

}  // namespace vexim
