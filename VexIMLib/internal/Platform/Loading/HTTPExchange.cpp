#include "VexIMLib/internal/Platform/Loading/HTTPExchange.h"

#include <curl/curl.h>

#include <algorithm>
#include <utility>

#include "VexIMLib/internal/Foundation/Text/ASCII.h"
#include "VexIMLib/internal/Platform/Facts/URLErrors.h"
#include "VexIMLib/internal/Platform/Loading/AnswerHead.h"
#include "VexIMLib/internal/Platform/Loading/BodyReader.h"
#include "VexIMLib/internal/Platform/Loading/CurlHandle.h"
#include "VexIMLib/internal/Platform/Loading/CurlMulti.h"
#include "VexIMLib/internal/Platform/Threads/HostResolver.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"

namespace vexim {
namespace {

/// The first flow-control window of HTTP/2. libcurl 7.88 spins if a server answers a longer upload
/// without reading it, so longer ones use HTTP/1.1.
constexpr std::size_t kMostHTTP2BodyBytes = 32 * 1024;
constexpr const char* kEncodings = "gzip, deflate, br";

/// Whether its body is sent piece by piece, over HTTP/1.1.
bool isLongUpload(const URLRequest& request) {
    return request.body.size() > kMostHTTP2BodyBytes ||
           (request.body.empty() && request.bodyStream);
}

/// Header fields for the framing, which only libcurl may write.
bool isFraming(std::string_view name) {
    return sameHeaderName(name, "Content-Length") || sameHeaderName(name, "Transfer-Encoding") ||
           sameHeaderName(name, "Expect");
}

}  // namespace

std::optional<std::uint64_t> announcedBodyLength(const URLRequest& request) {
    if (!request.body.empty() || !request.bodyStream) return request.body.size();
    const std::string* const header = request.headers.find("Content-Length");
    const auto length = header ? parseContentLength(detail::trimmed(*header)) : std::nullopt;
    if (!length) return std::nullopt;
    return static_cast<std::uint64_t>(*length);
}

/// It has more than 25 functions because libcurl calls back for each thing that happens, and each
/// option has to fit the others.
class HTTPExchange::Impl final : public CurlMulti::Exchange {
public:
    Impl(Handler& handler, std::shared_ptr<const URLRequest> request,
         std::shared_ptr<const Trust> trust);
    ~Impl() override;

    void transferEnded(CURLcode result) override;
    void resumeReceiving();
    std::int64_t bytesMoved() const;
    bool isStalledByUs() const {
        return receivingPaused_ || (sendingPaused_ && reader_ && reader_->isAwaited()) ||
               (hasNoConnection() && !mayShare_);
    }
    bool waitsForSharedConnection() const { return hasNoConnection() && mayShare_; }
    void openOwnConnection();
    void giveUpConnection() { curl_easy_setopt(easy(), CURLOPT_FORBID_REUSE, 1L); }

private:
    CURL* easy() const { return handle_->easy(); }
    bool hasNoConnection() const { return running_ && !hasBegunToConnect() && !requested_; }
    void describeRequest();
    void describeHeaders();
    void describeBody();
    void setCallbacks();

    static std::size_t onHeader(char* bytes, std::size_t size, std::size_t count, void* self);
    static std::size_t onBody(char* bytes, std::size_t size, std::size_t count, void* self);
    static std::size_t onRead(char* buffer, std::size_t size, std::size_t count, void* self);
    static int onSeek(void* self, curl_off_t offset, int origin);
    static int onRequest(void* self, char* address, char* localAddress, int port, int localPort);

    bool receiveHeader(std::string_view line);
    bool finishHead();
    bool refuseHead(const char* words);
    std::size_t giveBody(char* buffer, std::size_t most);
    void stopSending();
    void resumeSending();
    void unpause();
    void reportSent();
    ErrorPtr describeFailure(CURLcode result) const;

    Handler& handler_;
    const std::shared_ptr<const URLRequest> request_;
    CurlMulti& multi_;
    std::unique_ptr<CurlHandle> handle_;
    std::unique_ptr<BodyReader> reader_;
    bool decodes_ = false;
    bool running_ = false;
    bool mayShare_ = false;   // may use a connection that another exchange opens
    bool requested_ = false;  // the request has gone to a connection

