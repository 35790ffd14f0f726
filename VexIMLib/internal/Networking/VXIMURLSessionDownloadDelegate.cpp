#include "VexIMLib/internal/Networking/VXIMURLSessionDownloadDelegate.h"

#include <utility>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Networking/ProgressReport.h"

void VXIMURLSessionDownloadDelegate::setDownloadProgressBlock(VXIMProgress progress) {
    downloadProgressBlock_ = vexim::rest::sharedProgress(std::move(progress));
}

void VXIMURLSessionDownloadDelegate::dataTaskDidReceiveResponse(
    vexim::URLSessionTask& task, const vexim::HTTPURLResponsePtr& response,
    vexim::URLSessionDelegate::DispositionHandler completionHandler) {
    if (response->statusCode >= 200 && response->statusCode < 300 && newOutputStreamBlock_) {
        task.setAnswerIsStreamed(true);
        setOutputStream(newOutputStreamBlock_(targetPath_));
    }
    VXIMURLSessionJSONDelegate::dataTaskDidReceiveResponse(task, response,
                                                           std::move(completionHandler));
}

void VXIMURLSessionDownloadDelegate::dataTaskDidReceiveData(vexim::URLSessionTask& task,
                                                            const vexim::Data& data) {
    VXIMURLSessionJSONDelegate::dataTaskDidReceiveData(task, data);
    vexim::rest::reportProgress(downloadProgressBlock_, transfer(), task.countOfBytesReceived(),
                                task.countOfBytesExpectedToReceive());
}

void VXIMURLSessionDownloadDelegate::parseResultOfTask(const vexim::URLSessionTask& task) {
    VXIMURLSessionJSONDelegate::parseResultOfTask(task);
    if (!error()) setResult(targetPath_);
}

void VXIMURLSessionDownloadDelegate::dropCallbacks() {
    VXIMURLSessionJSONDelegate::dropCallbacks();
    if (!newOutputStreamBlock_ && !downloadProgressBlock_) return;
    vexim::MainQueue::shared().async(
        [block = std::exchange(newOutputStreamBlock_, nullptr),
         progress = std::exchange(downloadProgressBlock_, nullptr)] {});
}
