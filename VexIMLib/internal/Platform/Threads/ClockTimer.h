#pragma once

// Timers on the library's clock, which tests may advance by hand. For real time use asio's own
// timers.
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <memory>
#include <utility>

#include "VexIMLib/Foundation/Clock.h"

namespace vexim {

/// `Clock::shared()` in the form of an asio clock.
struct SharedClock {
    using time_point = Clock::TimePoint;
    using duration = time_point::duration;
    using rep = duration::rep;
    using period = duration::period;
    static constexpr bool is_steady = true;
    static time_point now() { return Clock::shared()->now(); }
};

using ClockTimer = boost::asio::basic_waitable_timer<SharedClock>;

/// Makes the loop of `context` check the clock again after it was advanced. The loop does so when a
/// timer is set that is earlier than all others. Releases `checking` when all due handlers, and
/// those for readable data, have run.
inline void checkClock(boost::asio::io_context& context, std::shared_ptr<void> checking) {
    auto first = std::make_shared<ClockTimer>(context, Clock::TimePoint::min());
    first->async_wait(
        [first, &context, checking = std::move(checking)](const boost::system::error_code&) {
            boost::asio::post(context, [checking] {});
        });
}

}  // namespace vexim
