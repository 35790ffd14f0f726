#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace chat {

/// The speed of a transfer. Report its progress with the time: in bytes, or in percent of a known
/// size. Times are seconds by any clock.
class Pace {
public:
    /// `size` is needed for `reachedPercent`.
    explicit Pace(std::optional<std::int64_t> size = std::nullopt) : total_(size), size_(size) {}

    void reached(std::int64_t bytes, std::optional<std::int64_t> total, double now);
    /// Does nothing if the size is unknown.
    void reachedPercent(int percent, double now);
    /// "1.5 MB/s, 12 s left". The second part is left out if the total is unknown. Empty during the
    /// first half second.
    std::string text() const;

private:
    struct Sample {
        double time = 0;
        std::int64_t bytes = 0;
    };
    std::optional<std::int64_t> total_;
    std::optional<std::int64_t> size_;
    std::deque<Sample> samples_;  // those of the last seconds
};

}  // namespace chat
