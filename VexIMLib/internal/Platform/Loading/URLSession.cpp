#include "VexIMLib/internal/Platform/Loading/URLSession.h"

#include <utility>

namespace vexim {

URLSessionDelegate::~URLSessionDelegate() = default;

void URLSessionDelegate::taskDidSendBodyData(URLSession&, const TaskPtr&, std::int64_t,
                                             std::int64_t, std::int64_t) {}

void URLSessionDelegate::taskDidCompleteWithError(URLSession&, const TaskPtr&, const ErrorPtr&) {}

void URLSessionDelegate::dataTaskDidReceiveResponse(URLSession&, const TaskPtr&,
                                                    const HTTPURLResponsePtr&,
                                                    DispositionHandler completionHandler) {
    completionHandler(URLSessionResponseDisposition::Allow);
}

void URLSessionDelegate::dataTaskDidReceiveData(URLSession&, const TaskPtr&, const Data&) {}

void URLSessionDelegate::taskWillPerformHTTPRedirection(URLSession&, const TaskPtr&,
                                                        const HTTPURLResponsePtr&,
                                                        const URLRequest& newRequest,
                                                        RedirectionHandler completionHandler) {
    completionHandler(newRequest);
}

void URLSessionDelegate::dataTaskWillCacheResponse(URLSession&, const TaskPtr&,
                                                   const CachedURLResponse&,
                                                   CacheHandler completionHandler) {
    completionHandler(std::nullopt);
}

std::shared_ptr<URLSession> URLSession::create(std::optional<URLSessionConfiguration> configuration,
                                               std::weak_ptr<URLSessionDelegate> delegate,
                                               std::shared_ptr<OperationQueue> delegateQueue) {
    return std::shared_ptr<URLSession>(
        new URLSession(configuration.value_or(URLSessionConfiguration{}), std::move(delegate),
                       std::move(delegateQueue)));
}

URLSession::URLSession(const URLSessionConfiguration& configuration,
                       std::weak_ptr<URLSessionDelegate> delegate,
                       std::shared_ptr<OperationQueue> delegateQueue)
    : configuration_(std::make_shared<const URLSessionConfiguration>(configuration)),
      delegate_(std::move(delegate)),
      delegateQueue_(std::move(delegateQueue)) {}

URLSession::~URLSession() = default;

std::shared_ptr<URLSessionTask> URLSession::dataTaskWithRequest(URLRequest request) {
    return vexim::create<URLSessionTask>(shared_from_this(), ++lastIdentifier_, std::move(request));
}

}  // namespace vexim
