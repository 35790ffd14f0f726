// The session's heartbeat, its deadlines, and how it reads on for the server's pings while the
// application is too slow. Delivery.cpp decides when reading pauses.
#include <algorithm>
#include <chrono>
#include <utility>

#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"

namespace vexim {
namespace {

using namespace std::chrono_literals;

constexpr auto kLivenessTimeout = 10s;
constexpr const char* kPong = "3";
// An unread ping may come after some MiB that wait in the buffers of both systems. Reading 64 KiB
// this often within the server's timeout is enough to reach it.
constexpr int kPortionsInPatience = 4096;

}  // namespace

// With revision 3 we send pings and expect pongs; with revision 4 the server sends
// pings. Only received data counts as a sign of life.

void EngineSession::didReceivePing() {
    if (phase_ == Phase::Detecting) decide(EngineRevision::V4);  // servers of revision 3 never ping
    if (revision_ != EngineRevision::V4) return;
    waitForNextPing();
    livenessDeadline_.reset();
    if (isPaused_) expectPing();
    // One pong answers all pings received so far. This bounds the memory if a server keeps sending
    // pings and accepts no POST.
    if (carrier_ == Carrier::Polling && !outgoing_.empty() && outgoing_.back() == kPong) return;
    send(kPong);
}

void EngineSession::handle(const event::WebSocketPing&) {
    const auto since = webSocketPings_.last ? now_ - *webSocketPings_.last
                                            : std::chrono::nanoseconds(open_.pingInterval);
    webSocketPings_.heard(now_, std::max<std::chrono::nanoseconds>(since, 1s));
    if (isPaused_) expectPing();
}

void EngineSession::handle(const event::WebSocketPong&) { livenessDeadline_.reset(); }

void EngineSession::waitForNextPing() {
    heartbeatDeadline_ = now_ + open_.patience();
    enginePings_.heard(now_, open_.pingInterval);
}

void EngineSession::waitForSignOfLife() {
    livenessDeadline_ =
        now_ + std::min<std::chrono::milliseconds>(open_.pingTimeout, kLivenessTimeout);
}

void EngineSession::sendPing() {
    send("2");
    if (!heartbeatDeadline_) heartbeatDeadline_ = now_ + open_.pingTimeout;
    pingDue_ = now_ + open_.pingInterval;
}

void EngineSession::handle(const event::NetworkChanged&) {
    if (!isJoined() || phase_ == Phase::Draining) return;
    if (carrier_ == Carrier::WebSocket) {
        if (!livenessDeadline_) waitForSignOfLife();
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
    if (!isPaused_ && (isDue(heartbeatDeadline_) || isDue(livenessDeadline_)))
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
    if (livenessDeadline_) waitForSignOfLife();
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

}  // namespace vexim
