#include "VexIMLib/internal/Networking/ProgressReport.h"

#include <cmath>
#include <limits>
#include <utility>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Networking/VXIMTransferStages.h"

namespace vexim::rest {

std::int32_t percentage(std::int64_t done, std::int64_t expected) noexcept {
    if (expected == 0) return 0;  // converting infinity is undefined in C++
    const auto percent = static_cast<double>(done) / static_cast<double>(expected) * 100.0;
    constexpr double least = std::numeric_limits<std::int32_t>::min();
    constexpr double most = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::fmin(std::fmax(percent, least), most));
}

void reportProgress(const std::shared_ptr<const VXIMProgress>& progress,
                    const std::shared_ptr<VXIMTransfer>& transfer, std::int64_t done,
                    std::int64_t expected) {
    if (!progress && !transfer) return;
    MainQueue::shared().async([progress, transfer, done, expected] {
        if (progress) (*progress)(percentage(done, expected));
        VXIMTransferStages(transfer).report(done,
                                            expected < 0 ? std::nullopt : std::optional(expected));
    });
}

std::shared_ptr<const VXIMProgress> sharedProgress(VXIMProgress progress) {
    return progress ? std::make_shared<const VXIMProgress>(std::move(progress)) : nullptr;
}

}  // namespace vexim::rest
