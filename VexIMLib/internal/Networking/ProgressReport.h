#pragma once

#include <cstdint>
#include <memory>

#include "VexIMLib/VXIMCompletions.h"

class VXIMTransfer;

namespace vexim::rest {

/// `done` of `expected` in percent, truncated. Where `expected` is unknown (0 or negative) it means
/// nothing, and is not guarded beyond fitting the type.
std::int32_t percentage(std::int64_t done, std::int64_t expected) noexcept;

/// Queues one call of `progress` and one of the handle's own on the main queue; nothing without
/// either.
void reportProgress(const std::shared_ptr<const VXIMProgress>& progress,
                    const std::shared_ptr<VXIMTransfer>& transfer, std::int64_t done,
                    std::int64_t expected);

/// nullptr for an empty callback.
std::shared_ptr<const VXIMProgress> sharedProgress(VXIMProgress progress);

}  // namespace vexim::rest
