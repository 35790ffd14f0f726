#pragma once

#include <chrono>
#include <compare>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// A point in time: seconds since 1970-01-01 00:00 UTC, in double precision. That is exact to less
/// than a microsecond for the dates of our time.
///
/// A value: copy and compare it freely, on any thread. No function fails.
///
///     const double age = vexim::Date::now().timeIntervalSince1970() -
///                        user->updatedAt().timeIntervalSince1970();  // in seconds
class VEXIM_EXPORT Date {
public:
    Date() noexcept = default;  ///< 1970-01-01
    /// Makes a date from any number of seconds. Fractions and times before 1970 are allowed.
    static Date fromTimeIntervalSince1970(double seconds) noexcept { return Date(seconds); }
    /// The current time of `Clock::shared()`, so a test that sets a clock decides it.
    static Date now();

    /// Seconds since 1970-01-01 00:00 UTC, leap seconds not counted (as in POSIX).
    double timeIntervalSince1970() const noexcept { return seconds_; }
    /// The same, to the microsecond.
    std::chrono::system_clock::time_point timePoint() const noexcept;

    /// The earlier date is the smaller one.
    friend auto operator<=>(const Date&, const Date&) noexcept = default;

private:
    explicit Date(double seconds) noexcept : seconds_(seconds) {}
    double seconds_ = 0;  // since 1970
};

}  // namespace vexim
