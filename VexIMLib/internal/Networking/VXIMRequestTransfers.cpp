// Uploads and downloads: attempts with progress, which a handle can cancel at every stage.
//
//   not started   --cancel-->  no task is made, the completion is queued
//   running       --cancel-->  the task ends with -999, its delegate completes
//   between two   --cancel-->  the completion is queued, the next attempt does not start

#include <utility>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Networking/DownloadFile.h"
#include "VexIMLib/internal/Networking/NetworkingErrors.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Networking/VXIMTransferStages.h"
#include "VexIMLib/internal/Networking/VXIMURLSessionManager.h"

namespace {

/// The caller's completion. A cancellation through the handle takes precedence over anything that
/// came at the same time.
void finish(const VXIMTransferStages& stages, vexim::Value result, vexim::ErrorPtr error,
            const VXIMResultCompletion& completion) {
    if (!stages.finish()) {
        result = nullptr;
        error = vexim::rest::cancelled();
    }
    if (completion) completion(std::move(result), std::move(error));
}

/// For a transfer that has not reached the network yet, so nothing must be ended.
void finishCancelled(const VXIMTransferStages& stages, const VXIMResultCompletion& completion) {
    vexim::MainQueue::shared().async(
        [stages, completion] { finish(stages, nullptr, nullptr, completion); });
}

/// Starts the task of one attempt, which `make` makes; nullptr, without making any, when the
/// transfer is cancelled already.
template <class Make>
std::shared_ptr<vexim::URLSessionTask> start(const std::shared_ptr<VXIMTransfer>& transfer,
                                             const VXIMResultCompletion& completion, Make make) {
    const VXIMTransferStages stages(transfer);
    if (stages.isCancelled()) {
        finishCancelled(stages, completion);
        return nullptr;
    }
    auto task = make();
    stages.enter([task] { task->cancel(); });
    task->resume();
    return task;
}

}  // namespace

std::shared_ptr<vexim::URLSessionTask> VXIMRequest::uploadWithNewBodyStreamBlock(
    VXIMNewBodyStreamBlock newBodyStream, VXIMProgress progress, VXIMResultCompletion completion,
    std::shared_ptr<VXIMTransfer> transfer) {
    return start(transfer, completion, [&] {
        if (!bodyStream_ && body_.isNil() && newBodyStream) bodyStream_ = newBodyStream();
        return VXIMURLSessionManager::defaultManager()->uploadTaskWithRequest(
            *this, progressThatEndsRetries(progress),
            [self = self(), newBodyStream, progress, completion, transfer](
                const vexim::Value& result, const vexim::ErrorPtr& error) {
                self->concludeTransfer(error ? vexim::Value() : result, error, completion, transfer,
                                       [self, newBodyStream, progress, completion, transfer] {
                                           self->uploadWithNewBodyStreamBlock(
                                               newBodyStream, progress, completion, transfer);
                                       });
            },
            transfer);
    });
}

std::shared_ptr<vexim::URLSessionTask> VXIMRequest::downloadWithOutputStreamBlock(
    VXIMNewOutputStreamBlock newOutputStream, VXIMProgress progress,
    VXIMResultCompletion completion, std::shared_ptr<VXIMTransfer> transfer) {
    return download(std::move(newOutputStream), std::move(progress), std::move(completion),
                    std::move(transfer), std::nullopt);
}

std::shared_ptr<vexim::URLSessionTask> VXIMRequest::download(
    VXIMNewOutputStreamBlock newOutputStream, VXIMProgress progress,
    VXIMResultCompletion completion, std::shared_ptr<VXIMTransfer> transfer,
    std::optional<std::string> targetPath) {
    return start(transfer, completion, [&] {
        return VXIMURLSessionManager::defaultManager()->fileDownloadTaskWithRequest(
            *this, newOutputStream, progressThatEndsRetries(progress),
            [self = self(), newOutputStream, progress, completion, transfer, targetPath](
                const vexim::Value& result, const vexim::ErrorPtr& error) {
                self->concludeTransfer(
                    result, error, completion, transfer,
                    [self, newOutputStream, progress, completion, transfer, targetPath] {
                        self->download(newOutputStream, progress, completion, transfer, targetPath);
                    });
            },
            transfer, targetPath);
    });
}

VXIMProgress VXIMRequest::progressThatEndsRetries(VXIMProgress progress) {
    return [self = self(), progress = std::move(progress)](std::int32_t percent) {
        if (self->retryCount_ < kMaxRetries) self->retryCount_ += kMaxRetries;
        if (progress) progress(percent);
    };
}

void VXIMRequest::concludeTransfer(vexim::Value result, vexim::ErrorPtr error,
                                   const VXIMResultCompletion& completion,
                                   const std::shared_ptr<VXIMTransfer>& transfer,
                                   std::function<void()> again) {
    const VXIMTransferStages stages(transfer);
    if (stages.isCancelled() || !shouldRetry(error))
        return finish(stages, std::move(result), std::move(error), completion);
    stages.enter([stages, completion] { finishCancelled(stages, completion); });
    auto failed = [stages, completion](const vexim::Value&, const vexim::ErrorPtr& raised) {
        finish(stages, nullptr, raised, completion);
    };
    retry(
        [stages, again = std::move(again)] {
            if (stages.leave()) again();
        },
        std::move(failed));
}

void VXIMRequest::downloadToPath(std::string path, VXIMProgress progress,
                                 VXIMResultCompletion completion,
                                 std::shared_ptr<VXIMTransfer> transfer) {
    auto file = std::make_shared<vexim::rest::DownloadFile>(path);
    auto conclude = [file, path, completion = std::move(completion)](const vexim::Value&,
                                                                     vexim::ErrorPtr error) {
        error = file->conclude(std::move(error));
        if (completion) completion(error ? vexim::Value() : vexim::Value(path), error);
    };
    if (auto error = file->check()) {
        vexim::MainQueue::shared().async(
            [stages = VXIMTransferStages(std::move(transfer)), error = std::move(error),
             conclude = std::move(conclude)] { finish(stages, nullptr, error, conclude); });
        return;
    }
    download([file](const std::string&) { return file->newStream(); }, std::move(progress),
             std::move(conclude), std::move(transfer), std::move(path));
}
