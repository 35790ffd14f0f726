#include "VexIMLib/internal/SocketIO/Transports/PollingTransport.h"

#include <curl/curl.h>

#include <memory>
#include <string_view>
#include <utility>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/internal/Foundation/Text/ASCII.h"
#include "VexIMLib/internal/Platform/Loading/CurlHandle.h"
#include "VexIMLib/internal/Platform/Loading/CurlMulti.h"
#include "VexIMLib/internal/Platform/Loading/HTTPHeaderFields.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThreadAsio.h"
#include "VexIMLib/internal/SocketIO/Protocol/BoundedAppend.h"
#include "VexIMLib/internal/SocketIO/Protocol/ConnectionError.h"
#include "VexIMLib/internal/SocketIO/Protocol/CookieJar.h"

namespace vexim {
namespace {

using namespace std::chrono_literals;

constexpr auto kGoodbye = 1s;

// The limit for an answer's header together with the trailers after a chunked body (RFC 9112,
// section 7.1.2).
constexpr std::size_t kMaxHeadBytes = 64 * 1024;

class LivePolling;

/// One GET or POST at a time; the handle keeps its settings.
class Request final : public CurlMulti::Exchange {
public:
    Request(LivePolling& owner, CurlMulti& multi, const TransportOptions& options);
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;
    ~Request() override;

    void start(const std::string& url, const std::string& cookies,
               std::chrono::milliseconds timeout, std::optional<std::string> body);
    bool isRunning() const noexcept { return isRunning_; }
    int status() const;
    std::string takeAnswer() { return std::exchange(answer_, {}); }
    const std::vector<std::string>& cookies() const noexcept { return cookies_; }
    event::RequestFailed failure(CURLcode result) const;

private:
    static std::size_t onRead(char* into, std::size_t size, std::size_t count, void* self);
    static std::size_t onBody(char* bytes, std::size_t size, std::size_t count, void* self);
    static std::size_t onHeader(char* bytes, std::size_t size, std::size_t count, void* self);
    void transferEnded(CURLcode result) override;

    LivePolling& owner_;
    CurlMulti& multi_;
    const TransportOptions& options_;
    CurlHandle handle_;
    CURL* const easy_ = handle_.easy();
    std::string body_;
    std::size_t bodySent_ = 0;
    std::string answer_;
    std::size_t headBytes_ = 0;
    std::vector<std::string> cookies_;
    bool isRunning_ = false;
    bool isTooLarge_ = false;
};

class LivePolling final : public std::enable_shared_from_this<LivePolling> {
public:
    LivePolling(TransportOptions options, TransportListener& listener)
        : options_(std::move(options)),
          listener_(&listener),
          multi_(NetworkThreadAsio::ioContext(), {}),
          get_(*this, multi_, options_),
          post_(*this, multi_, options_) {}

    void get(const std::string& target, const std::string& cookies,
             std::chrono::milliseconds timeout) {
        get_.start(urlOf(target), cookies, timeout, std::nullopt);
    }
    void post(const std::string& target, const std::string& cookies, std::string body) {
        post_.start(urlOf(target), cookies, kPostTimeout, std::move(body));
    }
    void close(const std::string& target, const std::string& cookies, std::string body);
    void forget() { listener_ = nullptr; }

