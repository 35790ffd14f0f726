#include "VexIMLib/internal/SocketIO/Transports/WebSocketTransport.h"

#include <chrono>
#include <utility>

#include "VexIMLib/internal/Platform/Trust/CertificateFault.h"
#include "VexIMLib/internal/SocketIO/Protocol/CookieJar.h"
#include "VexIMLib/internal/SocketIO/Transports/LiveWebSocket.h"

namespace vexim {
namespace {

using boost::asio::ip::tcp;
using boost::system::error_code;

constexpr std::chrono::seconds kGoodbye{1};

}  // namespace

void LiveWebSocket::open(std::string target, const std::string& cookies) {
    target_ = std::move(target);
    headers_ = withCookies(options_.headers, cookies);
    const auto& proxy = options_.proxy;
    const auto& endpoint = options_.endpoint;
    dialer_->dial(
        resolver_, proxy ? proxy->host : endpoint.host, proxy ? proxy->port : endpoint.port,
        [weak = weak_from_this()](Dialer::Fault fault, tcp::socket& socket, std::string why) {
            const auto self = std::static_pointer_cast<LiveWebSocket>(weak.lock());
            if (!self || self->stage_ != Stage::Connecting) return;
            using Failed = event::WebSocketFailed::Stage;
            if (fault == Dialer::Fault::None) return self->didConnect(socket);
            self->fail(fault == Dialer::Fault::NotFound ? Failed::Resolve : Failed::Connect,
                       std::move(why));
        });
}

void LiveWebSocket::didConnect(tcp::socket& socket) {
    socket_ = std::move(socket);
    error_code ignored;
    socket_.set_option(tcp::no_delay(true), ignored);
    awaitInput();
    if (!options_.proxy) return didReachServer();
    stage_ = Stage::Proxying;
    std::string request = connectRequest(*options_.proxy, options_.endpoint.authorityWithPort());
    raw_.take(request);
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
        if (raw_.empty() && !bytes.empty()) socket_.write_some(boost::asio::buffer(bytes), ignored);
    }
    dialer_->cancel();
    timer_.cancel();
    error_code ignored;
    socket_.close(ignored);
}

void LiveWebSocket::fail(event::WebSocketFailed::Stage stage, std::string reason, int httpStatus,
                         std::string body) {
    end(event::WebSocketFailed{stage, std::move(reason), httpStatus, std::move(body)});
}

void LiveWebSocket::end(const SessionEvent& why) {
    TransportListener* const listener = listener_;
    const auto owner = self();
    drop();
    if (!listener) return;
    listener->didHappen(why);
    listener->didEndTurn();
}

void LiveWebSocket::report(const SessionEvent& what) {
    if (listener_) listener_->didHappen(what);
}

std::shared_ptr<WebSocketTransport> WebSocketTransport::create(TransportOptions options,
                                                               TransportListener& listener,
                                                               HostResolver& resolver) {
    return std::make_shared<LiveWebSocket>(std::move(options), listener, resolver);
}

}  // namespace vexim
