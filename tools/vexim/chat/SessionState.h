#pragma once

#include <string>

#include "Conversation.h"

namespace chat {

/// The state of the session and what happens next, as text for the user. A state machine, driven by
/// events of the connection. Times are seconds by any clock.
class SessionState {
public:
    enum class Phase {
        Connecting,    ///< our own attempt: the first login, or a resume
        Waiting,       ///< it failed, and the next one has to wait
        Connected,     ///< the service has accepted the login
        Lost,          ///< the connection was lost; the library will reconnect
        Reconnecting,  ///< the library is reconnecting
        Paused,
        Leaving,
        Refused,  ///< the service refused the login
    };

    /// `where` names the service. `longestWait` is the library's longest wait between two attempts.
    explicit SessionState(std::string where, int longestWait)
        : where_(std::move(where)),
          longestWait_(longestWait) {}

    void connecting(double now);
    void connectFailed(std::string reason, double nextAttempt, double now);
    void connected(std::string user, double now);
    void lost(double now);
    void attempting(double now);
    /// When the library's next attempt begins.
    void waitingUntil(double nextAttempt) { nextAttempt_ = nextAttempt; }
    /// The current attempt has failed.
    void attemptFailed(std::string reason, double now);
    void paused(double now) { enter(Phase::Paused, now); }
    void leaving(double now) { enter(Phase::Leaving, now); }
    void refused(std::string reason, double now);

    Phase phase() const noexcept { return phase_; }
    /// How long it has been in this state.
    double since(double now) const noexcept { return now - entered_; }
    bool isConnected() const noexcept { return phase_ == Phase::Connected; }
    /// Our own attempts since the last success. They decide the next wait.
    int attempts() const noexcept { return attempts_; }

    /// The text. `oldestHanded` is when the oldest message was passed on that has not come back; 0
    /// if there is none.
    std::string line(double now, double oldestHanded = 0) const;
    /// Whether the user should notice it.
    bool isAlert(double now, double oldestHanded = 0) const;

private:
    void enter(Phase phase, double now);

    std::string where_;
    int longestWait_;
    Phase phase_ = Phase::Connecting;
    double entered_ = 0;
    std::string user_;
    std::string reason_;  // of the last failure; empty if there was none
    double nextAttempt_ = 0;
    int attempts_ = 0;
};

}  // namespace chat
