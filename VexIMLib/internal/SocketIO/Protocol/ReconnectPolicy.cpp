#include "VexIMLib/internal/SocketIO/Protocol/ReconnectPolicy.h"

#include <algorithm>

namespace vexim {

std::optional<std::chrono::milliseconds> reconnectDelay(const ReconnectPolicy& policy,
                                                        std::uint32_t attempt,
                                                        std::uint32_t random) {
    if (!policy.enabled || (policy.maxAttempts && attempt >= *policy.maxAttempts))
        return std::nullopt;
    auto bound = std::min(policy.firstWait, policy.longestWait);
    for (std::uint32_t i = 0; i < attempt && bound < policy.longestWait; ++i)
        bound = std::min(bound * 2, policy.longestWait);
    const auto fraction = static_cast<double>(random) / 4294967296.0;
    return std::chrono::milliseconds(
        static_cast<std::int64_t>(fraction * static_cast<double>(bound.count() + 1)));
}

}  // namespace vexim
