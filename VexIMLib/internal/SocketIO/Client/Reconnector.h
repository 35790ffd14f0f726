#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"
#include "VexIMLib/internal/SocketIO/Protocol/ReconnectPolicy.h"

namespace vexim {

/// Decides whether to try again when a connection has ended, and counts the attempts. It has no
/// timer: it is told what happens, and returns what to do. Network thread.
class Reconnector {
public:
    using TimePoint = Clock::TimePoint;

    enum class Verdict : std::uint8_t {
        Leave,   // stop silently: nobody expects another attempt
        GiveUp,  // stop and report it: after "reconnect" the application expects another event
        Retry,
    };

    explicit Reconnector(const ReconnectPolicy& policy) : policy_(policy) {}

    /// The application asks for a connection: count from the start.
    void begin() noexcept;
    /// A connection is being opened, and the previous one is gone.
    void willOpen() noexcept { joinedAt_.reset(); }
    void didJoin(TimePoint now) noexcept;
    Verdict didEnd(EndCause cause, TimePoint now) noexcept;
    /// An attempt could not even begin.
    Verdict didNotStart() noexcept;

    /// After `Retry`: how long to wait before the attempt. `random` is 32 uniform bits.
    std::chrono::milliseconds wait(std::uint32_t random) const;
    /// Counts an attempt that begins now. Returns its number, from 1.
    std::uint32_t nextAttempt() noexcept { return ++attempt_; }
    /// Attempts since the last stable connection.
    std::uint32_t attempt() const noexcept { return attempt_; }
    bool isJoined() const noexcept { return joinedAt_.has_value(); }
    /// Whether the connection, or the wait for it, follows a loss.
    bool isReconnecting() const noexcept { return isReconnecting_; }

private:
    Verdict giveUp() noexcept;

    const ReconnectPolicy policy_;
    std::optional<TimePoint> joinedAt_;  // of the present connection
    std::uint32_t attempt_ = 0;
    bool isReconnecting_ = false;
};

}  // namespace vexim
