#pragma once

// Timers by the library's clock, for what may be turned by hand. Those by real time are asio's own.
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <memory>
#include <utility>

#include "VexIMLib/Foundation/Clock.h"

namespace vexim {

/// `Clock::shared()` as asio wants a clock.
struct SharedClock {
    using time_point = Clock::TimePoint;
    using duration = time_point::duration;
    using rep = duration::rep;
    using period = duration::period;
    static constexpr bool is_steady = true;
    static time_point now() { return Clock::shared()->now(); }
};

using ClockTimer = boost::asio::basic_waitable_timer<SharedClock>;

/// Makes the loop of `context` ask the clock again, after it was turned: it does so when a timer is
/// set that comes before all others. Lets go of `looking` when the handlers that were due, and
/// those of what is there to be read, have run.
inline void lookAtClock(boost::asio::io_context& context, std::shared_ptr<void> looking) {
    auto first = std::make_shared<ClockTimer>(context, Clock::TimePoint::min());
    first->async_wait(
        [first, &context, looking = std::move(looking)](const boost::system::error_code&) {
            boost::asio::post(context, [looking] {});
        });
}

}  // namespace vexim
