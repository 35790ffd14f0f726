#include "VexIMLib/internal/Platform/Loading/URLSessionTask.h"

#include <atomic>
#include <exception>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/Platform/Facts/URLErrors.h"
#include "VexIMLib/internal/Platform/Loading/URLLoad.h"
#include "VexIMLib/internal/Platform/Loading/URLSession.h"

namespace vexim {

/// The task's side of its load: receives events on the delegate queue, applies the decisions made
/// meanwhile, and calls the delegate.
struct URLSessionTask::Impl final : URLLoad::Client {
    explicit Impl(URLSessionTask& owner) : task(owner) {}
    virtual ~Impl() = default;

    URLSessionTask& task;
    std::shared_ptr<URLSession> session;
    std::shared_ptr<URLLoad> load;
    std::int64_t identifier = 0;
    std::shared_ptr<const URLRequest> originalRequest;

    std::atomic<URLSessionTaskState> state{URLSessionTaskState::Suspended};
    std::atomic<std::int64_t> bytesReceived{0};
    std::atomic<std::int64_t> bytesExpectedToReceive{0};
    std::atomic<std::int64_t> bytesSent{0};
    std::atomic<std::int64_t> bytesExpectedToSend{0};

    mutable Mutex mutex;
    std::shared_ptr<const URLRequest> currentRequest VEXIM_GUARDED_BY(mutex);
    HTTPURLResponsePtr response VEXIM_GUARDED_BY(mutex);
    ErrorPtr error VEXIM_GUARDED_BY(mutex);
    // why this side ended the task, to report instead of -999
    ErrorPtr failure VEXIM_GUARDED_BY(mutex);

    // Held from start to end. Set by the thread that starts the task, then used on the delegate
    // queue only.
    std::shared_ptr<URLSessionDelegate> delegate;

    // Delegate queue only. Events wait until the delegate has decided about the response.
    enum class Asked { No, Now, Waiting };
    Asked asked = Asked::No;
    std::vector<LoadEvent::Any> held;
    bool ended = false;

    void loadDidProgress(LoadEvent::Any event) override;
    void handle(LoadEvent::SentBody event);
    void handle(LoadEvent::Redirection event);
    void handle(LoadEvent::Response event);
    void handle(LoadEvent::Received event);
    void handle(LoadEvent::End event);

    bool moveState(URLSessionTaskState from, URLSessionTaskState to) {
        if (!state.compare_exchange_strong(from, to)) return false;
        task.didChangeValueForKey("state");
        return true;
    }
    void start();
    bool isGivenUp() const { return state == URLSessionTaskState::Cancelling; }
    void failWith(ErrorPtr reason);
    void decide(URLSessionResponseDisposition disposition);
    void releaseHeld();
    void didDecide(URLSessionResponseDisposition disposition);
    std::shared_ptr<URLSessionTask> self() { return task.sharedAs<URLSessionTask>(); }
    std::shared_ptr<URLLoad::Client> asClient() { return {self(), this}; }

    template <class Call>
    void callDelegate(Call call) {
        if (!delegate) return;
        try {
            call(*delegate);
        } catch (const std::exception& thrown) {
            failWith(Error::withDescription(kURLErrorDomain, URLErrorUnknown, thrown.what()));
        }
    }
};

namespace {

/// A handler for the delegate. It answers once; if its last copy is destroyed without being called,
/// it answers `otherwise`.
template <class Answer>
class Question {
public:
    Question(std::function<void(Answer)> answer, Answer otherwise)
        : answer_(std::move(answer)),
          otherwise_(std::move(otherwise)) {}
    ~Question() { give(std::move(otherwise_)); }
    void give(Answer answer) {
        if (!answered_.exchange(true)) answer_(std::move(answer));
    }

