#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace vexim {

/// When to try again after a loss.
struct ReconnectPolicy {
    bool enabled = true;
    std::optional<std::uint32_t> maxAttempts;  // nullopt: no limit
    std::chrono::milliseconds firstWait{1'000};
    std::chrono::milliseconds longestWait{30'000};
    /// A connection that was up for this long begins a new count.
    std::chrono::milliseconds stableAfter{10'000};
};

/// The wait before attempt `attempt` (the first is 0), or nullopt when there is to be none.
/// `random` is 32 uniform bits: the wait is drawn evenly from 0 to a bound that doubles from
/// `firstWait` to `longestWait`, so that clients that were dropped together do not come back
/// together.
std::optional<std::chrono::milliseconds> reconnectDelay(const ReconnectPolicy& policy,
                                                        std::uint32_t attempt,
                                                        std::uint32_t random);

}  // namespace vexim
