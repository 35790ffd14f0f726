#include "Pace.h"

#include <array>
#include <cmath>
#include <cstdio>

namespace chat {
namespace {

// The speed is measured over this many seconds: over a shorter time it jumps, over a longer one it
// lags.
constexpr double kSpan = 5;
constexpr double kLeast = 0.5;

std::string rate(double bytesPerSecond) {
    constexpr std::array kUnits{"B", "kB", "MB", "GB"};
    std::size_t unit = 0;
    for (; bytesPerSecond >= 1000 && unit + 1 < kUnits.size(); ++unit) bytesPerSecond /= 1000;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(),
                  unit > 0 && bytesPerSecond < 10 ? "%.1f %s/s" : "%.0f %s/s", bytesPerSecond,
                  kUnits.at(unit));
    return text.data();
}

std::string duration(double seconds) {
    const auto whole = static_cast<std::int64_t>(std::ceil(seconds));
    if (whole < 100) return std::to_string(whole) + " s";
    if (whole < 6000) return std::to_string((whole + 59) / 60) + " min";
    return std::to_string((whole + 3599) / 3600) + " h";
}

}  // namespace

void Pace::reached(std::int64_t bytes, std::optional<std::int64_t> total, double now) {
    total_ = total;
    // it has started again
    if (!samples_.empty() && bytes < samples_.back().bytes) samples_.clear();
    samples_.push_back({now, bytes});
    while (samples_.size() > 2 && samples_.front().time < now - kSpan) samples_.pop_front();
}

void Pace::reachedPercent(int percent, double now) {
    if (size_) reached(*size_ * percent / 100, size_, now);
}

std::string Pace::text() const {
    if (samples_.empty()) return "";
    const double time = samples_.back().time - samples_.front().time;
    const auto bytes = samples_.back().bytes - samples_.front().bytes;
    if (time < kLeast || bytes <= 0) return "";
    const double speed = static_cast<double>(bytes) / time;
    if (!total_) return rate(speed);
    return rate(speed) + ", " +
           duration(static_cast<double>(*total_ - samples_.back().bytes) / speed) + " left";
}

}  // namespace chat