    static std::function<void(Answer)> ask(std::function<void(Answer)> answer, Answer otherwise) {
        return [question = std::make_shared<Question>(std::move(answer), std::move(otherwise))](
                   Answer given) { question->give(std::move(given)); };
    }

private:
    const std::function<void(Answer)> answer_;
    Answer otherwise_;
    std::atomic<bool> answered_{false};
};

}  // namespace

void URLSessionTask::Impl::start() {
    delegate = session->delegate();
    load->begin(asClient());
}

void URLSessionTask::Impl::failWith(ErrorPtr reason) {
    {
        const MutexLock lock(mutex);
        if (state == URLSessionTaskState::Running && !failure) failure = std::move(reason);
    }
    task.cancel();
}

void URLSessionTask::Impl::loadDidProgress(LoadEvent::Any event) {
    if (ended) return;
    if (isGivenUp()) {
        held.clear();
        if (auto* const end = std::get_if<LoadEvent::End>(&event)) handle(std::move(*end));
        return;
    }
    if (asked == Asked::Waiting) return held.push_back(std::move(event));
    std::visit([this](auto& each) { handle(std::move(each)); }, event);
}

void URLSessionTask::Impl::handle(LoadEvent::SentBody event) {
    const std::int64_t before = bytesSent.exchange(event.total);
    callDelegate([&](URLSessionDelegate& listener) {
        listener.taskDidSendBodyData(*session, self(), event.total - before, event.total,
                                     bytesExpectedToSend);
    });
}

void URLSessionTask::Impl::handle(LoadEvent::Redirection event) {
    auto answer = [keep = self(), this](std::optional<URLRequest> request) {
        if (request) {
            const MutexLock lock(mutex);
            currentRequest = std::make_shared<const URLRequest>(*request);
        }
        load->decideRedirection(std::move(request));
    };
    bytesSent = 0;
    callDelegate([&](URLSessionDelegate& listener) {
        listener.taskWillPerformHTTPRedirection(
            *session, self(), event.response, event.newRequest,
            Question<std::optional<URLRequest>>::ask(std::move(answer), std::nullopt));
    });
}

void URLSessionTask::Impl::handle(LoadEvent::Response event) {
    bytesExpectedToReceive = event.response->expectedContentLength;
    {
        const MutexLock lock(mutex);
        response = event.response;
    }
    asked = Asked::Now;
    callDelegate([&](URLSessionDelegate& listener) {
        listener.dataTaskDidReceiveResponse(
            *session, self(), event.response,
            Question<URLSessionResponseDisposition>::ask(
                [keep = self(), this](URLSessionResponseDisposition given) { decide(given); },
                URLSessionResponseDisposition::Cancel));
    });
    if (asked == Asked::Now) asked = Asked::Waiting;
    if (!load->answerIsStreamed() &&
        event.response->expectedContentLength > session->configuration().maximumAnswerBytes) {
        failWith(makeURLError(URLErrorDataLengthExceedsMaximum, originalRequest->url));
    }
}

/// The delegate's answer, which may come on any thread.
void URLSessionTask::Impl::decide(URLSessionResponseDisposition disposition) {
    // Inside the call that asked, no events are waiting yet. Later, calls of other tasks may be
    // running, so queue an operation.
    if (session->delegateQueue()->isCurrent() && asked == Asked::Now) return didDecide(disposition);
    session->delegateQueue()->addOperation(
        [keep = self(), this, disposition] { didDecide(disposition); });
}

void URLSessionTask::Impl::didDecide(URLSessionResponseDisposition disposition) {
    asked = Asked::No;
    if (disposition == URLSessionResponseDisposition::Cancel) task.cancel();
    releaseHeld();
}

void URLSessionTask::Impl::releaseHeld() {
    auto events = std::exchange(held, {});
    for (auto& event : events) loadDidProgress(std::move(event));
}

void URLSessionTask::Impl::handle(LoadEvent::Received event) {
    const auto size = event.data.size();
    const std::int64_t total = bytesReceived += static_cast<std::int64_t>(size);
    if (!load->answerIsStreamed() && total > session->configuration().maximumAnswerBytes) {
        return failWith(makeURLError(URLErrorDataLengthExceedsMaximum, originalRequest->url));
    }
    callDelegate([&](URLSessionDelegate& listener) {
        listener.dataTaskDidReceiveData(*session, self(), event.data);
    });
    load->consumed(std::move(event.data));
}

void URLSessionTask::Impl::handle(LoadEvent::End event) {
    ended = true;
    held.clear();
    load->freeSpareMemory();
    const bool givenUp =
        state.exchange(URLSessionTaskState::Completed) == URLSessionTaskState::Cancelling;
    ErrorPtr reason = std::move(event.error);
    {
        const MutexLock lock(mutex);
        // After a cancellation the delegate gets the cancellation, whatever else happened before
        // the end was delivered.
        if (givenUp)
            reason = failure ? failure : makeURLError(URLErrorCancelled, originalRequest->url);
        error = reason;
    }
    task.didChangeValueForKey("state");
    const auto listener = std::exchange(delegate, nullptr);
    if (!listener) return;
    try {
        listener->taskDidCompleteWithError(*session, self(), reason);
    } catch (const Exception& raised) {  // its reason may quote secrets
        log(LogLevel::Error, "The delegate raised " + raised.name() + " at a task's end.");
    } catch (const std::exception&) {
        log(LogLevel::Error, "The delegate threw at a task's end.");
    }
}

URLSessionTask::URLSessionTask(Creation creation)
    : Object(creation),
      impl_(std::make_unique<Impl>(*this)) {}
URLSessionTask::~URLSessionTask() = default;

bool URLSessionTask::initialise(std::shared_ptr<URLSession> session, std::int64_t identifier,
                                URLRequest request) {
    const auto length = announcedBodyLength(request);
    impl_->bytesExpectedToSend = length ? static_cast<std::int64_t>(*length) : -1;
    impl_->originalRequest = std::make_shared<const URLRequest>(std::move(request));
    {
        const MutexLock lock(impl_->mutex);
        impl_->currentRequest = impl_->originalRequest;
    }
    impl_->load = std::make_shared<URLLoad>(impl_->originalRequest, session->configuration_,
                                            session->delegateQueue_);
    impl_->identifier = identifier;
    impl_->session = std::move(session);
    return true;
}

void URLSessionTask::resume() {
    if (impl_->moveState(URLSessionTaskState::Suspended, URLSessionTaskState::Running))
        impl_->start();
}

void URLSessionTask::cancel() {
    if (impl_->moveState(URLSessionTaskState::Running, URLSessionTaskState::Cancelling)) {
        impl_->load->cancel();
        // If the end is waiting for a decision, it need not wait any more.
        impl_->session->delegateQueue()->addOperation(
            [keep = sharedAs<URLSessionTask>()] { keep->impl_->releaseHeld(); });
    } else if (impl_->moveState(URLSessionTaskState::Suspended, URLSessionTaskState::Cancelling)) {
        impl_->load->cancel();
        impl_->start();
    }
}

std::int64_t URLSessionTask::taskIdentifier() const noexcept { return impl_->identifier; }
URLSessionTaskState URLSessionTask::state() const noexcept { return impl_->state; }
std::shared_ptr<const URLRequest> URLSessionTask::originalRequest() const {
    return impl_->originalRequest;
}

std::shared_ptr<const URLRequest> URLSessionTask::currentRequest() const {
    const MutexLock lock(impl_->mutex);
    return impl_->currentRequest;
}

HTTPURLResponsePtr URLSessionTask::response() const {
    const MutexLock lock(impl_->mutex);
    return impl_->response;
}

ErrorPtr URLSessionTask::error() const {
    const MutexLock lock(impl_->mutex);
    return impl_->error;
}

std::int64_t URLSessionTask::countOfBytesReceived() const noexcept { return impl_->bytesReceived; }
std::int64_t URLSessionTask::countOfBytesExpectedToReceive() const noexcept {
    return impl_->bytesExpectedToReceive;
}
std::int64_t URLSessionTask::countOfBytesSent() const noexcept { return impl_->bytesSent; }
void URLSessionTask::setAnswerIsStreamed(bool streamed) noexcept {
    impl_->load->setAnswerIsStreamed(streamed);
}
void URLSessionTask::setMayCallOnNetworkThread(bool may) noexcept {
    impl_->load->setMayCallOnNetworkThread(may);
}
bool URLSessionTask::answerIsStreamed() const noexcept { return impl_->load->answerIsStreamed(); }

Value URLSessionTask::valueForKey(std::string_view key) const {
    if (key == "state") return static_cast<int>(state());
    return Object::valueForKey(key);
}

std::string URLSessionTask::description() const {
    const auto& url = impl_->originalRequest->url;
    return "<URLSessionTask " + std::to_string(taskIdentifier()) + ": " +
           impl_->originalRequest->method + " " + (url ? url->absoluteString() : "(null)") + ">";
}

}  // namespace vexim
