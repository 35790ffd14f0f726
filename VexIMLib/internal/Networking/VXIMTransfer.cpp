#include "VexIMLib/VXIMTransfer.h"

#include <functional>
#include <utility>

#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/Networking/VXIMTransferStages.h"

struct VXIMTransfer::Impl {
    // never held while a cancel action runs or is destroyed, because it owns tasks and completions
    vexim::Mutex mutex;
    bool cancelled VEXIM_GUARDED_BY(mutex) = false;
    bool finished VEXIM_GUARDED_BY(mutex) = false;
    std::function<void()> cancelStage VEXIM_GUARDED_BY(mutex);
    // shared, to be called without the lock
    std::shared_ptr<const VXIMTransferProgressBlock> progress VEXIM_GUARDED_BY(mutex);
};

VXIMTransfer::VXIMTransfer() : impl_(std::make_unique<Impl>()) {}
VXIMTransfer::~VXIMTransfer() = default;

std::shared_ptr<VXIMTransfer> VXIMTransfer::transfer() {
    return std::shared_ptr<VXIMTransfer>(new VXIMTransfer);
}

bool VXIMTransfer::cancel() {
    std::function<void()> cancelStage;
    {
        vexim::MutexLock lock(impl_->mutex);
        if (impl_->cancelled || impl_->finished) return false;
        impl_->cancelled = true;
        cancelStage = std::exchange(impl_->cancelStage, nullptr);
    }
    if (cancelStage) cancelStage();
    return true;
}

void VXIMTransfer::setProgress(VXIMTransferProgressBlock progress) {
    auto shared =
        progress ? std::make_shared<const VXIMTransferProgressBlock>(std::move(progress)) : nullptr;
    vexim::MutexLock lock(impl_->mutex);
    if (!impl_->finished) std::swap(impl_->progress, shared);
}

bool VXIMTransfer::isCancelled() const {
    vexim::MutexLock lock(impl_->mutex);
    return impl_->cancelled;
}

bool VXIMTransfer::isFinished() const {
    vexim::MutexLock lock(impl_->mutex);
    return impl_->finished;
}

void VXIMTransferStages::enter(std::function<void()> cancel) const {
    if (!transfer_) return;
    auto& state = *transfer_->impl_;
    {
        vexim::MutexLock lock(state.mutex);
        if (!state.cancelled) {
            std::swap(state.cancelStage, cancel);
            return;
        }
    }
    cancel();
}

bool VXIMTransferStages::leave() const {
    if (!transfer_) return true;
    auto& state = *transfer_->impl_;
    std::function<void()> dropped;
    vexim::MutexLock lock(state.mutex);
    std::swap(state.cancelStage, dropped);
    return !state.cancelled;
}

bool VXIMTransferStages::finish() const {
    if (!transfer_) return true;
    auto& state = *transfer_->impl_;
    std::function<void()> dropped;
    std::shared_ptr<const VXIMTransferProgressBlock> droppedProgress;
    vexim::MutexLock lock(state.mutex);
    state.finished = true;
    std::swap(state.cancelStage, dropped);
    std::swap(state.progress, droppedProgress);
    return !state.cancelled;
}

void VXIMTransferStages::report(std::int64_t bytes, std::optional<std::int64_t> total) const {
    if (!transfer_) return;
    auto& state = *transfer_->impl_;
    std::shared_ptr<const VXIMTransferProgressBlock> progress;
    {
        vexim::MutexLock lock(state.mutex);
        if (!state.cancelled) progress = state.progress;
    }
    if (progress) (*progress)({bytes, total});
}
