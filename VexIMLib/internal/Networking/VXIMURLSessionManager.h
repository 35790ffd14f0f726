#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/VXIMCompletions.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Platform/Loading/URLSession.h"
#include "VexIMLib/internal/Platform/Threads/OperationQueue.h"

class VXIMURLSessionDataDelegate;

/// Has one URL session and is its delegate. Each task has its own delegate, to which the manager
/// passes on the session's calls. Call from any thread.
class VXIMURLSessionManager : public vexim::Object, public vexim::URLSessionDelegate {
public:
    using vexim::Object::Object;
    using TaskPtr = std::shared_ptr<vexim::URLSessionTask>;

    /// The manager that requests use. Made on first use, never destroyed.
    static const std::shared_ptr<VXIMURLSessionManager>& defaultManager();
    // Makes a manager with its own session and delegate queue. nullopt means the platform's default
    // configuration.
    static std::shared_ptr<VXIMURLSessionManager> init() {
        return initWithSessionConfiguration(std::nullopt);
    }
    static std::shared_ptr<VXIMURLSessionManager> initWithSessionConfiguration(
        std::optional<vexim::URLSessionConfiguration> configuration);

    const std::shared_ptr<vexim::URLSession>& session() const noexcept { return session_; }
    const std::shared_ptr<vexim::OperationQueue>& delegateQueue() const noexcept {
        return delegateQueue_;
    }

    /// Finished delegates stay, with their answers but without their callbacks, as long as the
    /// manager lives. Set false in a program that runs for long: then a delegate is released when
    /// its task has ended.
    void setKeepsFinishedDelegates(bool keeps);

    /// Sets the task's delegate, replacing an earlier one, and makes it observe the task's state.
    void setDelegateForTask(std::shared_ptr<VXIMURLSessionDataDelegate> delegate,
                            const TaskPtr& task);
    void removeDelegateForTask(const TaskPtr& task);
    /// nullptr when there is none.
    std::shared_ptr<VXIMURLSessionDataDelegate> delegateForTask(const TaskPtr& task) const;

    // These make tasks that are not resumed yet. An exception from `request` passes through, and no
    // task is made.

    TaskPtr dataTaskWithRequest(VXIMRequest& request, VXIMResultCompletion completion);
    /// With a `transfer` (which gets the progress in bytes), a cancelled task completes with its
    /// -999 error; otherwise it never completes. (Also below.)
    TaskPtr uploadTaskWithRequest(VXIMRequest& request, VXIMProgress progress,
                                  VXIMResultCompletion completion,
                                  std::shared_ptr<VXIMTransfer> transfer = nullptr);
    /// Without a `targetPath` it is a file in the folder "vexora" of the temporary directory, named
    /// by the URL.
    TaskPtr fileDownloadTaskWithRequest(VXIMRequest& request,
                                        VXIMNewOutputStreamBlock newOutputStream,
                                        VXIMProgress progress, VXIMResultCompletion completion,
                                        std::shared_ptr<VXIMTransfer> transfer = nullptr,
                                        std::optional<std::string> targetPath = std::nullopt);

    // From the session, on its delegate queue.

    void taskDidSendBodyData(vexim::URLSession& session, const TaskPtr& task,
                             std::int64_t bytesSent, std::int64_t totalBytesSent,
                             std::int64_t totalBytesExpectedToSend) override;
    void taskDidCompleteWithError(vexim::URLSession& session, const TaskPtr& task,
                                  const vexim::ErrorPtr& error) override;
    void dataTaskDidReceiveResponse(vexim::URLSession& session, const TaskPtr& task,
                                    const vexim::HTTPURLResponsePtr& response,
                                    DispositionHandler completionHandler) override;
    void dataTaskDidReceiveData(vexim::URLSession& session, const TaskPtr& task,
                                const vexim::Data& data) override;
    /// Follows the redirection with the first request's method, headers, signature and body.
    void taskWillPerformHTTPRedirection(vexim::URLSession& session, const TaskPtr& task,
                                        const vexim::HTTPURLResponsePtr& response,
                                        const vexim::URLRequest& newRequest,
                                        RedirectionHandler completionHandler) override;
    /// Nothing is cached.
    void dataTaskWillCacheResponse(vexim::URLSession& session, const TaskPtr& task,
                                   const vexim::CachedURLResponse& proposedResponse,
                                   CacheHandler completionHandler) override;

    bool initialise(std::optional<vexim::URLSessionConfiguration> configuration);

private:
    std::shared_ptr<vexim::OperationQueue> delegateQueue_;  // constant after initialise
    std::shared_ptr<vexim::URLSession> session_;            // constant after initialise

    mutable vexim::Mutex taskDelegatesMutex_;
    std::unordered_map<std::int64_t, std::shared_ptr<VXIMURLSessionDataDelegate>> taskDelegatesMap_
        VEXIM_GUARDED_BY(taskDelegatesMutex_);
    bool keepsFinishedDelegates_ VEXIM_GUARDED_BY(taskDelegatesMutex_) = true;
};

/// Runs `create` on the calling thread. Below Foundation 1140.11 only one at a time, because its
/// sessions could give the same identifier to two tasks made at once.
void url_session_manager_create_task_safely(const std::function<void()>& create);
