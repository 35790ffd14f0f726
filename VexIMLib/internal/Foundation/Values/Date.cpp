#include "VexIMLib/Foundation/Date.h"

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Scalars.h"

namespace vexim {

Date Date::now() { return Date(Clock::shared()->wallTime()); }

std::chrono::system_clock::time_point Date::timePoint() const noexcept {
    // The clock has a limited range; outside it, return its nearest end.
    using Micros = std::chrono::microseconds;
    constexpr auto kMost =
        std::chrono::duration_cast<Micros>(std::chrono::system_clock::duration::max()).count();
    constexpr auto kLeast =
        std::chrono::duration_cast<Micros>(std::chrono::system_clock::duration::min()).count();
    auto micros = truncateToInt64(seconds_ * 1e6 + (seconds_ < 0 ? -0.5 : 0.5));
    return std::chrono::system_clock::time_point(Micros(micros < kLeast  ? kLeast
                                                        : micros > kMost ? kMost
                                                                         : micros));
}

}  // namespace vexim
