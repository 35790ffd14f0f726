#include "VexIMLib/internal/Platform/Loading/URLLoad.h"

#include <curl/curl.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <utility>
#include <vector>

#include "VexIMLib/internal/Platform/Facts/URLErrors.h"
#include "VexIMLib/internal/Platform/Loading/LoadRunner.h"
#include "VexIMLib/internal/Platform/Loading/Redirection.h"
#include "VexIMLib/internal/Platform/Loading/URLSession.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThreadAsio.h"

namespace vexim {
namespace {

constexpr int kMostHops = 20;
constexpr std::size_t kMostHeldBody = 64 * 1024;
// passed to the delegate queue piece by piece; a piece and its copies fit in a core's cache
constexpr std::size_t kDataPiece = 256 * 1024;
constexpr std::int64_t kMostUnconsumed = 1024 * 1024;
constexpr std::size_t kMostSpare = kMostUnconsumed / kDataPiece;
constexpr std::int64_t kMostOnNetworkThread =
    64 * 1024;  // takes a fraction of a millisecond to parse
constexpr std::chrono::milliseconds kSentReportInterval{10};
// as browsers do, when an HTTPS connection takes long to open
constexpr std::chrono::milliseconds kMostWaitToShare{300};

TrustChoice trustFor(const URLRequest& request) {
    const bool isChosen = request.trust.trust || !request.trust.fault.empty();
    return isChosen ? request.trust : TrustChoice::of(TrustOptions{});
}

}  // namespace

URLLoad::URLLoad(std::shared_ptr<const URLRequest> request,
                 std::shared_ptr<const URLSessionConfiguration> configuration,
                 std::shared_ptr<OperationQueue> delegateQueue)
    : configuration_(std::move(configuration)),
      trust_(trustFor(*request)),
      delegateQueue_(std::move(delegateQueue)),
      request_(std::move(request)) {}

URLLoad::~URLLoad() = default;

void URLLoad::begin(std::shared_ptr<Client> client) {
    NetworkThread::shared().post([self = shared_from_this(), client = std::move(client)]() mutable {
        self->client_ = std::move(client);
        if (self->phase_ == Phase::Ended) {
            self->emit(LoadEvent::End{makeURLError(URLErrorCancelled, self->request_->url)});
            self->client_ = nullptr;
            return;
        }
        LoadRunner::shared().add(self.get());
        self->resourceDeadline_ = Clock::shared()->now() + self->configuration_->timeoutForResource;
        self->startHop();
    });
}

void URLLoad::cancel() {
    NetworkThread::shared().post([self = shared_from_this()] {
        if (self->phase_ == Phase::Idle) {
            self->phase_ = Phase::Ended;  // before its start, which reports it
        } else {
            self->end(makeURLError(URLErrorCancelled, self->request_->url));
        }
    });
}

void URLLoad::freeSpareMemory() {
    const MutexLock lock(spareMutex_);
    spare_ = {};
}

void URLLoad::decideRedirection(std::optional<URLRequest> request) {
    NetworkThread::shared().post(
        [self = shared_from_this(), request = std::move(request)]() mutable {
            if (self->phase_ == Phase::Deciding) self->followRedirection(std::move(request));
        });
}

void URLLoad::consumed(Data data) {
    const auto bytes = static_cast<std::int64_t>(data.size());
    if (streamed_) {
        auto buffer = std::move(data).takeString();
        const MutexLock lock(spareMutex_);
        if (spare_.size() < kMostSpare) spare_.push_back(std::move(buffer));
    }
    const auto left = unconsumed_.fetch_sub(bytes) - bytes;
    if (left > kMostUnconsumed / 2 || !throttled_.exchange(false)) return;
    NetworkThread::shared().post([self = shared_from_this()] {
        if (self->exchange_ && self->phase_ == Phase::Exchanging)
            self->exchange_->resumeReceiving();
    });
}

ErrorPtr URLLoad::refusal() const {
    const auto& url = request_->url;
    if (!url || (url->scheme().empty() && url->host().empty()))
        return makeURLError(URLErrorBadURL, url);
    if (url->scheme() != "http" && url->scheme() != "https")
        return makeURLError(URLErrorUnsupportedURL, url);
    if (url->host().empty()) return makeURLError(URLErrorBadURL, url);
    if (auto fault = trust_.faultFor(url->scheme() == "https"); !fault.empty()) {
        return makeTrustError(URLErrorSecureConnectionFailed, url, fault);
    }
    if (!isHeaderName(request_->method))
        return makeURLError(URLErrorBadURL, url, "the method is not valid");
    return nullptr;
}

/// Restarts a body that was sent before, for a retry or a redirection. False if that is impossible.
bool URLLoad::rewindBody() {
    const auto& stream = request_->bodyStream;
    if (!request_->body.empty() || !stream || !stream->isClaimed()) return true;
    URLRequest again = *request_;
    again.bodyStream = stream->again();
    request_ = std::make_shared<const URLRequest>(std::move(again));
    return request_->bodyStream != nullptr;
}

void URLLoad::startHop() {
    if (ErrorPtr error = refusal()) return end(std::move(error));
    if (!rewindBody()) {
        return end(makeURLError(URLErrorRequestBodyStreamExhausted, request_->url,
                                "the body cannot be read a second time"));
    }
    phase_ = Phase::Exchanging;
    heldBody_.clear();
    heldBodyEnded_ = false;
    lastMove_ = Clock::shared()->now();
    lastMoved_ = 0;
    sent_ = sentReported_ = 0;
    nextSentReport_ = {};
    HTTPExchange::Handler& handler = *this;
    exchange_ = std::make_unique<HTTPExchange>(handler, request_, trust_.trust);
    LoadRunner::shared().checkTimeoutsAt(nextTimeoutCheck());
}

Clock::TimePoint URLLoad::nextTimeoutCheck() const {
    const auto next = std::min(lastMove_ + request_->timeout, resourceDeadline_);
    return exchange_ && exchange_->waitsForSharedConnection()
               ? std::min(next, lastMove_ + kMostWaitToShare)
               : next;
}

/// Notes the time now, so that a later `checkTimeouts` does not take these bytes for new ones.
void URLLoad::didTransfer(std::size_t uncounted) {
    lastMove_ = Clock::shared()->now();
    lastMoved_ = exchange_->bytesMoved() + static_cast<std::int64_t>(uncounted);
}

HTTPExchange::Flow URLLoad::exchangeReceivedHead(HTTPURLResponsePtr head) {
    if (phase_ == Phase::Ended) return HTTPExchange::Flow::Abort;
    didTransfer();
    flushSent();
    if (auto next = redirectedRequest(*request_, *head)) {
        redirection_ = LoadEvent::Redirection{std::move(head), std::move(*next)};
        return HTTPExchange::Flow::Go;
    }
    expected_ = head->expectedContentLength;
    emit(LoadEvent::Response{std::move(head)});
    return HTTPExchange::Flow::Go;
}

HTTPExchange::Flow URLLoad::exchangeReceivedBody(std::string_view bytes) {
    if (phase_ == Phase::Ended) return HTTPExchange::Flow::Abort;
    didTransfer(bytes.size());
    if (!redirection_) return passOn(bytes);
    if (phase_ == Phase::Exchanging && heldBody_.size() + bytes.size() <= kMostHeldBody) {
        heldBody_.append(bytes);
        return HTTPExchange::Flow::Go;
    }
    // A long body: ask now and hold back the rest.
    if (phase_ == Phase::Exchanging) askForRedirection();
    return HTTPExchange::Flow::Pause;
}

HTTPExchange::Flow URLLoad::passOn(std::string_view bytes) {
    // Do not pause an answer held in memory: libcurl would keep what it has decoded, which can be
    // as much again.
    const bool isForMemory = !streamed_ && request_->acceptsCompression;
    if (!isForMemory && unconsumed_ >= kMostUnconsumed) {
        throttled_ = true;
        // The consumer may have caught up before it saw the flag.
        if (unconsumed_ >= kMostUnconsumed || !throttled_.exchange(false))
            return HTTPExchange::Flow::Pause;
    }
    received_ += static_cast<std::int64_t>(bytes.size());
    // The delegate's side checks the limit, too, but no more than that may be queued for it.
    if (isForMemory && received_ > configuration_->maximumAnswerBytes) {
        end(makeURLError(URLErrorDataLengthExceedsMaximum, request_->url));
        return HTTPExchange::Flow::Abort;
    }
    if (data_.empty()) LoadRunner::shared().flushSoon(shared_from_this());
    makeRoomFor(bytes.size());
    data_.append(bytes);
    unconsumed_ += static_cast<std::int64_t>(bytes.size());
    if (data_.size() >= kDataPiece) flushData();
    return HTTPExchange::Flow::Go;
}

void URLLoad::makeRoomFor(std::size_t bytes) {
    // libcurl's last write may make a piece longer than necessary.
    constexpr std::size_t kMostInAPiece = kDataPiece + CURL_MAX_WRITE_SIZE;
    if (data_.empty()) {
        if (const MutexLock lock(spareMutex_); !spare_.empty()) {
            data_ = std::move(spare_.back());
            spare_.pop_back();
            data_.clear();
        }
        data_.reserve(expected_ > 0 ? std::min<std::size_t>(static_cast<std::size_t>(expected_),
                                                            kMostInAPiece)
                                    : bytes);
    }
    // By doubling, a piece could reserve twice its length.
    if (data_.size() + bytes > data_.capacity() && data_.size() >= kDataPiece / 4)
        data_.reserve(kMostInAPiece);
}

void URLLoad::exchangeSentBody(std::int64_t total) {
    if (phase_ == Phase::Ended) return;
    didTransfer();
    sent_ = total;
    // A report crosses two threads, and a fast connection would cause thousands per second. Never
    // hold back the first (it says that the body was started) or the last (it must come before what
    // follows).
    if (lastMove_ < nextSentReport_) return;
    nextSentReport_ = lastMove_ + kSentReportInterval;
    flushSent();
}

void URLLoad::flushSent() {
    if (sent_ == sentReported_) return;
    sentReported_ = sent_;
    emit(LoadEvent::SentBody{sent_});
}

void URLLoad::exchangeEnded(ErrorPtr error) {
    if (phase_ == Phase::Ended) return;
    if (error || !redirection_) return end(std::move(error));
    heldBodyEnded_ = true;
    if (phase_ == Phase::Exchanging) askForRedirection();
}

void URLLoad::askForRedirection() {
    if (hops_ >= kMostHops) {
        // Not right now, because this may run inside a call of the exchange.
        boost::asio::post(NetworkThreadAsio::ioContext(), [self = shared_from_this()] {
            self->end(makeURLError(URLErrorHTTPTooManyRedirects, self->request_->url));
        });
        return;
    }
    phase_ = Phase::Deciding;
    emit(*redirection_);
}

void URLLoad::followRedirection(std::optional<URLRequest> request) {
    if (!request) return takeRedirectionAsAnswer();
    ++hops_;
    redirection_.reset();
    exchange_.reset();
    request_ = std::make_shared<const URLRequest>(std::move(*request));
    startHop();
}

void URLLoad::takeRedirectionAsAnswer() {
    phase_ = Phase::Exchanging;
    const auto response = std::exchange(redirection_, std::nullopt)->response;
    expected_ = response->expectedContentLength;
    emit(LoadEvent::Response{response});
    if (!heldBody_.empty()) passOn(std::exchange(heldBody_, {}));
    if (heldBodyEnded_) return end(nullptr);
    exchange_->resumeReceiving();
}

void URLLoad::flushData() {
    if (!data_.empty()) emit(LoadEvent::Received{Data::fromString(std::exchange(data_, {}))});
}

void URLLoad::emit(LoadEvent::Any event) {
    LoadRunner::shared().emit(delegateQueue_, client_, std::move(event),
                              mayCallOnNetworkThread_ && received_ <= kMostOnNetworkThread);
}

void URLLoad::end(ErrorPtr error) {
    if (phase_ == Phase::Ended) return;
    phase_ = Phase::Ended;
    LoadRunner::shared().remove(this);
    flushSent();
    flushData();  // data before a failure is delivered, but not after a cancellation
    emit(LoadEvent::End{std::move(error)});
    client_ = nullptr;
    redirection_.reset();
    if (!exchange_) return;
    // This may run inside a call of the exchange, which calls this object until it is destroyed.
    boost::asio::post(NetworkThreadAsio::ioContext(),
                      [self = shared_from_this(),
                       exchange = std::shared_ptr<HTTPExchange>(std::move(exchange_))]() mutable {
                          exchange = nullptr;
                      });
}

Clock::TimePoint URLLoad::checkTimeouts(TimePoint now) {
    if (phase_ == Phase::Ended) return TimePoint::max();
    if (now >= resourceDeadline_) {
        end(makeURLError(URLErrorTimedOut, request_->url, "the task took too long"));
        return TimePoint::max();
    }
    const std::int64_t moved = exchange_ ? exchange_->bytesMoved() : 0;
    // The server is not to blame for the silence while the delegate decides, its consumer is slow,
    // the body's reader sleeps or no connection is free.
    if (moved != lastMoved_ || phase_ == Phase::Deciding || throttled_ ||
        (exchange_ && exchange_->isStalledByUs()))
        lastMove_ = now;
    lastMoved_ = moved;
    if (exchange_ && now - lastMove_ >= kMostWaitToShare) exchange_->openOwnConnection();
    if (now - lastMove_ >= request_->timeout) {
        if (exchange_) exchange_->giveUpConnection();
        end(makeURLError(URLErrorTimedOut, request_->url));
        return TimePoint::max();
    }
    return nextTimeoutCheck();
}

}  // namespace vexim
