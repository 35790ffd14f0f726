#include "VexIMLib/internal/SocketIO/Client/Reconnector.h"

#include <utility>

namespace vexim {

void Reconnector::begin() noexcept {
    attempt_ = 0;
    isReconnecting_ = false;
}

void Reconnector::didJoin(TimePoint now) noexcept {
    joinedAt_ = now;
    isReconnecting_ = false;
}

Reconnector::Verdict Reconnector::didEnd(EndCause cause, TimePoint now) noexcept {
    const auto joinedAt = std::exchange(joinedAt_, std::nullopt);
    if (joinedAt && now - *joinedAt >= policy_.stableAfter) attempt_ = 0;
    const bool isFinal = cause == EndCause::Asked || cause == EndCause::ServerDisconnect ||
                         cause == EndCause::Refused;
    if (isFinal || (!joinedAt && !isReconnecting_) || !reconnectDelay(policy_, attempt_, 0))
        return giveUp();
    isReconnecting_ = true;
    return Verdict::Retry;
}

Reconnector::Verdict Reconnector::didNotStart() noexcept { return giveUp(); }

Reconnector::Verdict Reconnector::giveUp() noexcept {
    return std::exchange(isReconnecting_, false) ? Verdict::GiveUp : Verdict::Leave;
}

std::chrono::milliseconds Reconnector::wait(std::uint32_t random) const {
    return reconnectDelay(policy_, attempt_, random).value_or(policy_.longestWait);
}

}  // namespace vexim
