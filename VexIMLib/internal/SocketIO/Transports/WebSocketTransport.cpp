#include "VexIMLib/internal/SocketIO/Transports/WebSocketTransport.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <utility>
#include <vector>

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include "VexIMLib/internal/Platform/Threads/NetworkThreadAsio.h"
#include "VexIMLib/internal/Platform/Trust/CertificateFault.h"
#include "VexIMLib/internal/Platform/Trust/TlsSession.h"
#include "VexIMLib/internal/SocketIO/Transports/WebSocketStream.h"

namespace vexim {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using namespace std::chrono_literals;

// How long to try one of several addresses before the next.
constexpr auto kPerAddress = 3s;
constexpr auto kGoodbye = 1s;
constexpr std::size_t kMaxProxyHead = 16 * 1024;
// The most reads in a row, so that a busy connection leaves time for others.
constexpr int kReadsPerTurn = 4;
// The size of messages delivered together. Each counts a quarter of a KiB more, which is about its
// cost. A read of compressed ones can grow a thousandfold.
constexpr std::size_t kPortionBytes = 256 * 1024;
constexpr std::size_t kMessageBytes = 256;

/// The buffer for reading sockets. One for all, because nothing stays in it between two turns.
std::vector<char>& readBuffer() {
    static thread_local std::vector<char> buffer(64 * 1024);
    return buffer;
}

class LiveWebSocket final : public WebSocketTransport, private WebSocketStream::Listener {
public:
    LiveWebSocket(TransportOptions options, TransportListener& listener, HostResolver& resolver)
        : options_(std::move(options)),
          listener_(&listener),
          resolver_(resolver),
          socket_(NetworkThreadAsio::ioContext()),
          timer_(NetworkThreadAsio::ioContext()),
          stream_(NetworkThreadAsio::ioContext().get_executor(),
                  {options_.maxMessageBytes, options_.offerDeflate}) {}

    void open(std::string target, const std::string& cookies) override;
    void writeText(std::string_view text) override { stream_.writeText(text); }
    void writeBinary(std::string_view prefix, std::string_view bytes) override {
        stream_.writeBinary(prefix, bytes);
    }
    void writePing() override { stream_.writePing(); }
    void flush() override;
    std::size_t unsentBytes() const override { return raw_.size() - sent_ + stream_.outputBytes(); }
    void setPaused(bool paused) override;
    void readOn() override;
    void close() override;
    void drop() override;

private:
    enum class Stage : std::uint8_t {
        Resolving,
        Connecting,
        Proxying,
        Securing,
        Handshaking,
        Open,
        Closing,
        Closed
    };

    std::shared_ptr<LiveWebSocket> self() {
        return std::static_pointer_cast<LiveWebSocket>(shared_from_this());
    }

    void didResolve(std::vector<std::string> addresses);
    void connectNext();
    void didConnect();
    void didReachServer();
    void startHandshake();
    void didHandshake(WebSocketStream::HandshakeResult result);

    void awaitInput();
    void readInput(int times);
    void goOnReading();
    bool deliverKept();
    void didReceive(std::string_view bytes);
    void didReceiveFromProxy(std::string_view bytes);
    void didReceivePlain(std::string_view bytes);
    void inputEnded(std::string reason);
    void sendRaw();

    Next didReceiveMessage(bool isText, std::string_view bytes) override;
    void didReceivePing() override { report(event::WebSocketPing{}); }
    void didReceivePong() override { report(event::WebSocketPong{}); }

    void fail(event::WebSocketFailed::Stage stage, std::string reason, int httpStatus = 0,
              std::string body = {});
    void lose(event::WebSocketClosed::Cause cause, std::string reason);
    void report(const SessionEvent& what);

    const TransportOptions options_;
    TransportListener* listener_;  // nullptr once nothing must be called any more
    HostResolver& resolver_;
    Stage stage_ = Stage::Resolving;
    std::string target_;
    HeaderList headers_;

    std::unique_ptr<HostResolver::Lookup> lookup_;
    std::vector<std::string> addresses_;
    std::size_t nextAddress_ = 0;
    error_code lastConnectError_;
    tcp::socket socket_;
    asio::steady_timer timer_;  // for the current address, later for the close
    std::string proxyAnswer_;
    std::unique_ptr<TlsSession> tls_;
    std::string plain_;  // decrypted, kept for its capacity only while TLS is used
    WebSocketStream stream_;
    std::string raw_;  // being written to the system
    std::size_t sent_ = 0;
    bool awaitsRoom_ = false;

