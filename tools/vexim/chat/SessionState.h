#pragma once

#include <string>

#include "Conversation.h"

namespace chat {

/// Where the session stands, and what happens next, in words: a machine over what is heard of the
/// connection. Times are seconds; any clock does.
class SessionState {
public:
    enum class Phase {
        Connecting,    ///< an attempt of this program's own: a first login, or a resume
        Waiting,       ///< that has failed; the next one is being waited for
        Connected,     ///< the service has accepted the login
        Lost,          ///< the link went down; the library is about to try again
        Reconnecting,  ///< and does
        Paused,
        Leaving,
        Refused,  ///< the service does not accept the login
    };

    /// `where` is the service, `longestWait` how long the library waits at most between two
    /// attempts.
    explicit SessionState(std::string where, int longestWait)
        : where_(std::move(where)),
          longestWait_(longestWait) {}

    void connecting(double now);
    void connectFailed(std::string reason, double nextAttempt, double now);
    void connected(std::string user, double now);
    void lost(double now);
    void attempting(double now);
    /// The library's next attempt begins then.
    void waitingUntil(double nextAttempt) { nextAttempt_ = nextAttempt; }
    /// The attempt that is under way has failed.
    void attemptFailed(std::string reason, double now);
    void paused(double now) { enter(Phase::Paused, now); }
    void leaving(double now) { enter(Phase::Leaving, now); }
    void refused(std::string reason, double now);

    Phase phase() const noexcept { return phase_; }
    /// How long it has been in this phase.
    double since(double now) const noexcept { return now - entered_; }
    bool isConnected() const noexcept { return phase_ == Phase::Connected; }
    /// Our attempts since the last success, for the next wait.
    int attempts() const noexcept { return attempts_; }

    /// The line. `oldestHanded` is when the oldest message was handed over that has not come back;
    /// 0: none.
    std::string line(double now, double oldestHanded = 0) const;
    /// Whether something in it wants attention.
    bool isAlert(double now, double oldestHanded = 0) const;

private:
    void enter(Phase phase, double now);

    std::string where_;
    int longestWait_;
    Phase phase_ = Phase::Connecting;
    double entered_ = 0;
    std::string user_;
    std::string reason_;  // of the last failure; empty: none yet
    double nextAttempt_ = 0;
    int attempts_ = 0;
};

}  // namespace chat
