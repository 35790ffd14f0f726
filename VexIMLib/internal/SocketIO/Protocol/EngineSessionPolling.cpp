// The session's polling: one GET and one POST under way at a time, and answers that are read in
// portions.
#include <algorithm>
#include <chrono>
#include <utility>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineError.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"
#include "VexIMLib/internal/SocketIO/Protocol/Payload.h"

namespace vexim {
namespace {

using namespace std::chrono_literals;

// A GET ends with the server's next ping at the latest. With this extra time, the session's own
// deadlines decide first.
constexpr std::chrono::milliseconds kGetSlack = 10s;
// A GET that the server held this long is normal long polling.
constexpr auto kHeldGet = 1s;
// The size of a portion of an answer. Each packet counts a quarter of a KiB more, which is about
// its cost.
constexpr std::size_t kPortionBytes = 256 * 1024;
constexpr std::size_t kPacketBytes = 256;
// An answer of at most this size is not divided.
constexpr std::size_t kShortAnswer = 16 * 1024;

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

/// Delivers what came before a fault, then reports the fault.
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
        const auto patience =
            phase_ == Phase::OpeningPolling ? config_.connectTimeout : open_.patience();
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
