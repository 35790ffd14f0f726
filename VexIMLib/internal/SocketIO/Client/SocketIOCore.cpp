#include "VexIMLib/internal/SocketIO/Client/SocketIOCore.h"

#include <algorithm>
#include <utility>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/SocketIO/Protocol/ConnectionError.h"
#include "VexIMLib/internal/SocketIO/Protocol/Namespace.h"

namespace vexim {
namespace {

constexpr std::size_t kMostUndelivered = 10'000;

EmitRefusal refusedAs(SocketIOErrorCode code, bool isQueueFull) {
    return code == SocketIOErrorNotConnected ? EmitRefusal::NotConnected
           : isQueueFull                     ? EmitRefusal::QueueFull
           : code == SocketIOErrorTooLarge   ? EmitRefusal::TooLong
                                             : EmitRefusal::NotEncodable;
}

std::string quoted(std::string_view event) { return "\"" + std::string(event) + "\""; }

ErrorPtr ackError(SocketIOErrorCode code, const char* description) {
    return Error::withDescription(kSocketIOErrorDomain, code, description);
}

}  // namespace

SocketIOCore::SocketIOCore(const SocketIOOptions& options, std::shared_ptr<Clock> clock)
    : clock_(std::move(clock)),
      meter_(options.meter),
      delivery_(options.maxReadAhead, [this] { didDeliver(); }),
      queue_(options.maxQueuedBytes, options.maxQueuedMessages) {}

SocketIOCore::Section::Section(SocketIOCore& core) : core_(core) { core_.mutex_.lock(); }

SocketIOCore::Section::~Section() {
    core_.mutex_.unlock();
    if (!core_.delivery_.claimRun()) return;
    detail::asyncSteps([core = core_.shared_from_this(), began = false]() mutable {
        return core->delivery_.deliverSome(std::exchange(began, true));
    });
}

// The application's side

void SocketIOCore::joinNamespace(std::string_view nsp) {
    auto parsed = parseNamespace(nsp);
    const MutexLock lock(mutex_);
    nsp_ = std::move(parsed.name);
    nspQuery_ = std::move(parsed.query);
}

std::string SocketIOCore::nsp() const {
    const MutexLock lock(mutex_);
    return nsp_;
}

PacketQueue SocketIOCore::beginEpoch(SocketIOStatus status) {
    ++epoch_;
    status_ = status;
    delivery_.endPause();
    acks_.resume(clock_->now());
    for (auto& callback : acks_.takeAll()) {
        pushFailure(
            std::move(callback),
            ackError(SocketIOErrorDisconnected, "The connection was lost before the answer came."));
    }
    return queue_.reset();
}

template <class Call>
void SocketIOCore::tellNetwork(const Call& call) const {
    if (const auto network = network_.lock()) call(*network);
}

void SocketIOCore::connect() {
    const Section section(*this);
    if (closed_ || status_ == SocketIOStatusConnected) return;
    if (status_ == SocketIOStatusConnecting)
        return tellNetwork([](Network& network) { network.attemptNow(); });
    beginEpoch(SocketIOStatusConnecting);
    tellNetwork([epoch = epoch_](Network& network) { network.start(epoch); });
}

void SocketIOCore::disconnect() {
    const Section section(*this);
    if (closed_ || status_ == SocketIOStatusNotConnected) return;
    PacketQueue leftover = beginEpoch(SocketIOStatusDisconnected);
    pushEvent("disconnect", {"io client disconnect"});
    tellNetwork([&](Network& network) { network.stop(std::move(leftover)); });
}

void SocketIOCore::shutDown() {
    handlers().removeAll();
    const Section section(*this);
    closed_ = true;
    PacketQueue leftover = beginEpoch(SocketIOStatusDisconnected);
    tellNetwork([&](Network& network) { network.stop(std::move(leftover)); });
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
    bool wakesNetwork = false;
    if (encoded.fault == EncodeFault::None) {
        const MutexLock lock(mutex_);
        fault = epoch == epoch_ ? enqueue(encoded.packet) : EmitFault::NotConnected;
        wakesNetwork = fault == EmitFault::None && queue_.claimWake();
    }
    // Without the lock; otherwise the network thread would wake up only to wait for it.
    if (wakesNetwork) tellNetwork([](Network& network) { network.send(); });
    return fault == EmitFault::None ? nullptr : refuse(encoded.fault, fault, quoted(event));
}

bool SocketIOCore::emit(std::string_view event, const Array& items) {
    const ErrorPtr refused = tryEmit(event, items);
    if (!refused) return true;
    const Section section(*this);
    // The return value already gives the reason. This bounds the memory when a caller keeps
    // emitting and never reads the errors.
    if (delivery_.count() < kMostUndelivered) pushEvent("error", errorArguments(refused));
    return false;
}

void SocketIOCore::emitWithAck(std::string_view event, const Array& items,
                               std::chrono::milliseconds timeout,
                               Acknowledgements::Callback callback) {
    const Section section(*this);
    // Encoded with the lock held: the id is a part of the text, and ids must be sent in order.
    const EncodeResult encoded = encodeEvent(joinedNsp_, acks_.nextId(), event, items);
    const EmitFault fault =
        encoded.fault == EncodeFault::None ? enqueue(encoded.packet) : EmitFault::NotEncodable;
    if (fault != EmitFault::None)
        return pushFailure(std::move(callback), refuse(encoded.fault, fault, quoted(event)));
    acks_.add(std::move(callback), timeout, clock_->now());
    wakeNetwork();
}

void SocketIOCore::sendAck(Epoch epoch, std::uint64_t id, const Array& items) {
    const Section section(*this);
    if (epoch != epoch_) return;
    const EncodeResult encoded = encodeAck(joinedNsp_, id, items);
    const EmitFault fault =
        encoded.fault == EncodeFault::None ? enqueue(encoded.packet) : EmitFault::NotEncodable;
    if (fault == EmitFault::None) return wakeNetwork();
    pushEvent("error", errorArguments(refuse(encoded.fault, fault, "An acknowledgement")));
}

ErrorPtr SocketIOCore::refuse(EncodeFault encodeFault, EmitFault fault,
                              std::string_view what) const {
    ErrorPtr error = emitRefusal(encodeFault, fault, what);
    if (meter_) {
        const auto code = static_cast<SocketIOErrorCode>(error->code());
        meter_->add(Metric::EmitsRefused, refusedAs(code, fault == EmitFault::QueueFull));
    }
    return error;
}

void SocketIOCore::wakeNetwork() {
    if (queue_.claimWake()) tellNetwork([](Network& network) { network.send(); });
}

EmitFault SocketIOCore::enqueue(const EncodedPacket& packet) {
    return status_ == SocketIOStatusConnected ? queue_.add(packet) : EmitFault::NotConnected;
}

// Reports of a connection

std::optional<SocketIOCore::Namespace> SocketIOCore::namespaceFor(Epoch epoch) const {
    const MutexLock lock(mutex_);
    if (epoch != epoch_) return std::nullopt;
    return Namespace{nsp_, nspQuery_};
}

void SocketIOCore::didJoin(Epoch epoch, std::size_t serverLimit) {
    const Section section(*this);
    if (epoch != epoch_) return;
    joinedNsp_ = nsp_;
    queue_.setServerLimit(serverLimit);
    status_ = SocketIOStatusConnected;
    pushEvent("connect", {nsp_});
}

bool SocketIOCore::queueEvent(Epoch epoch, const char* event, Array arguments) {
    const Section section(*this);
    if (epoch != epoch_) return false;
    pushEvent(event, std::move(arguments));
    return true;
}

std::optional<SocketIOCore::Epoch> SocketIOCore::didEnd(Epoch epoch, const Ending& ending) {
    const Section section(*this);
    if (epoch != epoch_) return std::nullopt;  // disconnect() has reported everything
    beginEpoch(ending.retries ? SocketIOStatusConnecting : SocketIOStatusDisconnected);
    if (ending.error) pushEvent("error", errorArguments(ending.error));
    if (ending.loss) pushEvent("disconnect", {*ending.loss});
    if (ending.givesUp) pushEvent("disconnect", {"reconnect failed"});
    return epoch_;
}

std::optional<Acknowledgements::Callback> SocketIOCore::takeAck(Epoch epoch, std::uint64_t id) {
    const MutexLock lock(mutex_);
    return epoch == epoch_ ? acks_.take(id) : std::nullopt;
}

void SocketIOCore::deliver(Epoch epoch, std::vector<Delivery::Item>& items) {
    if (items.empty()) return;
    const Section section(*this);
    if (epoch != epoch_)
        std::erase_if(items, [](const Delivery::Item& item) { return !item.callback; });
    delivery_.pushAll(items);
}

SocketIOCore::EndOfTurn SocketIOCore::endTurn(Epoch epoch, bool mayPause) {
    const MutexLock lock(mutex_);
    EndOfTurn end;
    end.hasToSend = !queue_.empty();
    if (epoch != epoch_) return end;
    end.overflows = delivery_.overflows();
    end.pauses = mayPause && delivery_.pauseIfFull();
    if (end.pauses) acks_.pause(clock_->now());
    return end;
}

bool SocketIOCore::refill(Epoch epoch, SendQueue::Written written, bool canEmit,
                          PacketQueue& sending) {
    const MutexLock lock(mutex_);
    if (epoch == epoch_) {
        queue_.didWrite(written);
        if (sending.empty()) queue_.takeInto(sending);
    }
    if (canEmit && !sending.empty()) return true;
    queue_.releaseWake();
    return false;
}

std::optional<Clock::TimePoint> SocketIOCore::expireAcks() {
    const Section section(*this);
    for (auto& callback : acks_.takeExpired(clock_->now())) {
        pushFailure(std::move(callback),
                    ackError(SocketIOErrorAckTimedOut, "The answer did not come in time."));
    }
    return acks_.deadline();
}

// To the main queue

void SocketIOCore::pushEvent(const char* event, Array arguments) {
    if (closed_) return;
    Delivery::Item item;
    item.event = event;
    item.arguments = std::move(arguments);
    delivery_.push(std::move(item));
}

void SocketIOCore::pushFailure(Acknowledgements::Callback callback, ErrorPtr error) {
    if (!callback) return;
    Delivery::Item item;
    item.callback = std::move(callback);
    item.error = std::move(error);
    delivery_.push(std::move(item));
}

void SocketIOCore::didDeliver() {
    {
        const MutexLock lock(mutex_);
        if (!delivery_.subtractDelivered()) return;
        acks_.resume(clock_->now());
    }
    tellNetwork([](Network& network) { network.resumeReading(); });
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
    const auto queued = queue_.unwritten();
    const auto undelivered = delivery_.levels();
    add(Metric::Connections, 1, static_cast<std::size_t>(state));
    add(Metric::ConnectionsPaused, delivery_.isPaused() ? 1 : 0);
    add(Metric::SendQueueEvents, queued.messages);
    add(Metric::SendQueueBytes, queued.bytes);
    add(Metric::UndeliveredEvents, undelivered.events);
    add(Metric::UndeliveredBytes, undelivered.bytes);
}

}  // namespace vexim
