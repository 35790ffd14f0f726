#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "VexIMLib/VXIMTransfer.h"

/// The library's side of a transfer's handle: the operation says at each stage how it is cancelled
/// there. Works without a handle too, and then does nothing, so that operations need not tell the
/// two cases apart.
class VXIMTransferStages {
public:
    explicit VXIMTransferStages(std::shared_ptr<VXIMTransfer> transfer)
        : transfer_(std::move(transfer)) {}

    bool isCancelled() const { return transfer_ && transfer_->isCancelled(); }

    /// From now on cancelling runs `cancel`, on the cancelling thread and with no lock held; at
    /// once if it has happened.
    void enter(std::function<void()> cancel) const;
    /// Leaves the stage. False when its `cancel` has been taken: then whoever cancelled ends the
    /// transfer.
    bool leave() const;
    /// The last stage: nothing can be cancelled any more. False when it has been cancelled before,
    /// which is then the outcome.
    bool finish() const;

    /// Tells the handle's owner of bytes; nullopt when the total is unknown. Main queue only.
    void report(std::int64_t bytes, std::optional<std::int64_t> total) const;

private:
    std::shared_ptr<VXIMTransfer> transfer_;
};
