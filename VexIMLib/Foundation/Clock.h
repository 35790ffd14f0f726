#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// Where time comes from: two readings, so that tests can turn it by hand.
class VEXIM_EXPORT Clock {
public:
    /// Has no relation to the calendar.
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~Clock();
    /// Monotonic, for waits and deadlines. Callable from any thread.
    virtual TimePoint now() const = 0;
    /// Seconds since 1970-01-01 UTC, for what goes onto the wire. Callable from any thread.
    virtual double wallTime() const = 0;

    /// The system's clock.
    static std::shared_ptr<Clock> system();
    /// The clock that the library reads; the system's unless another was set.
    static std::shared_ptr<Clock> shared();
    /// Replaces it (nullptr: the system's again). Set it before other threads use the library.
    static void setShared(std::shared_ptr<Clock> clock);
    /// To be called when the shared clock was turned by hand: what waits by it looks at it again.
    /// `looked` is called once all have, on any thread; it may be empty. Call from any thread.
    static void didTurn(std::function<void()> looked = {});
};

namespace detail {
/// Is called after a turn of the clock, on the thread that turned it; lets go of `looking` when it
/// has looked.
using ClockListener = std::function<void(std::shared_ptr<void> looking)>;
/// Calls `listener` until the returned handle is gone.
VEXIM_EXPORT std::shared_ptr<void> onClockTurned(ClockListener listener);
}  // namespace detail

}  // namespace vexim