    AnswerHead head_;
    std::int64_t bodyBytes_ = 0;
    bool hasBody_ = false;
    bool isChunked_ = false;
    std::int64_t given_ = 0;  // of the body, to libcurl
    std::int64_t reportedSent_ = 0;
    bool receivingPaused_ = false;
    bool sendingPaused_ = false;
    bool sendingStopped_ = false;
    const std::shared_ptr<void> lifeline_ = std::make_shared<char>();
    ErrorPtr failure_;  // found by a callback that then stopped the transfer
};

HTTPExchange::Impl::Impl(Handler& handler, std::shared_ptr<const URLRequest> request,
                         std::shared_ptr<const Trust> trust)
    : handler_(handler),
      request_(std::move(request)),
      // Two pools, because libcurl would send a request that wants HTTP/1.1 on an idle HTTP/2
      // connection.
      multi_(isLongUpload(*request_) ? CurlHandle::multiForUploads() : CurlHandle::multi()),
      handle_(CurlHandle::take()) {
    handle_->trust().apply(easy(), std::move(trust), request_->url->host());
    describeRequest();
    describeHeaders();
    describeBody();
    setCallbacks();
    running_ = true;
    multi_.add(easy());
}

HTTPExchange::Impl::~Impl() {
    if (running_) multi_.remove(easy());
    CurlHandle::recycle(std::move(handle_));
}

void HTTPExchange::Impl::describeRequest() {
    multi_.prepare(easy(), *this);
    handle_->setURL(*request_->url);
    curl_easy_setopt(easy(), CURLOPT_PROXY, isThisMachine(request_->url->host()) ? "" : nullptr);
    curl_easy_setopt(easy(), CURLOPT_CONNECTTIMEOUT_MS,
                     static_cast<long>(request_->timeout.count()));
    decodes_ = request_->acceptsCompression && !request_->headers.contains("Accept-Encoding");
    curl_easy_setopt(easy(), CURLOPT_ACCEPT_ENCODING, decodes_ ? kEncodings : nullptr);
}

void HTTPExchange::Impl::describeHeaders() {
    CurlHeaderList& lines = handle_->headers();
    for (const auto& [name, value] : request_->headers) {
        if (isHeaderName(name) && isHeaderValue(value) && !isFraming(name)) lines.add(name, value);
    }
    // Added here, because libcurl would format its own line twice.
    if (decodes_) lines.add("Accept-Encoding", kEncodings);
    lines.suppress("Expect");  // costs a round trip, and few servers handle it well
    if (!request_->headers.contains("Content-Type")) lines.suppress("Content-Type");
    curl_easy_setopt(easy(), CURLOPT_HTTPHEADER, lines.get());
}

void HTTPExchange::Impl::describeBody() {
    const std::string& method = request_->method;
    const auto length = announcedBodyLength(*request_);
    const bool streamed = request_->body.empty() && request_->bodyStream;
    hasBody_ = streamed || !request_->body.empty();

    curl_easy_setopt(easy(), CURLOPT_UPLOAD, 0L);
    curl_easy_setopt(easy(), CURLOPT_HTTPGET, 1L);
    curl_easy_setopt(easy(), CURLOPT_CUSTOMREQUEST, method.c_str());
    const bool longUpload = isLongUpload(*request_);
    if (longUpload) {
        curl_easy_setopt(easy(), CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(easy(), CURLOPT_INFILESIZE_LARGE,
                         length ? static_cast<curl_off_t>(*length) : curl_off_t{-1});
        if (streamed)
            reader_ = std::make_unique<BodyReader>(request_->bodyStream, length,
                                                   [this] { resumeSending(); });
        isChunked_ = !length;
    } else if (hasBody_ || method == "POST" || method == "PUT" || method == "PATCH") {
        curl_easy_setopt(easy(), CURLOPT_POST, 1L);
        curl_easy_setopt(easy(), CURLOPT_POSTFIELDS, hasBody_ ? request_->body.view().data() : "");
        curl_easy_setopt(easy(), CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request_->body.size()));
    } else if (method == "HEAD") {
        curl_easy_setopt(easy(), CURLOPT_NOBODY, 1L);
    }
    // An idle connection may be closing right now, and the started body would be lost with it. So
    // streams open a new connection, and close it, since no other stream would use it.
    curl_easy_setopt(easy(), CURLOPT_FRESH_CONNECT, streamed ? 1L : 0L);
    curl_easy_setopt(easy(), CURLOPT_FORBID_REUSE, streamed ? 1L : 0L);
    // Share an HTTP/2 connection that is being opened rather than open another. Without HTTP/2 that
    // would only mean waiting.
    mayShare_ = !longUpload && request_->url->scheme() == "https";
    curl_easy_setopt(easy(), CURLOPT_PIPEWAIT, mayShare_ ? 1L : 0L);
    curl_easy_setopt(
        easy(), CURLOPT_HTTP_VERSION,
        static_cast<long>(longUpload ? CURL_HTTP_VERSION_1_1 : CURL_HTTP_VERSION_2TLS));
    // Streamed bodies are sent in long pieces. Short bodies use a short buffer, because libcurl
    // allocates it again for each request over TLS.
    curl_easy_setopt(easy(), CURLOPT_UPLOAD_BUFFERSIZE, longUpload ? 128L * 1024 : 16L * 1024);
    curl_easy_setopt(easy(), CURLOPT_BUFFERSIZE,
                     request_->acceptsCompression ? 16L * 1024 : 256L * 1024);
}

void HTTPExchange::Impl::setCallbacks() {
    curl_easy_setopt(easy(), CURLOPT_HEADERFUNCTION, &Impl::onHeader);
    curl_easy_setopt(easy(), CURLOPT_HEADERDATA, this);
    curl_easy_setopt(easy(), CURLOPT_WRITEFUNCTION, &Impl::onBody);
    curl_easy_setopt(easy(), CURLOPT_WRITEDATA, this);
    curl_easy_setopt(easy(), CURLOPT_READFUNCTION, &Impl::onRead);
    curl_easy_setopt(easy(), CURLOPT_READDATA, this);
    curl_easy_setopt(easy(), CURLOPT_SEEKFUNCTION, &Impl::onSeek);
    curl_easy_setopt(easy(), CURLOPT_SEEKDATA, this);
    curl_easy_setopt(easy(), CURLOPT_PREREQFUNCTION, &Impl::onRequest);
    curl_easy_setopt(easy(), CURLOPT_PREREQDATA, this);
}

int HTTPExchange::Impl::onRequest(void* self, char*, char*, int, int) {
    auto& impl = *static_cast<Impl*>(self);
    if (!std::exchange(impl.requested_, true)) return CURL_PREREQFUNC_OK;
    // libcurl would resend a request that an idle connection took and did not answer. But the
    // server may have acted on the first one, so only the caller may decide to send it again.
    impl.failure_ = makeURLError(URLErrorNetworkConnectionLost, impl.request_->url,
                                 "the server closed the connection without an answer");
    return CURL_PREREQFUNC_ABORT;
}

void HTTPExchange::Impl::openOwnConnection() {
    if (!waitsForSharedConnection()) return;
    multi_.remove(easy());
    mayShare_ = false;
    curl_easy_setopt(easy(), CURLOPT_PIPEWAIT, 0L);
    multi_.add(easy());
}

std::size_t HTTPExchange::Impl::onHeader(char* bytes, std::size_t size, std::size_t count,
                                         void* self) {
    const std::size_t length = size * count;
    return static_cast<Impl*>(self)->receiveHeader({bytes, length}) ? length : 0;
}

bool HTTPExchange::Impl::receiveHeader(std::string_view line) {
    const bool isEnd = head_.add(line);
    if (head_.isTooLong()) return refuseHead("the header of the answer is too long");
    return !isEnd || finishHead();
}

bool HTTPExchange::Impl::finishHead() {
    long status = 0;
    curl_easy_getinfo(easy(), CURLINFO_RESPONSE_CODE, &status);
    if (status < 200) return true;  // an interim answer
    auto head = head_.finish(*request_->url, static_cast<int>(status));
    if (!head) return refuseHead("the answer has contradictory lengths");
    reportSent();
    if (status >= 300) stopSending();
    return handler_.exchangeReceivedHead(std::move(head)) != Flow::Abort;
}

bool HTTPExchange::Impl::refuseHead(const char* words) {
    failure_ = makeURLError(URLErrorCannotParseResponse, request_->url, words);
    return false;
}

std::size_t HTTPExchange::Impl::onBody(char* bytes, std::size_t size, std::size_t count,
                                       void* self) {
    auto& impl = *static_cast<Impl*>(self);
    const std::size_t length = size * count;
    switch (impl.handler_.exchangeReceivedBody({bytes, length})) {
        case Flow::Go: break;
        case Flow::Pause: impl.receivingPaused_ = true; return CURL_WRITEFUNC_PAUSE;
        case Flow::Abort: return length == 0 ? 1 : 0;
    }
    impl.bodyBytes_ += static_cast<std::int64_t>(length);
    return length;
}

std::size_t HTTPExchange::Impl::onRead(char* buffer, std::size_t size, std::size_t count,
                                       void* self) {
    return static_cast<Impl*>(self)->giveBody(buffer, size * count);
}

std::size_t HTTPExchange::Impl::giveBody(char* buffer, std::size_t most) {
    reportSent();
    if (sendingStopped_) return 0;
    std::size_t count = 0;
    if (!reader_) {
        count = std::min(most, request_->body.size() - static_cast<std::size_t>(given_));
        std::copy_n(request_->body.view().data() + given_, count, buffer);
    } else {
        const auto taken = reader_->take(buffer, most);
        count = taken.count;
        if (taken.error) {
            failure_ = taken.error;
            return CURL_READFUNC_ABORT;
        }
        if (count == 0 && !taken.atEnd) {
            sendingPaused_ = true;
            return CURL_READFUNC_PAUSE;
        }
    }
    given_ += static_cast<std::int64_t>(count);
    return count;
}

int HTTPExchange::Impl::onSeek(void* self, curl_off_t offset, int origin) {
    // libcurl wants to send the body again on another connection. A stream can be sent only once.
    auto& impl = *static_cast<Impl*>(self);
    if (!impl.reader_ && origin == SEEK_SET) {
        impl.given_ = offset;
        return CURL_SEEKFUNC_OK;
    }
    impl.failure_ = makeURLError(URLErrorRequestBodyStreamExhausted, impl.request_->url);
    return CURL_SEEKFUNC_FAIL;
}

/// The server has refused: it does not want the rest of the body and may never read it. The
/// connection cannot be reused.
void HTTPExchange::Impl::stopSending() {
    if (!isLongUpload(*request_) || sendingStopped_) return;
    sendingStopped_ = true;
    curl_easy_setopt(easy(), CURLOPT_FORBID_REUSE, 1L);
    // This runs inside libcurl, so we cannot make it ask for the body again here.
    NetworkThread::shared().post([this, weak = std::weak_ptr<void>(lifeline_)] {
        if (!weak.expired()) resumeSending();
    });
}

void HTTPExchange::Impl::resumeSending() {
    if (running_ && std::exchange(sendingPaused_, false)) unpause();
}

void HTTPExchange::Impl::resumeReceiving() {
    if (running_ && std::exchange(receivingPaused_, false)) unpause();
}

void HTTPExchange::Impl::unpause() {
    const int stillPaused =
        (receivingPaused_ ? CURLPAUSE_RECV : 0) | (sendingPaused_ ? CURLPAUSE_SEND : 0);
    const CURLcode result = curl_easy_pause(easy(), stillPaused);
    if (result == CURLE_OK) return;
    // libcurl passed on bytes that it had kept, and we refused them. Nothing else reports that.
    multi_.remove(easy());
    transferEnded(result);
}

std::int64_t HTTPExchange::Impl::bytesMoved() const {
    curl_off_t sent = 0;
    if (hasBody_) curl_easy_getinfo(easy(), CURLINFO_SIZE_UPLOAD_T, &sent);
    return static_cast<std::int64_t>(head_.bytes()) + bodyBytes_ + sent;
}

void HTTPExchange::Impl::reportSent() {
    if (!hasBody_) return;
    curl_off_t sent = given_;  // libcurl asks for more only when it has sent the earlier bytes
    // with chunks, libcurl's figure includes their framing
    if (!isChunked_) curl_easy_getinfo(easy(), CURLINFO_SIZE_UPLOAD_T, &sent);
    if (sent <= reportedSent_) return;
    reportedSent_ = sent;
    handler_.exchangeSentBody(sent);
}

ErrorPtr HTTPExchange::Impl::describeFailure(CURLcode result) const {
    if (failure_) return failure_;
    if (result == CURLE_OUT_OF_MEMORY) {
        // libcurl returns this for a header or trailer line that is too long for it.
        return makeURLError(URLErrorCannotParseResponse, request_->url,
                            "a line of the answer is too long");
    }
    const auto text = handle_->errorText(result);
    if (const auto fault = handle_->trust().fault(easy(), result, text)) {
        return makeTrustError(fault->code, request_->url, fault->words);
    }
    return makeURLError(urlErrorCodeForTransferResult(result), request_->url, text);
}

void HTTPExchange::Impl::transferEnded(CURLcode result) {
    running_ = false;
    reportSent();
    ErrorPtr error = result == CURLE_OK && !failure_ ? nullptr : describeFailure(result);
    // libcurl accepts a header that is cut off.
    if (!error && !head_.isComplete())
        error =
            makeURLError(URLErrorNetworkConnectionLost, request_->url, "the header is incomplete");
    handler_.exchangeEnded(std::move(error));  // may destroy this
}

HTTPExchange::HTTPExchange(Handler& handler, std::shared_ptr<const URLRequest> request,
                           std::shared_ptr<const Trust> trust)
    : impl_(std::make_unique<Impl>(handler, std::move(request), std::move(trust))) {}

HTTPExchange::~HTTPExchange() = default;
void HTTPExchange::resumeReceiving() { impl_->resumeReceiving(); }
std::int64_t HTTPExchange::bytesMoved() const { return impl_->bytesMoved(); }
bool HTTPExchange::isStalledByUs() const { return impl_->isStalledByUs(); }
bool HTTPExchange::waitsForSharedConnection() const { return impl_->waitsForSharedConnection(); }
void HTTPExchange::openOwnConnection() { impl_->openOwnConnection(); }
void HTTPExchange::giveUpConnection() { impl_->giveUpConnection(); }

}  // namespace vexim
