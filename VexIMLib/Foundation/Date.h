#pragma once

#include <chrono>
#include <compare>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// A moment, as seconds since 1970-01-01 00:00 UTC.
class VEXIM_EXPORT Date {
public:
    Date() noexcept = default;  ///< 1970-01-01
    /// Any number, fractions and times before 1970 included.
    static Date fromTimeIntervalSince1970(double seconds) noexcept { return Date(seconds); }
    /// The current time of `Clock::shared()`.
    static Date now();

    /// In seconds.
    double timeIntervalSince1970() const noexcept { return seconds_; }
    /// To the microsecond.
    std::chrono::system_clock::time_point timePoint() const noexcept;

    friend auto operator<=>(const Date&, const Date&) noexcept = default;

private:
    explicit Date(double seconds) noexcept : seconds_(seconds) {}
    double seconds_ = 0;
};

}  // namespace vexim
