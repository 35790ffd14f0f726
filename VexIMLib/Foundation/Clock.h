#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// The source of time, with two readings. Tests replace it by a clock that they advance by hand,
/// such as `vexim::testing::ManualClock` of the test kit.
class VEXIM_EXPORT Clock {
public:
    /// A monotonic time, unrelated to the calendar.
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~Clock();
    /// The monotonic time, for waits and deadlines. Call from any thread.
    virtual TimePoint now() const = 0;
    /// Seconds since 1970-01-01 UTC, for messages and requests. Call from any thread.
    virtual double wallTime() const = 0;

    /// The system's clock.
    static std::shared_ptr<Clock> system();
    /// The clock that the library uses: the system's, unless another was set.
    static std::shared_ptr<Clock> shared();
    /// Replaces the shared clock; nullptr restores the system's. Call it before other threads use
    /// the library.
    static void setShared(std::shared_ptr<Clock> clock);
    /// Call this after advancing the shared clock by hand. Everything that waits for a time then
    /// checks the clock again. `looked` is called on any thread once all have checked; it may be
    /// empty. Call from any thread.
    static void didTurn(std::function<void()> looked = {});
};

namespace detail {
/// Called after the clock was advanced, on the thread that advanced it. Releases `looking` when it
/// has checked the time.
using ClockListener = std::function<void(std::shared_ptr<void> looking)>;
/// Calls `listener` as long as the returned handle lives.
VEXIM_EXPORT std::shared_ptr<void> onClockTurned(ClockListener listener);
}  // namespace detail

}  // namespace vexim
