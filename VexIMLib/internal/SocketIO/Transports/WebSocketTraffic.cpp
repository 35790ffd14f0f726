// A WebSocket's input and output: bytes read go up through TLS and the frames, bytes written go
// down.
#include <utility>
#include <vector>

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>

#include "VexIMLib/internal/Platform/Trust/CertificateFault.h"
#include "VexIMLib/internal/SocketIO/Transports/LiveWebSocket.h"

namespace vexim {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

// The most reads in a row, so that a busy connection leaves time for others.
constexpr int kReadsPerTurn = 4;
// The size of messages delivered together. Each counts a quarter of a KiB more, which is about its
// cost. Compressed messages can grow a thousandfold, so one read may bring many portions.
constexpr std::size_t kPortionBytes = 256 * 1024;
constexpr std::size_t kMessageBytes = 256;

/// The buffer for reading sockets. One for all, because nothing stays in it between two turns.
std::vector<char>& readBuffer() {
    static thread_local std::vector<char> buffer(64 * 1024);
    return buffer;
}

}  // namespace

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
    asio::post(socket_.get_executor(), [self = self()] { self->continueReading(); });
}

void LiveWebSocket::readOn() {
    asio::post(socket_.get_executor(), [self = self()] {
        if (self->stage_ == Stage::Open && self->isPaused_ && self->deliverKept())
            self->readInput(1);
    });
}

void LiveWebSocket::continueReading() {
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
        // A goodbye and the end of the connection come together.
        if (count < buffer.size() && stage_ != Stage::Closing) break;
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
    using Failed = event::WebSocketFailed::Stage;
    switch (proxyAnswer_.receive(bytes)) {
        case ProxyAnswer::Verdict::Incomplete: return;
        case ProxyAnswer::Verdict::NotHTTP:
            return fail(Failed::Proxy, "The proxy's answer is not valid HTTP.");
        case ProxyAnswer::Verdict::Refused:
            return fail(Failed::Proxy, proxyRefusal(proxyAnswer_.status()), proxyAnswer_.status());
        case ProxyAnswer::Verdict::Open: break;
    }
    const std::string rest = proxyAnswer_.takeRest();
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
        using Closed = event::WebSocketClosed;
        switch (status) {
            case WebSocketStream::Status::Open: break;
            case WebSocketStream::Status::ClosedByPeer:
                flush();  // the answer to its close frame
                return end(Closed{Closed::Cause::Peer, stream_.fault()});
            case WebSocketStream::Status::Malformed:
                flush();
                return end(Closed{Closed::Cause::Malformed,
                                  "A malformed frame: " + stream_.fault() + "."});
            case WebSocketStream::Status::TooLarge:
                flush();
                return end(
                    Closed{Closed::Cause::TooLarge, "The server sent a message that is too long."});
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
    using Closed = event::WebSocketClosed;
    using Failed = event::WebSocketFailed::Stage;
    if (keepsRest_ && stage_ == Stage::Open) return void(end_ = std::move(reason));
    switch (stage_) {
        case Stage::Connecting: return fail(Failed::Connect, std::move(reason));
        case Stage::Proxying: return fail(Failed::Proxy, "The proxy closed the connection.");
        case Stage::Securing: return fail(Failed::Cut, handshakeFault({}).words);
        // an answer without a length ends when the connection closes
        case Stage::Handshaking: return stream_.endOfInput();
        case Stage::Open:
            return end(Closed{reason.empty() ? Closed::Cause::Peer : Closed::Cause::Network,
                              std::move(reason)});
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
        raw_.take(tls_->output());
    } else {
        raw_.take(output);
    }
    sendRaw();
}

void LiveWebSocket::sendRaw() {
    if (awaitsRoom_ || stage_ == Stage::Closed) return;
    while (!raw_.empty()) {
        error_code error;
        const auto rest = raw_.rest();
        const std::size_t count = socket_.write_some(asio::buffer(rest.data(), rest.size()), error);
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
        raw_.didSend(count);
    }
}

}  // namespace vexim
