#pragma once

#include <cstdint>
#include <memory>

#include "VexIMLib/VXIMCompletions.h"

class VXIMTransfer;

namespace vexim::rest {

/// `done` of `expected` in percent, truncated. If `expected` is unknown (0 or negative), the result
/// is meaningless, but fits the type.
std::int32_t percentage(std::int64_t done, std::int64_t expected) noexcept;

/// Queues calls of `progress` and of the handle's own callback on the main queue, if there are any.
void reportProgress(const std::shared_ptr<const VXIMProgress>& progress,
                    const std::shared_ptr<VXIMTransfer>& transfer, std::int64_t done,
                    std::int64_t expected);

/// nullptr for an empty callback.
std::shared_ptr<const VXIMProgress> sharedProgress(VXIMProgress progress);

}  // namespace vexim::rest
