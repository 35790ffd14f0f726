#include "VexIMLib/internal/Networking/VXIMURLSessionManager.h"

#include <utility>

#include "VexIMLib/internal/Networking/VXIMURLSessionDataDelegate.h"
#include "VexIMLib/internal/Networking/VXIMURLSessionDownloadDelegate.h"
#include "VexIMLib/internal/Networking/VXIMURLSessionJSONDelegate.h"
#include "VexIMLib/internal/Networking/VXIMURLSessionUploadDelegate.h"
#include "VexIMLib/internal/Networking/VXIMUtils.h"
#include "VexIMLib/internal/Platform/Facts/DeviceInfo.h"
#include "VexIMLib/internal/Platform/Files/FileManager.h"

namespace {

constexpr double kFoundationWithUniqueTaskIdentifiers = 1140.11;  // iOS 8

/// The file for downloading `url`: each URL has its own file name.
std::string targetPathForURL(const std::optional<vexim::URL>& url) {
    const auto directory = vexim::appendPathComponent(vexim::temporaryDirectory(), "vexora");
    VXIMUtils::ensureDirExist(directory);
    return vexim::appendPathComponent(directory,
                                      VXIMUtils::md5FromString(url ? url->absoluteString() : ""));
}

}  // namespace

void url_session_manager_create_task_safely(const std::function<void()>& create) {
    // Replaces the serial queue "com.vexora.networking.session.manager.creation", whose callers
    // would wait for it anyway.
    static vexim::Mutex creation;
    if (vexim::deviceInfo().foundationVersionNumber < kFoundationWithUniqueTaskIdentifiers) {
        vexim::MutexLock lock(creation);
        create();
    } else {
        create();
    }
}

const std::shared_ptr<VXIMURLSessionManager>& VXIMURLSessionManager::defaultManager() {
    static const auto& manager = *new auto(init());
    return manager;
}

std::shared_ptr<VXIMURLSessionManager> VXIMURLSessionManager::initWithSessionConfiguration(
    std::optional<vexim::URLSessionConfiguration> configuration) {
    return vexim::create<VXIMURLSessionManager>(configuration);
}

bool VXIMURLSessionManager::initialise(
    std::optional<vexim::URLSessionConfiguration> configuration) {
    delegateQueue_ = vexim::OperationQueue::create("vexim-session");
    session_ =
        vexim::URLSession::create(configuration, sharedAs<VXIMURLSessionManager>(), delegateQueue_);
    return true;
}

void VXIMURLSessionManager::setKeepsFinishedDelegates(bool keeps) {
    vexim::MutexLock lock(taskDelegatesMutex_);
    keepsFinishedDelegates_ = keeps;
}

void VXIMURLSessionManager::setDelegateForTask(std::shared_ptr<VXIMURLSessionDataDelegate> delegate,
                                               const TaskPtr& task) {
    vexim::MutexLock lock(taskDelegatesMutex_);
    delegate->addStateObserverForTask(task);
    delegate->setMeter(task->originalRequest()->meter);
    task->setMayCallOnNetworkThread(false);
    taskDelegatesMap_.insert_or_assign(task->taskIdentifier(), std::move(delegate));
}

void VXIMURLSessionManager::removeDelegateForTask(const TaskPtr& task) {
    std::shared_ptr<VXIMURLSessionDataDelegate> removed;  // destroyed after unlocking
    vexim::MutexLock lock(taskDelegatesMutex_);
    const auto found = taskDelegatesMap_.find(task->taskIdentifier());
    if (found == taskDelegatesMap_.end()) return;
    removed = std::move(found->second);
    taskDelegatesMap_.erase(found);
}

std::shared_ptr<VXIMURLSessionDataDelegate> VXIMURLSessionManager::delegateForTask(
    const TaskPtr& task) const {
    vexim::MutexLock lock(taskDelegatesMutex_);
    const auto found = taskDelegatesMap_.find(task->taskIdentifier());
    return found == taskDelegatesMap_.end() ? nullptr : found->second;
}

VXIMURLSessionManager::TaskPtr VXIMURLSessionManager::dataTaskWithRequest(
    VXIMRequest& request, VXIMResultCompletion completion) {
    TaskPtr task;
    url_session_manager_create_task_safely(
        [&] { task = session_->dataTaskWithRequest(request.urlRequest()); });
    auto delegate = vexim::create<VXIMURLSessionJSONDelegate>();
    delegate->setCompletionBlock(std::move(completion));
    setDelegateForTask(std::move(delegate), task);
    task->setMayCallOnNetworkThread(true);  // it only parses and leaves the rest to the main queue
    return task;
}

