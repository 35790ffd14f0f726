#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace vexim {

/// When to reconnect after a loss.
struct ReconnectPolicy {
    bool enabled = true;
    std::optional<std::uint32_t> maxAttempts;  // nullopt: no limit
    std::chrono::milliseconds firstWait{1'000};
    std::chrono::milliseconds longestWait{30'000};
    /// After a connection that was up for this long, attempts are counted from the start.
    std::chrono::milliseconds stableAfter{10'000};
};

/// The wait before attempt `attempt` (the first is 0); nullopt means no further attempt. `random`
/// is 32 uniform bits. The wait is random, between 0 and a limit that doubles from `firstWait` to
/// `longestWait`. So clients that were dropped together do not return together.
std::optional<std::chrono::milliseconds> reconnectDelay(const ReconnectPolicy& policy,
                                                        std::uint32_t attempt,
                                                        std::uint32_t random);

}  // namespace vexim
