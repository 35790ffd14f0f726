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

/// Options for all tasks of a session. The defaults are the platform's.
struct URLSessionConfiguration {
    /// The longest decoded answer that is held in memory; a longer one fails the task with -1103.
    /// While it is put together, it takes up to twice as much memory for a moment.
    std::int64_t maximumAnswerBytes = 16 * 1024 * 1024;
    /// How long a task may take in all before it fails with -1001.
    std::chrono::seconds timeoutForResource{7 * 24 * 3600};
};

enum class URLSessionResponseDisposition { Cancel = 0, Allow = 1 };

/// An answer that a session proposes to cache.
struct CachedURLResponse {
    HTTPURLResponsePtr response;
    Data data;
};

/// Receives the events of a session's tasks. Called on the session's delegate queue, one call at a
/// time and in order for each task. An exception ends the task with an error that names it.
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
    /// The last call of a task, made exactly once for every task that was resumed or cancelled.
    /// nullptr means success.
    virtual void taskDidCompleteWithError(URLSession& session, const TaskPtr& task,
                                          const ErrorPtr& error);
    /// The task pauses until `completionHandler` is called, on any thread, now or later. Cancel
    /// ends it with -999, and so does destroying the handler without calling it. By default it
    /// allows.
    virtual void dataTaskDidReceiveResponse(URLSession& session, const TaskPtr& task,
                                            const HTTPURLResponsePtr& response,
                                            DispositionHandler completionHandler);
    virtual void dataTaskDidReceiveData(URLSession& session, const TaskPtr& task, const Data& data);
    /// `newRequest` is the request that the answer asks for (RFC 9110, 15.4). Pass it, or another
    /// one, to `completionHandler` to continue. nullopt (or destroying the handler) accepts the
    /// redirection itself as the answer. By default it continues with `newRequest`. After 20
    /// redirections the task fails with -1007.
    virtual void taskWillPerformHTTPRedirection(URLSession& session, const TaskPtr& task,
                                                const HTTPURLResponsePtr& response,
                                                const URLRequest& newRequest,
                                                RedirectionHandler completionHandler);
    /// What may be cached of an answer; nullopt means nothing. Sessions have no cache yet, so this
    /// is never called.
    virtual void dataTaskWillCacheResponse(URLSession& session, const TaskPtr& task,
                                           const CachedURLResponse& proposedResponse,
                                           CacheHandler completionHandler);
};

/// Makes tasks and reports their events to one delegate. It has no cookies and no cache, and the
/// delegate sees every redirection. It may be released at any time: running tasks continue, and
/// keep session and delegate alive until they end.
class URLSession : public std::enable_shared_from_this<URLSession> {
public:
    /// nullopt means the default configuration. `delegate` is held weakly, but a task holds it from
    /// its resume to its end.
    static std::shared_ptr<URLSession> create(std::optional<URLSessionConfiguration> configuration,
                                              std::weak_ptr<URLSessionDelegate> delegate,
                                              std::shared_ptr<OperationQueue> delegateQueue);
    URLSession(const URLSession&) = delete;
    URLSession& operator=(const URLSession&) = delete;
    ~URLSession();

    /// Makes a suspended task with a new identifier (starting at 1). Call from any thread.
    std::shared_ptr<URLSessionTask> dataTaskWithRequest(URLRequest request);

    const URLSessionConfiguration& configuration() const noexcept { return *configuration_; }
    const std::shared_ptr<OperationQueue>& delegateQueue() const noexcept { return delegateQueue_; }
    std::shared_ptr<URLSessionDelegate> delegate() const { return delegate_.lock(); }

private:
    friend class URLSessionTask;
    URLSession(const URLSessionConfiguration& configuration,
               std::weak_ptr<URLSessionDelegate> delegate,
               std::shared_ptr<OperationQueue> delegateQueue);

    const std::shared_ptr<const URLSessionConfiguration> configuration_;
    const std::weak_ptr<URLSessionDelegate> delegate_;
    const std::shared_ptr<OperationQueue> delegateQueue_;
    std::atomic<std::int64_t> lastIdentifier_{0};
};

}  // namespace vexim