    void didEnd(Request& request, CURLcode result);

private:
    static constexpr std::chrono::milliseconds kPostTimeout{20'000};

    std::string urlOf(const std::string& target) const {
        return (options_.endpoint.isSecure ? "https://" : "http://") +
               options_.endpoint.authorityWithPort() + target;
    }
    void releaseSelf();

    const TransportOptions options_;
    TransportListener* listener_;  // nullptr once nothing must be called any more
    // A separate pool: other requests may use another trust, and idle connections are closed with
    // their client.
    CurlMulti multi_;
    Request get_;
    Request post_;

    // It keeps itself alive while it closes.
    std::shared_ptr<LivePolling> self_;
    NetworkTimer goodbye_;
    struct Farewell {
        std::string target;
        std::string cookies;
        std::string body;
    };
    std::optional<Farewell> farewell_;
};

Request::Request(LivePolling& owner, CurlMulti& multi, const TransportOptions& options)
    : owner_(owner),
      multi_(multi),
      options_(options) {
    multi_.prepare(easy_, *this);
    curl_easy_setopt(easy_, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(easy_, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &Request::onBody);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(easy_, CURLOPT_HEADERFUNCTION, &Request::onHeader);
    curl_easy_setopt(easy_, CURLOPT_HEADERDATA, this);
    // Uses the same proxy as WebSockets; libcurl must not read the environment again.
    curl_easy_setopt(easy_, CURLOPT_NOPROXY, "");
    curl_easy_setopt(easy_, CURLOPT_PROXY, "");
    if (const auto& proxy = options_.proxy) {
        curl_easy_setopt(easy_, CURLOPT_PROXY,
                         ("http://" + authorityOf(proxy->host, proxy->port)).c_str());
        curl_easy_setopt(easy_, CURLOPT_HTTPPROXYTUNNEL, 1L);
        if (proxy->user) {
            curl_easy_setopt(easy_, CURLOPT_PROXYUSERNAME, proxy->user->c_str());
            curl_easy_setopt(easy_, CURLOPT_PROXYPASSWORD, proxy->password.c_str());
        }
    }
    handle_.trust().apply(easy_, options_.trust.trust, options_.endpoint.host);
}

Request::~Request() {
    if (isRunning_) multi_.remove(easy_);
}

void Request::start(const std::string& url, const std::string& cookies,
                    std::chrono::milliseconds timeout, std::optional<std::string> body) {
    answer_.clear();
    headBytes_ = 0;
    cookies_.clear();
    handle_.forgetLast();
    isTooLarge_ = false;
    auto& headers = handle_.headers();
    for (const auto& [name, value] : withCookies(options_.headers, cookies)) {
        const bool isOurs = body && detail::equalsIgnoringCase(name, "Content-Type");
        if (!isOurs) headers.add(name, value);
    }
    headers.suppress("Expect");
    if (body) {
        headers.add("Content-Type", "text/plain;charset=UTF-8");
        // libcurl resends a request if an idle connection turns out to be dead. A body that cannot
        // be rewound is not sent twice, so no message arrives twice. Before its first byte the
        // retry is fine.
        body_ = std::move(*body);
        bodySent_ = 0;
        curl_easy_setopt(easy_, CURLOPT_POST, 1L);
        curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body_.size()));
        curl_easy_setopt(easy_, CURLOPT_READFUNCTION, &Request::onRead);
        curl_easy_setopt(easy_, CURLOPT_READDATA, this);
    }
    curl_easy_setopt(easy_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(easy_, CURLOPT_TIMEOUT_MS, static_cast<long>(timeout.count()));
    isRunning_ = true;
    multi_.add(easy_);
}

std::size_t Request::onRead(char* into, std::size_t size, std::size_t count, void* self) {
    auto& request = *static_cast<Request*>(self);
    const std::size_t copied = request.body_.copy(into, size * count, request.bodySent_);
    request.bodySent_ += copied;
    return copied;
}

std::size_t Request::onBody(char* bytes, std::size_t size, std::size_t count, void* self) {
    auto& request = *static_cast<Request*>(self);
    if (request.answer_.size() + size * count > request.options_.maxMessageBytes) {
        request.isTooLarge_ = true;
        return 0;
    }
    appendBounded(request.answer_, {bytes, size * count}, request.options_.maxMessageBytes);
    return size * count;
}

std::size_t Request::onHeader(char* bytes, std::size_t size, std::size_t count, void* self) {
    auto& request = *static_cast<Request*>(self);
    const std::string_view line(bytes, size * count);
    request.headBytes_ += line.size();
    if (request.headBytes_ > kMaxHeadBytes) {
        request.isTooLarge_ = true;
        return 0;
    }
    const auto colon = line.find(':');
    if (colon != line.npos && sameHeaderName(line.substr(0, colon), "Set-Cookie"))
        request.cookies_.emplace_back(detail::trimmed(line.substr(colon + 1)));
    return size * count;
}

int Request::status() const {
    long status = 0;
    curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
    return static_cast<int>(status);
}

event::RequestFailed Request::failure(CURLcode result) const {
    // libcurl reports a header of more than 100 KB as out of memory.
    if (isTooLarge_ || result == CURLE_OUT_OF_MEMORY) {
        return {"The server's answer is too long.", true, VXIMConnectionErrorLimitPassed};
    }
    long proxyStatus = 0;
    curl_easy_getinfo(easy_, CURLINFO_HTTP_CONNECTCODE, &proxyStatus);
    if (proxyStatus >= 300)
        return {proxyRefusal(static_cast<int>(proxyStatus)), false, VXIMConnectionErrorProxy};
    const std::string_view text = handle_.errorText(result);
    if (const auto fault = handle_.trust().fault(easy_, result, text)) {
        const bool isCut = fault->code == URLErrorNetworkConnectionLost;
        return {fault->words, false,
                isCut ? VXIMConnectionErrorLost : VXIMConnectionErrorNotSecure};
    }
    const TransferFault fault = faultOfTransfer(result, text);
    return {std::string(fault.words), false, fault.kind};
}

void Request::transferEnded(CURLcode result) {
    isRunning_ = false;
    owner_.didEnd(*this, result);
}

void LivePolling::didEnd(Request& request, CURLcode result) {
    const auto owner = shared_from_this();  // the listener may release it
    if (!listener_) {
        if (&request != &post_) return;
        if (farewell_) {
            const Farewell last = std::move(*farewell_);
            farewell_.reset();
            return post_.start(urlOf(last.target), last.cookies, kGoodbye, last.body);
        }
        return releaseSelf();
    }
    TransportListener& listener = *listener_;
    if (!request.cookies().empty()) listener.didReceiveCookies(request.cookies());
    if (result != CURLE_OK) {
        listener.didHappen(request.failure(result));
    } else if (&request == &get_) {
        const std::string body = request.takeAnswer();  // the next request overwrites it
        listener.didHappen(event::GetAnswered{request.status(), body});
    } else {
        const std::string body = request.takeAnswer();
        listener.didHappen(event::PostAnswered{request.status(), body});
    }
    if (listener_) listener_->didEndTurn();
}

void LivePolling::close(const std::string& target, const std::string& cookies, std::string body) {
    listener_ = nullptr;
    self_ = shared_from_this();
    goodbye_.start(kGoodbye, [this] { releaseSelf(); });
    // Keep the GET: a server that loses it drops the session, and with it the POST's contents.
    if (post_.isRunning()) {
        farewell_ = Farewell{target, cookies, std::move(body)};
    } else {
        post_.start(urlOf(target), cookies, kGoodbye, std::move(body));
    }
}

void LivePolling::releaseSelf() {
    // Handles must not be destroyed inside their own callbacks.
    goodbye_.cancel();
    NetworkThread::shared().post([self = std::exchange(self_, nullptr)] {});
}

/// The link holds this. Releasing it drops the transport, unless it is closing.
class PollingHandle final : public PollingTransport {
public:
    explicit PollingHandle(std::shared_ptr<LivePolling> polling) : polling_(std::move(polling)) {}
    ~PollingHandle() override {
        polling_->forget();
        NetworkThread::shared().post([polling = std::move(polling_)] {});
    }
    void get(const std::string& target, const std::string& cookies,
             std::chrono::milliseconds timeout) override {
        polling_->get(target, cookies, timeout);
    }
    void post(const std::string& target, const std::string& cookies, std::string body) override {
        polling_->post(target, cookies, std::move(body));
    }
    void close(const std::string& target, const std::string& cookies, std::string body) override {
        polling_->close(target, cookies, std::move(body));
    }

private:
    std::shared_ptr<LivePolling> polling_;
};

}  // namespace

std::unique_ptr<PollingTransport> PollingTransport::create(TransportOptions options,
                                                           TransportListener& listener) {
    return std::make_unique<PollingHandle>(
        std::make_shared<LivePolling>(std::move(options), listener));
}

}  // namespace vexim
