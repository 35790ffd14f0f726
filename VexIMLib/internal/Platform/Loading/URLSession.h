#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/internal/Platform/Loading/URLRequest.h"
#include "VexIMLib/internal/Platform/Loading/URLResponse.h"
#include "VexIMLib/internal/Platform/Loading/URLSessionTask.h"
#include "VexIMLib/internal/Platform/Threads/OperationQueue.h"

namespace vexim {

/// What a session's tasks have in common. The defaults are the platform's.
struct URLSessionConfiguration {
    /// An answer that is held in memory may be this long, decoded; over it the task fails with
    /// -1103. Gathering it takes up to twice as much for a moment.
    std::int64_t maximumAnswerBytes = 16 * 1024 * 1024;
    /// How long a task may take altogether before it fails with -1001.
    std::chrono::seconds timeoutForResource{7 * 24 * 3600};
};

enum class URLSessionResponseDisposition { Cancel = 0, Allow = 1 };

/// An answer that a session proposes to cache.
struct CachedURLResponse {
    HTTPURLResponsePtr response;
    Data data;
};

/// Hears what a session's tasks go through. Called on the session's delegate queue, one call at a
/// time and in order for each task. What a call throws ends its task with an error that names it.
class URLSessionDelegate {
public:
    using TaskPtr = std::shared_ptr<URLSessionTask>;
    using DispositionHandler = std::function<void(URLSessionResponseDisposition)>;
    using RedirectionHandler = std::function<void(std::optional<URLRequest>)>;
    using CacheHandler = std::function<void(std::optional<CachedURLResponse>)>;

    virtual ~URLSessionDelegate();

    /// `totalBytesExpectedToSend` is -1 when the length of the body is unknown.
    virtual void taskDidSendBodyData(URLSession& session, const TaskPtr& task,
                                     std::int64_t bytesSent, std::int64_t totalBytesSent,
                                     std::int64_t totalBytesExpectedToSend);
    /// The task's last call, exactly once for every task that was resumed or cancelled. nullptr is
    /// success.
    virtual void taskDidCompleteWithError(URLSession& session, const TaskPtr& task,
                                          const ErrorPtr& error);
    /// Nothing more of the task comes until `completionHandler` was called, on any thread, at once
    /// or later. Cancel ends it with -999, and so does dropping the handler uncalled. Allows unless
    /// overridden.
    virtual void dataTaskDidReceiveResponse(URLSession& session, const TaskPtr& task,
                                            const HTTPURLResponsePtr& response,
                                            DispositionHandler completionHandler);
    virtual void dataTaskDidReceiveData(URLSession& session, const TaskPtr& task, const Data& data);
    /// `newRequest` is what the answer asks for (RFC 9110, 15.4). Give it, or another one, to
    /// `completionHandler` to go on with that; nullopt (or dropping the handler) takes the
    /// redirection itself as the answer. Goes on with `newRequest` unless overridden. After 20 hops
    /// the task fails with -1007.
    virtual void taskWillPerformHTTPRedirection(URLSession& session, const TaskPtr& task,
                                                const HTTPURLResponsePtr& response,
                                                const URLRequest& newRequest,
                                                RedirectionHandler completionHandler);
    /// What may be cached of an answer; nullopt: nothing. Sessions have no cache at present, so
    /// none asks.
    virtual void dataTaskWillCacheResponse(URLSession& session, const TaskPtr& task,
                                           const CachedURLResponse& proposedResponse,
                                           CacheHandler completionHandler);
};

/// Makes tasks and tells one delegate about them. No cookies, no cache, no redirect that the
/// delegate has not seen. May be released at any time: tasks that were resumed go on and keep
/// session and delegate alive until they end.
class URLSession : public std::enable_shared_from_this<URLSession> {
public:
    /// nullopt is the default configuration. `delegate` is held weakly, but by each task from its
    /// resume to its end.
    static std::shared_ptr<URLSession> create(std::optional<URLSessionConfiguration> configuration,
                                              std::weak_ptr<URLSessionDelegate> delegate,
                                              std::shared_ptr<OperationQueue> delegateQueue);
    URLSession(const URLSession&) = delete;
    URLSession& operator=(const URLSession&) = delete;
    ~URLSession();

    /// A task, suspended, with a fresh identifier (from 1 on). Call from any thread.
    std::shared_ptr<URLSessionTask> dataTaskWithRequest(URLRequest request);

    const URLSessionConfiguration& configuration() const noexcept { return *configuration_; }
    const std::shared_ptr<OperationQueue>& delegateQueue() const noexcept { return delegateQueue_; }
    std::shared_ptr<URLSessionDelegate> delegate() const { return delegate_.lock(); }

private:
    friend class URLSessionTask;
    URLSession(URLSessionConfiguration configuration, std::weak_ptr<URLSessionDelegate> delegate,
               std::shared_ptr<OperationQueue> delegateQueue);

    const std::shared_ptr<const URLSessionConfiguration> configuration_;
    const std::weak_ptr<URLSessionDelegate> delegate_;
    const std::shared_ptr<OperationQueue> delegateQueue_;
    std::atomic<std::int64_t> lastIdentifier_{0};
};

}  // namespace vexim
