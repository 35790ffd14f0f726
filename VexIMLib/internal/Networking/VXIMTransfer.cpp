#include "VexIMLib/VXIMTransfer.h"

#include <functional>
#include <utility>

#include "VexIMLib/Foundation/ThreadSafety.h"
#include "VexIMLib/internal/Networking/VXIMTransferStages.h"

struct VXIMTransfer::Impl {
    vexim::Mutex mutex;  // never held while a cancel action runs or dies: it holds tasks and completions
    bool cancelled VEXIM_GUARDED_BY(mutex) = false;
    bool finished VEXIM_GUARDED_BY(mutex) = false;
    std::function<void()> cancelStage VEXIM_GUARDED_BY(mutex);
};

VXIMTransfer::VXIMTransfer() : impl_(std::make_unique<Impl>()) {}
VXIMTransfer::~VXIMTransfer() = default;

std::shared_ptr<VXIMTransfer> VXIMTransfer::transfer() { return std::shared_ptr<VXIMTransfer>(new VXIMTransfer); }

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
    vexim::MutexLock lock(state.mutex);
    state.finished = true;
    std::swap(state.cancelStage, dropped);
    return !state.cancelled;
}
