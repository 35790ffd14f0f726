#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/Platform/Loading/HTTPExchange.h"
#include "VexIMLib/internal/Platform/Loading/URLRequest.h"
#include "VexIMLib/internal/Platform/Loading/URLResponse.h"
#include "VexIMLib/internal/Platform/Threads/OperationQueue.h"

namespace vexim {

struct URLSessionConfiguration;

/// The events of a load, in order: bodies sent and redirections, then a response, data, and always
/// one end.
namespace LoadEvent {
struct SentBody {
    std::int64_t total = 0;
};
struct Redirection {
    HTTPURLResponsePtr response;
    URLRequest newRequest;
};
struct Response {
    HTTPURLResponsePtr response;
};
struct Received {
    Data data;
};
struct End {
    ErrorPtr error;
};
using Any = std::variant<SentBody, Redirection, Response, Received, End>;
}  // namespace LoadEvent

/// One task on the network thread: its redirections, its timeouts, and passing the answer to the
/// delegate queue. Public functions may be called from any thread unless they say otherwise.
///
/// It has more than 25 functions because each event of an exchange and each decision has one, and
/// all of them depend on the same phase. `LoadRunner` has what loads share.
class URLLoad final : public std::enable_shared_from_this<URLLoad>, private HTTPExchange::Handler {
public:
    class Client {
    public:
        /// Called on the delegate queue, one event at a time.
        virtual void loadDidProgress(LoadEvent::Any event) = 0;

    protected:
        ~Client() = default;
    };

    URLLoad(std::shared_ptr<const URLRequest> request,
            std::shared_ptr<const URLSessionConfiguration> configuration,
            std::shared_ptr<OperationQueue> delegateQueue);
    ~URLLoad();

    /// Keeps `client` alive until the end was delivered.
    void begin(std::shared_ptr<Client> client);
    /// Ends it with -999, unless it is ending already.
    void cancel();
    /// Decides about a `Redirection`: the next request, or nullopt to accept it as the answer. Only
    /// the first call for each counts.
    void decideRedirection(std::optional<URLRequest> request);
    /// The delegate has consumed these bytes, so receiving may continue, into the same memory.
    void consumed(Data data);
    /// Frees that memory. Call it after the end, because tasks are kept longer than transfers.
    void freeSpareMemory();
    /// Removes the limit on the answer's length.
    void setAnswerIsStreamed(bool streamed) noexcept { streamed_ = streamed; }
    bool answerIsStreamed() const noexcept { return streamed_; }
    /// Says that the client is quick with short answers, so it may get them on the network thread
    /// instead of the delegate queue.
    void setMayCallOnNetworkThread(bool may) noexcept { mayCallOnNetworkThread_ = may; }

private:
    friend class LoadRunner;
    using TimePoint = Clock::TimePoint;
    enum class Phase { Idle, Exchanging, Deciding, Ended };

    // The functions from here on run on the network thread only.
    HTTPExchange::Flow exchangeReceivedHead(HTTPURLResponsePtr head) override;
    HTTPExchange::Flow exchangeReceivedBody(std::string_view bytes) override;
    void exchangeSentBody(std::int64_t total) override;
    void exchangeEnded(ErrorPtr error) override;

    void startHop();
    ErrorPtr refusal() const;
    bool rewindBody();
    void askForRedirection();
    void followRedirection(std::optional<URLRequest> request);
    void takeRedirectionAsAnswer();
    HTTPExchange::Flow passOn(std::string_view bytes);
    void makeRoomFor(std::size_t bytes);
    void flushData();
    void flushSent();
    void emit(LoadEvent::Any event);
    void end(ErrorPtr error);
    /// Call it when bytes were received or sent. `uncounted` of them are not in `bytesMoved` yet.
    void didTransfer(std::size_t uncounted = 0);
    /// Ends it if it was silent for too long. Otherwise returns when to check again.
    TimePoint checkTimeouts(TimePoint now);
    TimePoint nextTimeoutCheck() const;

    const std::shared_ptr<const URLSessionConfiguration> configuration_;
    const TrustChoice trust_;  // the first request's, for every hop
    const std::shared_ptr<OperationQueue> delegateQueue_;
    std::atomic<bool> streamed_{false};
    std::atomic<bool> mayCallOnNetworkThread_{false};
    std::atomic<std::int64_t> unconsumed_{0};  // bytes handed over and not yet consumed
    std::atomic<bool> throttled_{false};       // receiving pauses until enough is consumed

    // The buffers of pieces that were consumed. Without them, each piece's memory would go back to
    // the system on one thread and come from it again, page by page, on another.
    Mutex spareMutex_;
    std::vector<std::string> spare_ VEXIM_GUARDED_BY(spareMutex_);

    Phase phase_ = Phase::Idle;
    std::shared_ptr<Client> client_;
    std::shared_ptr<const URLRequest> request_;
    std::unique_ptr<HTTPExchange> exchange_;
    std::string data_;  // received, not yet handed over
    std::int64_t received_ = 0;
    std::int64_t expected_ = -1;
    std::int64_t sent_ = 0;  // of the request's body
    std::int64_t sentReported_ = 0;
    TimePoint nextSentReport_;

    // A redirection that is waiting for a decision. Its answer is kept, because it may become the
    // final one.
    std::optional<LoadEvent::Redirection> redirection_;
    std::string heldBody_;
    bool heldBodyEnded_ = false;
    int hops_ = 0;

    TimePoint lastMove_;
    std::int64_t lastMoved_ = 0;
    TimePoint resourceDeadline_;
};

}  // namespace vexim
