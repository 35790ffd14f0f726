#include "SessionState.h"

#include <algorithm>
#include <cmath>

namespace chat {
namespace {

std::string because(const std::string& reason) { return reason.empty() ? "" : " (" + reason + ")"; }

std::string seconds(double wait) {
    return std::to_string(std::max(0, static_cast<int>(std::ceil(wait)))) + " s";
}

}  // namespace

void SessionState::enter(Phase phase, double now) {
    phase_ = phase;
    entered_ = now;
}

void SessionState::connecting(double now) {
    ++attempts_;
    enter(Phase::Connecting, now);
}

void SessionState::connectFailed(std::string reason, double nextAttempt, double now) {
    reason_ = std::move(reason);
    nextAttempt_ = nextAttempt;
    enter(Phase::Waiting, now);
}

void SessionState::connected(std::string user, double now) {
    user_ = std::move(user);
    attempts_ = 0;
    reason_.clear();
    enter(Phase::Connected, now);
}

void SessionState::lost(double now) {
    attempts_ = 0;
    nextAttempt_ = 0;
    reason_.clear();
    enter(Phase::Lost, now);
}

void SessionState::attempting(double now) {
    ++attempts_;
    reason_.clear();
    enter(Phase::Reconnecting, now);
}

void SessionState::attemptFailed(std::string reason, double now) {
    reason_ = std::move(reason);
    enter(Phase::Reconnecting, now);
}

void SessionState::refused(std::string reason, double now) {
    reason_ = std::move(reason);
    enter(Phase::Refused, now);
}

std::string SessionState::line(double now, double oldestHanded) const {
    // The exact time if it is known, otherwise the longest possible wait.
    const bool isKnown = nextAttempt_ > now;
    const std::string wait = isKnown ? "in " + seconds(nextAttempt_ - now)
                                     : "within " + std::to_string(longestWait_) + " s";
    const std::string next = "next attempt " + wait + ", /resume tries now";
    const std::string attempt = attempts_ > 1 ? ", attempt " + std::to_string(attempts_) : "";
    switch (phase_) {
        case Phase::Connecting: return "connecting to " + where_ + attempt + " …";
        case Phase::Waiting:
            return "no connection: next attempt in " + seconds(nextAttempt_ - now) +
                   ", /resume tries now" + because(reason_);
        case Phase::Connected:
            if (isAlert(now, oldestHanded))
                return "connected, but the service has not answered for " +
                       seconds(now - oldestHanded);
            return user_ + " connected to " + where_;
        case Phase::Lost: return "connection lost: " + next;
        case Phase::Reconnecting:
            if (!reason_.empty())
                return "attempt " + std::to_string(attempts_) + " failed: " + next +
                       because(reason_);
            return "reconnecting to " + where_ + ", attempt " + std::to_string(attempts_) + " …";
        case Phase::Paused: return "paused: nothing arrives until /resume";
        case Phase::Leaving: return "logging out …";
        case Phase::Refused:
            return "login refused" + because(reason_) + ": /resume tries again, /quit leaves";
    }
    return {};
}

bool SessionState::isAlert(double now, double oldestHanded) const {
    if (phase_ != Phase::Connected) return phase_ != Phase::Connecting && phase_ != Phase::Leaving;
    return oldestHanded > 0 && now - std::max(oldestHanded, entered_) > kPatience;
}

}  // namespace chat
