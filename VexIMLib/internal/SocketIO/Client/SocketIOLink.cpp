#include "VexIMLib/internal/SocketIO/Client/SocketIOLink.h"

#include <algorithm>
#include <chrono>
#include <utility>
#include <variant>

namespace vexim {
namespace {

// The limits of the send queue do not count what the transport holds. So give it no more than this,
// and let the rest wait in the queue.
constexpr std::size_t kEnoughUnsent = 256 * 1024;
// The limit for pongs to a server that keeps sending pings and does not read. Messages of the
// application are not included.
constexpr std::size_t kMostUnreadPongs = std::size_t{4} << 20;

}  // namespace

SocketIOLink::SocketIOLink(SessionConfig session, TransportOptions transport, Owner& owner,
                           SocketIOEnvironment environment)
    : options_(std::move(transport)),
      owner_(owner),
      environment_(std::move(environment)),
      session_(std::move(session)) {}

SocketIOLink::~SocketIOLink() { dropTransports(); }

void SocketIOLink::dropTransports() {
    if (webSocket_) webSocket_->drop();
    webSocket_.reset();
    polling_.reset();
    timer_.cancel();
}

void SocketIOLink::apply(const SessionEvent& what) {
    session_.on(what, environment_.clock->now(), actions_);
    perform();
    if (isOver_) return;
    if (webSocket_) {
        webSocket_->setPaused(session_.pausesWebSocket());
        webSocket_->flush();
    }
    armTimer();
}

void SocketIOLink::resumeReading() {
    apply(event::Resume{});
    didEndTurn();
}

void SocketIOLink::perform() {
    for (std::size_t i = 0; i < actions_.size(); ++i) {
        std::visit([this](auto& action) { carryOut(action); }, actions_[i]);
        if (actions_.empty()) return;  // it has ended
    }
    actions_.clear();
}

void SocketIOLink::armTimer() {
    const auto deadline = session_.deadline();
    // Deadlines move with every heartbeat. A timer that fires too early costs less than setting it
    // again each time.
    if (!deadline || (armedFor_ && *armedFor_ <= *deadline)) return;
    armedFor_ = deadline;
    timer_.startAt(*deadline, [this] {
        armedFor_.reset();
        const auto due = session_.deadline();
        if (!due) return;
        if (*due > environment_.clock->now()) return armTimer();
        apply(event::Tick{});
        didEndTurn();
    });
}

void SocketIOLink::abort(EndCause cause, std::string why) {
    action::Ended ended{cause, std::move(why), nullptr};
    carryOut(ended);
}

// From the transports

void SocketIOLink::didHappen(const SessionEvent& what) {
    if (std::holds_alternative<event::WebSocketFailed>(what) ||
        std::holds_alternative<event::WebSocketClosed>(what) ||
        std::holds_alternative<event::RequestFailed>(what)) {
        owner_.linkDidLoseTransport(what);
    }
    session_.on(what, environment_.clock->now(), actions_);
    perform();
}

void SocketIOLink::didReceiveCookies(const std::vector<std::string>& cookies) {
    for (const auto& cookie : cookies) cookies_.store(cookie);
}

void SocketIOLink::didEndTurn() {
    if (isOver_) return;
    const std::size_t unsent = webSocket_ ? webSocket_->unsentBytes() : 0;
    if (unsent > emittedBytes_ + kMostUnreadPongs)
        return abort(EndCause::LimitPassed, "The server has stopped reading.");
    if (unsent == 0) emittedBytes_ = 0;
    armTimer();
    owner_.linkDidEndTurn();
    while (!isOver_ && session_.hasMoreToRead()) {
        apply(event::ReadOn{});
        if (!isOver_) owner_.linkDidEndTurn();
    }
    if (!webSocket_ || isOver_) return;
    webSocket_->setPaused(session_.pausesWebSocket());  // it may have taken over from polling
    webSocket_->flush();
}

// Emitting

bool SocketIOLink::canEmit() const {
    if (!session_.canEmit()) return false;
    return !session_.emitsDirectly() || webSocket_->unsentBytes() < kEnoughUnsent;
}

std::size_t SocketIOLink::emitFrom(PacketQueue& queue) {
    const auto front = queue.front();
    std::size_t cost = PacketQueue::cost(front.text);
    if (session_.emitsDirectly()) {
        const std::size_t unsent = webSocket_->unsentBytes();
        webSocket_->writeText(front.text);
        for (unsigned i = 0; i < front.attachments; ++i) {
            const Data attachment = queue.takeAttachment();
            cost += PacketQueue::cost(attachment);
            webSocket_->writeBinary(binaryPrefix(*session_.revision()), attachment.view());
        }
        emittedBytes_ = std::min(emittedBytes_, unsent) + cost;
    } else {
        EncodedPacket packet{std::string(front.text), {}};
        for (unsigned i = 0; i < front.attachments; ++i)
            packet.attachments.push_back(queue.takeAttachment());
        cost = PacketQueue::cost(packet);
        session_.on(event::Emit{std::move(packet)}, environment_.clock->now(), actions_);
        perform();
    }
    queue.pop();
    return cost;
}

void SocketIOLink::flush() { apply(event::Flush{}); }

// What the session wants done

PollingTransport& SocketIOLink::polling() {
    if (!polling_) polling_ = PollingTransport::create(options_, *this);
    return *polling_;
}

void SocketIOLink::carryOut(action::OpenWebSocket& what) {
    if (webSocket_) webSocket_->drop();
    webSocket_ = WebSocketTransport::create(options_, *this, *environment_.resolver);
    webSocket_->open(std::move(what.target), cookies_.header());
}

void SocketIOLink::carryOut(action::SendText& what) {
    if (!webSocket_) return;
    constexpr std::size_t kPacket = 1;  // the length of a heartbeat's packet
    if (what.text.size() > kPacket) emittedBytes_ += what.text.size();
    webSocket_->writeText(what.text);
}

void SocketIOLink::carryOut(action::SendBinary& what) {
    if (!webSocket_) return;
    emittedBytes_ += what.bytes.size();
    webSocket_->writeBinary({}, what.bytes);
}

void SocketIOLink::carryOut(action::PingWebSocket&) {
    if (webSocket_) webSocket_->writePing();
}

void SocketIOLink::carryOut(action::ReadOn&) {
    if (webSocket_) webSocket_->readOn();
}

void SocketIOLink::carryOut(action::CloseWebSocket&) {
    if (const auto webSocket = std::exchange(webSocket_, nullptr)) webSocket->close();
}

void SocketIOLink::carryOut(action::DropWebSocket&) {
    if (const auto webSocket = std::exchange(webSocket_, nullptr)) webSocket->drop();
}

void SocketIOLink::carryOut(action::Get& what) {
    polling().get(what.target, cookies_.header(), what.timeout);
}

void SocketIOLink::carryOut(action::Post& what) {
    polling().post(what.target, cookies_.header(), std::move(what.body));
}

void SocketIOLink::carryOut(action::ClosePolling& what) {
    if (const auto polling = std::exchange(polling_, nullptr))
        polling->close(what.target, cookies_.header(), std::move(what.body));
}

void SocketIOLink::carryOut(action::Joined& what) { owner_.linkDidJoin(what); }

void SocketIOLink::carryOut(action::Deliver& what) {
    owner_.linkDidReceive(std::move(what.packet), what.bytes);
}

void SocketIOLink::carryOut(action::Report& what) { owner_.linkDidReport(what); }

void SocketIOLink::carryOut(action::Ended& what) {
    const action::Ended ended = std::move(what);
    isOver_ = true;
    actions_.clear();
    dropTransports();
    owner_.linkDidEnd(ended);
}

}  // namespace vexim