VXIMURLSessionManager::TaskPtr VXIMURLSessionManager::uploadTaskWithRequest(
    VXIMRequest& request, VXIMProgress progress, VXIMResultCompletion completion,
    std::shared_ptr<VXIMTransfer> transfer) {
    TaskPtr task;
    url_session_manager_create_task_safely(
        [&] { task = session_->dataTaskWithRequest(request.urlRequest()); });
    auto delegate = vexim::create<VXIMURLSessionUploadDelegate>();
    delegate->setUploadProgressBlock(std::move(progress));
    delegate->setCompletionBlock(std::move(completion));
    delegate->setTransfer(std::move(transfer));
    setDelegateForTask(std::move(delegate), task);
    return task;
}

VXIMURLSessionManager::TaskPtr VXIMURLSessionManager::fileDownloadTaskWithRequest(
    VXIMRequest& request, VXIMNewOutputStreamBlock newOutputStream, VXIMProgress progress,
    VXIMResultCompletion completion, std::shared_ptr<VXIMTransfer> transfer,
    std::optional<std::string> targetPath) {
    auto urlRequest = request.urlRequest();
    urlRequest.acceptsCompression = false;  // progress is relative to the announced length
    TaskPtr task;
    url_session_manager_create_task_safely(
        [&] { task = session_->dataTaskWithRequest(urlRequest); });
    auto delegate = vexim::create<VXIMURLSessionDownloadDelegate>();
    delegate->setNewOutputStreamBlock(std::move(newOutputStream));
    delegate->setDownloadProgressBlock(std::move(progress));
    delegate->setCompletionBlock(std::move(completion));
    delegate->setTransfer(std::move(transfer));
    delegate->setTargetPath(targetPath ? *std::move(targetPath) : targetPathForURL(urlRequest.url));
    setDelegateForTask(std::move(delegate), task);
    return task;
}

void VXIMURLSessionManager::taskDidSendBodyData(vexim::URLSession&, const TaskPtr& task,
                                                std::int64_t bytesSent, std::int64_t totalBytesSent,
                                                std::int64_t totalBytesExpectedToSend) {
    if (auto delegate = delegateForTask(task)) {
        delegate->taskDidSendBodyData(*task, bytesSent, totalBytesSent, totalBytesExpectedToSend);
    }
}

void VXIMURLSessionManager::taskDidCompleteWithError(vexim::URLSession&, const TaskPtr& task,
                                                     const vexim::ErrorPtr& error) {
    bool keeps = true;
    {  // before the completion is queued, after which the application may change the setting
        vexim::MutexLock lock(taskDelegatesMutex_);
        keeps = keepsFinishedDelegates_;
    }
    if (auto delegate = delegateForTask(task)) delegate->taskDidCompleteWithError(*task, error);
    if (!keeps) removeDelegateForTask(task);
}

void VXIMURLSessionManager::dataTaskDidReceiveResponse(vexim::URLSession&, const TaskPtr& task,
                                                       const vexim::HTTPURLResponsePtr& response,
                                                       DispositionHandler completionHandler) {
    if (auto delegate = delegateForTask(task)) {
        delegate->dataTaskDidReceiveResponse(*task, response, std::move(completionHandler));
    } else {
        completionHandler(vexim::URLSessionResponseDisposition::Allow);
    }
}

void VXIMURLSessionManager::dataTaskDidReceiveData(vexim::URLSession&, const TaskPtr& task,
                                                   const vexim::Data& data) {
    if (auto delegate = delegateForTask(task)) delegate->dataTaskDidReceiveData(*task, data);
}

void VXIMURLSessionManager::taskWillPerformHTTPRedirection(
    vexim::URLSession&, const TaskPtr& task, const vexim::HTTPURLResponsePtr& response,
    const vexim::URLRequest& newRequest, RedirectionHandler completionHandler) {
    if (!response) return completionHandler(newRequest);
    auto request = *task->originalRequest();
    request.url = newRequest.url;
    completionHandler(std::move(request));
}

void VXIMURLSessionManager::dataTaskWillCacheResponse(vexim::URLSession&, const TaskPtr&,
                                                      const vexim::CachedURLResponse&,
                                                      CacheHandler completionHandler) {
    completionHandler(std::nullopt);
}
