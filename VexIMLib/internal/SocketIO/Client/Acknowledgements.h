#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/SocketIOClient.h"

namespace vexim {

/// The callbacks that wait for the peer's answer. It only keeps them; the owner calls them. The
/// owner's lock guards it.
///
/// Deadlines use a clock that stands still while reading is paused: an answer that we do not read
/// is not late.
class Acknowledgements {
public:
    using Callback = SocketIOClient::AckCallback;
    using TimePoint = Clock::TimePoint;

    /// The id that the next `add` uses. Ids are never used again, even on another connection.
    std::uint64_t nextId() const noexcept { return nextId_; }
    /// A timeout of 0 or less means no timeout.
    void add(Callback callback, std::chrono::milliseconds timeout, TimePoint now);

    // Each callback is taken out once. It is empty if the application gave none.

    /// nullopt: answered before, timed out, or never requested.
    std::optional<Callback> take(std::uint64_t id);
    /// Those whose deadline has passed, the earliest first.
    std::vector<Callback> takeExpired(TimePoint now);
    /// All, in the order in which they were added.
    std::vector<Callback> takeAll();

    /// When `takeExpired` will have something to take; nullopt if nothing has a deadline, or
    /// reading is paused.
    std::optional<TimePoint> deadline() const;

    void pause(TimePoint now);
    void resume(TimePoint now);

private:
    struct Pending {
        Callback callback;
        std::optional<TimePoint> deadline;  // by the clock that stands still in pauses
    };

    TimePoint::duration pausedFor(TimePoint now) const;

    std::uint64_t nextId_ = 0;
    std::unordered_map<std::uint64_t, Pending> pending_;
    std::set<std::pair<TimePoint, std::uint64_t>> deadlines_;
    std::optional<TimePoint> pausedSince_;
    TimePoint::duration pausedBefore_{};
};

}  // namespace vexim
