#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "VexIMLib/VXIMTransfer.h"

/// The library's side of a transfer's handle: the operation says at each stage how to cancel it.
/// Without a handle it does nothing, so operations need not distinguish the two cases.
class VXIMTransferStages {
public:
    explicit VXIMTransferStages(std::shared_ptr<VXIMTransfer> transfer)
        : transfer_(std::move(transfer)) {}

    bool isCancelled() const { return transfer_ && transfer_->isCancelled(); }

    /// From now on cancelling runs `cancel`, on the cancelling thread and with no lock held. If it
    /// is already cancelled, `cancel` runs at once.
    void enter(std::function<void()> cancel) const;
    /// Leaves the stage. Returns false if its `cancel` was taken: then the cancelling thread ends
    /// the transfer.
    bool leave() const;
    /// The last stage: nothing can be cancelled any more. Returns false if it was cancelled before;
    /// then that is the result.
    bool finish() const;

    /// Reports bytes to the handle's owner; nullopt if the total is unknown. Main queue only.
    void report(std::int64_t bytes, std::optional<std::int64_t> total) const;

private:
    std::shared_ptr<VXIMTransfer> transfer_;
};
