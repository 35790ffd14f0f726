#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace chat {

/// How fast a transfer goes, from how far it has come when. It hears bytes, or the percents of a
/// size that it knows; times are seconds, of any clock.
class Pace {
public:
    /// `size` is that of the file whose percents it will hear.
    explicit Pace(std::optional<std::int64_t> size = std::nullopt) : total_(size), size_(size) {}

    void reached(std::int64_t bytes, std::optional<std::int64_t> total, double now);
    /// Says nothing to one that does not know the size.
    void reachedPercent(int percent, double now);
    /// "1.5 MB/s, 12 s left"; without the rest while the total is not known, and empty until half a
    /// second has passed.
    std::string text() const;

private:
    struct Sample {
        double time = 0;
        std::int64_t bytes = 0;
    };
    std::optional<std::int64_t> total_;
    std::optional<std::int64_t> size_;
    std::deque<Sample> samples_;  // of the last seconds
};

}  // namespace chat