    bool isPaused_ = false;
    bool awaitsInput_ = false;
    std::size_t portion_ = 0;         // the cost of the messages of this one
    bool keepsRest_ = false;          // of a portion, in the stream
    std::optional<std::string> end_;  // reason for the end of the input, after that rest
};

void LiveWebSocket::open(std::string target, const std::string& cookies) {
    target_ = std::move(target);
    headers_ = options_.headers;
    if (!cookies.empty()) headers_.emplace_back("Cookie", cookies);
    const std::string& host = options_.proxy ? options_.proxy->host : options_.endpoint.host;
    lookup_ = resolver_.resolve(
        host, [weak = weak_from_this()](std::vector<std::string> addresses, const ErrorPtr&) {
            if (const auto transport = std::static_pointer_cast<LiveWebSocket>(weak.lock()))
                transport->didResolve(std::move(addresses));
        });
}

void LiveWebSocket::didResolve(std::vector<std::string> addresses) {
    if (stage_ != Stage::Resolving) return;
    if (addresses.empty())
        return fail(event::WebSocketFailed::Stage::Resolve, "The host could not be found.");
    stage_ = Stage::Connecting;
    addresses_ = std::move(addresses);
    connectNext();
}

void LiveWebSocket::connectNext() {
    error_code error;
    socket_.close(error);
    if (nextAddress_ == addresses_.size()) {
        return fail(event::WebSocketFailed::Stage::Connect,
                    "Could not connect: " + lastConnectError_.message() + ".");
    }
    const auto address = asio::ip::make_address(addresses_[nextAddress_++], error);
    if (error) {
        lastConnectError_ = error;
        return connectNext();
    }
    const std::size_t attempt = nextAddress_;
    if (attempt < addresses_.size()) {
        timer_.expires_after(kPerAddress);
        timer_.async_wait([self = self(), attempt](error_code cancelled) {
            if (cancelled || self->stage_ != Stage::Connecting || self->nextAddress_ != attempt)
                return;
            self->lastConnectError_ = asio::error::timed_out;
            self->connectNext();
        });
    }
    const std::uint16_t port = options_.proxy ? options_.proxy->port : options_.endpoint.port;
    socket_.async_connect(
        tcp::endpoint(address, port), [self = self(), attempt](error_code failed) {
            if (self->stage_ != Stage::Connecting || self->nextAddress_ != attempt) return;
            if (!failed) return self->didConnect();
            self->lastConnectError_ = failed;
            self->connectNext();
        });
}

void LiveWebSocket::didConnect() {
    timer_.cancel();
    error_code ignored;
    socket_.non_blocking(true, ignored);
    socket_.set_option(tcp::no_delay(true), ignored);
    awaitInput();
    if (!options_.proxy) return didReachServer();
    stage_ = Stage::Proxying;
    raw_ += connectRequest(*options_.proxy, options_.endpoint.authorityWithPort());
    sendRaw();
}

void LiveWebSocket::didReachServer() {
    if (!options_.endpoint.isSecure) return startHandshake();
    stage_ = Stage::Securing;
    tls_ = TlsSession::create(options_.trust.trust, options_.endpoint.host);
    if (!tls_)
        return fail(event::WebSocketFailed::Stage::Tls,
                    impossibleHost(options_.endpoint.host).words);
    if (tls_->start() != TlsSession::Status::Open)
        return fail(event::WebSocketFailed::Stage::Tls, tls_->fault());
    flush();
}

void LiveWebSocket::startHandshake() {
    stage_ = Stage::Handshaking;
    stream_.startHandshake(
        options_.endpoint.authority(), target_, headers_,
        [weak = weak_from_this()](WebSocketStream::HandshakeResult result) {
            if (const auto transport = std::static_pointer_cast<LiveWebSocket>(weak.lock())) {
                transport->didHandshake(std::move(result));
            }
        });
    flush();
}

void LiveWebSocket::didHandshake(WebSocketStream::HandshakeResult result) {
    if (stage_ != Stage::Handshaking) return;
    if (listener_ && !result.cookies.empty()) listener_->didReceiveCookies(result.cookies);
    if (!result.accepted) {
        using Failed = event::WebSocketFailed::Stage;
        const auto stage = result.isCutOff ? Failed::Cut : Failed::Handshake;
        return fail(stage, std::move(result.reason), result.httpStatus, std::move(result.body));
    }
    stage_ = Stage::Open;
    report(event::WebSocketOpened{});
    didReceivePlain({});  // bytes that came after the answer
}

// Input

void LiveWebSocket::awaitInput() {
    if (isPaused_ || end_ || std::exchange(awaitsInput_, true)) return;
    socket_.async_wait(tcp::socket::wait_read, [self = self()](error_code error) {
        self->awaitsInput_ = false;
        if (error || self->isPaused_ || self->stage_ == Stage::Closed) return;
        self->readInput(kReadsPerTurn);
    });
}

void LiveWebSocket::setPaused(bool paused) {
    if (std::exchange(isPaused_, paused) == paused || paused) return;
    asio::post(socket_.get_executor(), [self = self()] { self->goOnReading(); });
}

void LiveWebSocket::readOn() {
    asio::post(socket_.get_executor(), [self = self()] {
        if (self->stage_ == Stage::Open && self->isPaused_ && self->deliverKept())
            self->readInput(1);
    });
}

void LiveWebSocket::goOnReading() {
    if (stage_ != Stage::Closed && !isPaused_ && deliverKept()) awaitInput();
}

/// True if nothing is left to deliver, so the socket may be read.
bool LiveWebSocket::deliverKept() {
    if (!keepsRest_) return true;
    didReceivePlain({});
    if (keepsRest_ || stage_ == Stage::Closed) return false;
    if (!end_) return !isPaused_;
    inputEnded(*std::exchange(end_, std::nullopt));
    return false;
}

void LiveWebSocket::readInput(int times) {
    auto& buffer = readBuffer();
    const auto owner = self();
    for (int i = 0; i < times; ++i) {
        error_code error;
        const std::size_t count = socket_.read_some(asio::buffer(buffer), error);
        if (error == asio::error::would_block || error == asio::error::try_again) break;
        if (error) return inputEnded(error == asio::error::eof ? "" : error.message());
        didReceive({buffer.data(), count});
        if (stage_ == Stage::Closed || isPaused_ || end_) return;
        if (count < buffer.size()) break;
    }
    awaitInput();
}

void LiveWebSocket::didReceive(std::string_view bytes) {
    if (stage_ == Stage::Proxying) return didReceiveFromProxy(bytes);
    if (!tls_) return didReceivePlain(bytes);
    const bool wasEstablished = tls_->isEstablished();
    plain_.clear();
    const auto status = tls_->receive(bytes, plain_);
    if (!wasEstablished && tls_->isEstablished()) startHandshake();
    if (!plain_.empty()) {
        const std::string plain = std::exchange(plain_, {});
        didReceivePlain(plain);
        if (stage_ == Stage::Closed) return;
    }
    flush();  // TLS may have bytes of its own to send
    switch (status) {
        case TlsSession::Status::Open: return;
        case TlsSession::Status::Closed: return inputEnded("");
        case TlsSession::Status::Failed:
            if (stage_ == Stage::Securing)
                return fail(event::WebSocketFailed::Stage::Tls, tls_->fault());
            return inputEnded(tls_->fault());
    }
}

void LiveWebSocket::didReceiveFromProxy(std::string_view bytes) {
    proxyAnswer_ += bytes;
    const auto end = proxyAnswer_.find("\r\n\r\n");
    const bool isWhole = end != std::string::npos;
    if (!isWhole && proxyAnswer_.size() <= kMaxProxyHead) return;
    const bool isHttp = isWhole && proxyAnswer_.starts_with("HTTP/1.") && proxyAnswer_.size() > 12;
    if (!isHttp)
        return fail(event::WebSocketFailed::Stage::Proxy, "The proxy's answer is not valid HTTP.");
    const int status = std::atoi(proxyAnswer_.c_str() + 9);
    if (status / 100 != 2)
        return fail(event::WebSocketFailed::Stage::Proxy, proxyRefusal(status), status);
    const std::string rest = proxyAnswer_.substr(end + 4);
    proxyAnswer_.clear();
    didReachServer();
    if (!rest.empty() && stage_ != Stage::Closed) didReceive(rest);
}

void LiveWebSocket::didReceivePlain(std::string_view bytes) {
    const auto owner = self();
    do {
        portion_ = 0;
        keepsRest_ = false;
        const auto status = stream_.receive(std::exchange(bytes, {}), *this);
        if (stage_ == Stage::Closed) return;
        using Cause = event::WebSocketClosed::Cause;
        switch (status) {
            case WebSocketStream::Status::Open: break;
            case WebSocketStream::Status::ClosedByPeer:
                flush();  // the answer to its close frame
                return lose(Cause::Peer, stream_.fault());
            case WebSocketStream::Status::Malformed:
                flush();
                return lose(Cause::Malformed, "A malformed frame: " + stream_.fault() + ".");
            case WebSocketStream::Status::TooLarge:
                flush();
                return lose(Cause::TooLarge, "The server sent a message that is too long.");
        }
        if (listener_) listener_->didEndTurn();
        if (stage_ == Stage::Closed) return;
    } while (keepsRest_ && !isPaused_);
    flush();
}

WebSocketStream::Listener::Next LiveWebSocket::didReceiveMessage(bool isText,
                                                                 std::string_view bytes) {
    if (isText) {
        report(event::WebSocketText{bytes});
    } else {
        report(event::WebSocketBinary{bytes});
    }
    if (!listener_ || stage_ != Stage::Open) return Next::Stop;
    portion_ += bytes.size() + kMessageBytes;
    keepsRest_ = portion_ >= kPortionBytes;
    return keepsRest_ ? Next::Pause : Next::GoOn;
}

void LiveWebSocket::inputEnded(std::string reason) {
    using Failed = event::WebSocketFailed::Stage;
    if (keepsRest_ && stage_ == Stage::Open) return void(end_ = std::move(reason));
    switch (stage_) {
        case Stage::Resolving:
        case Stage::Connecting: return fail(Failed::Connect, std::move(reason));
        case Stage::Proxying: return fail(Failed::Proxy, "The proxy closed the connection.");
        case Stage::Securing: return fail(Failed::Cut, handshakeFault({}).words);
        // an answer without a length ends when the connection closes
        case Stage::Handshaking: return stream_.endOfInput();
        case Stage::Open:
            return lose(reason.empty() ? event::WebSocketClosed::Cause::Peer
                                       : event::WebSocketClosed::Cause::Network,
                        std::move(reason));
        case Stage::Closing: return drop();
        case Stage::Closed: return;
    }
}

// Output

void LiveWebSocket::flush() {
    std::string& output = stream_.output();
    if (tls_) {
        if (!output.empty() && tls_->isEstablished()) {
            tls_->send(output);
            output.clear();
        }
        raw_ += tls_->output();
        tls_->output().clear();
    } else if (raw_.empty()) {
        raw_.swap(output);
    } else {
        raw_ += output;
        output.clear();
    }
    sendRaw();
}

void LiveWebSocket::sendRaw() {
    if (awaitsRoom_ || stage_ == Stage::Closed) return;
    while (sent_ < raw_.size()) {
        error_code error;
        const std::size_t count =
            socket_.write_some(asio::buffer(raw_.data() + sent_, raw_.size() - sent_), error);
        if (error == asio::error::would_block || error == asio::error::try_again) {
            awaitsRoom_ = true;
            socket_.async_wait(tcp::socket::wait_write, [self = self()](error_code failed) {
                self->awaitsRoom_ = false;
                if (failed || self->stage_ == Stage::Closed) return;
                self->sendRaw();
                if (self->listener_) self->listener_->didEndTurn();
            });
            return;
        }
        if (error)
            return;  // reading finds the same error, and reports it after the received messages
        sent_ += count;
        // If the server always leaves some bytes unread, we would keep everything that it has read.
        if (sent_ >= raw_.size() / 2 && sent_ < raw_.size()) {
            raw_.erase(0, sent_);
            sent_ = 0;
        }
    }
    constexpr std::size_t kKept = 16 * 1024;
    if (raw_.capacity() > kKept) {
        std::string().swap(raw_);
    } else {
        raw_.clear();
    }
    sent_ = 0;
}

// The end

void LiveWebSocket::close() {
    listener_ = nullptr;
    if (stage_ != Stage::Open) return drop();
    stage_ = Stage::Closing;
    stream_.writeClose();
    flush();
    if (end_) return drop();
    keepsRest_ = false;
    setPaused(false);  // received bytes are dropped until the server's answer
    timer_.expires_after(kGoodbye);
    timer_.async_wait([self = self()](error_code cancelled) {
        if (!cancelled) self->drop();
    });
}

void LiveWebSocket::drop() {
    listener_ = nullptr;
    if (stage_ == Stage::Closed) return;
    stage_ = Stage::Closed;
    if (tls_) {
        tls_->close();
        error_code ignored;
        const std::string& bytes = tls_->output();
        if (sent_ == raw_.size() && !bytes.empty())
            socket_.write_some(asio::buffer(bytes), ignored);
    }
    lookup_.reset();
    timer_.cancel();
    error_code ignored;
    socket_.close(ignored);
}

void LiveWebSocket::fail(event::WebSocketFailed::Stage stage, std::string reason, int httpStatus,
                         std::string body) {
    TransportListener* const listener = listener_;
    const auto owner = self();
    drop();
    if (!listener) return;
    listener->didHappen(
        event::WebSocketFailed{stage, std::move(reason), httpStatus, std::move(body)});
    listener->didEndTurn();
}

void LiveWebSocket::lose(event::WebSocketClosed::Cause cause, std::string reason) {
    TransportListener* const listener = listener_;
    const auto owner = self();
    drop();
    if (!listener) return;
    listener->didHappen(event::WebSocketClosed{cause, std::move(reason)});
    listener->didEndTurn();
}

void LiveWebSocket::report(const SessionEvent& what) {
    if (listener_) listener_->didHappen(what);
}

}  // namespace

std::shared_ptr<WebSocketTransport> WebSocketTransport::create(TransportOptions options,
                                                               TransportListener& listener,
                                                               HostResolver& resolver) {
    return std::make_shared<LiveWebSocket>(std::move(options), listener, resolver);
}

}  // namespace vexim
