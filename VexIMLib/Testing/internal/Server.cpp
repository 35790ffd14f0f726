#include "VexIMLib/Testing/internal/Server.h"

#include <algorithm>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <deque>
#include <optional>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/internal/Platform/Threads/ClockTimer.h"

namespace vexim::testing::fake {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using asio::ip::tcp;
using beast::error_code;

namespace {

using HttpRequest = http::request<http::string_body>;

/// A connection of either kind. Its pending operations keep it alive.
class Channel : public std::enable_shared_from_this<Channel> {
public:
    virtual ~Channel() = default;
    /// Closes it at once and cancels all waits.
    virtual void close() = 0;
};

/// The open connections.
struct Channels {
    std::set<Channel*> all;
};

FakeService::Request plain(HttpRequest& message) {
    FakeService::Request request;
    request.method = message.method_string();
    const std::string target = message.target();
    const auto mark = std::min(target.find('?'), target.size());
    request.path = target.substr(0, mark);
    request.query = target.substr(std::min(mark + 1, target.size()));
    for (const auto& field : message) {
        std::string name = field.name_string();
        std::ranges::transform(name, name.begin(), [](char c) {
            return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
        });
        request.headers.set(name, std::string(field.value()));
    }
    request.body = std::move(message.body());
    return request;
}

/// The answer's bytes, and how many of them are the head.
std::pair<std::string, std::size_t> wireForm(const FakeService::Answer& answer, bool keepAlive) {
    http::response<http::empty_body> head(static_cast<http::status>(answer.status), 11);
    const std::string body = bodyText(answer);
    head.set(http::field::content_type, "application/json");
    for (const auto& [name, value] : answer.headers)
        head.set(std::string(name), value.description());
    head.content_length(body.size());
    head.keep_alive(keepAlive);
    std::ostringstream out;
    out << head;
    const std::string text = out.str();
    return {text + body, text.size()};
}

// The beginning of an answer to a handshake, for one that is cut short.
constexpr const char* kHandshake = "HTTP/1.1 101 Switching Protocols\r\n";

class WebSocketChannel final : public Channel, private LiveLink {
public:
    WebSocketChannel(tcp::socket socket, HttpRequest request, Service& service, Channels& channels)
        : stream_(std::move(socket)),
          request_(std::move(request)),
          service_(service),
          channels_(channels),
          heartbeat_(stream_.get_executor()),
          session_(service.options, service.store.newId("s"), authOf(request_), *this,
                   service.live) {
        channels_.all.insert(this);
    }
    ~WebSocketChannel() override { channels_.all.erase(this); }

    void accept() {
        stream_.read_message_max(std::size_t{64} << 20);
        stream_.async_accept(request_, [self = self()](error_code error) {
            if (error || self->isClosed_) return;
            self->isLive_ = true;
            self->service_.live.add(self->session_);
            self->session_.start();
            if (self->session_.pings()) self->waitToBeat();
            self->read();
        });
    }

    void close() override {
        if (std::exchange(isClosed_, true)) return;
        error_code ignored;
        stream_.next_layer().close(ignored);
        heartbeat_.cancel();
        if (isLive_) session_.ended();
    }

private:
    static std::string authOf(const HttpRequest& request) {
        const std::string target = request.target();
        const auto mark = target.find('?');
        return mark == std::string::npos ? "" : Query(target.substr(mark + 1)).get("auth");
    }
    std::shared_ptr<WebSocketChannel> self() {
        return std::static_pointer_cast<WebSocketChannel>(shared_from_this());
    }

    void read() {
        stream_.async_read(buffer_, [self = self()](error_code error, std::size_t) {
            if (error) return self->close();
            const std::string message = beast::buffers_to_string(self->buffer_.data());
            self->buffer_.clear();
            self->stream_.got_text() ? self->session_.received(message)
                                     : self->session_.receivedBytes(message);
            if (!self->isClosed_) self->read();
        });
    }

    void waitToBeat() {
        heartbeat_.expires_after(service_.options.pingInterval);
        heartbeat_.async_wait([self = self()](error_code error) {
            if (error || self->isClosed_) return;
            self->session_.sendPing();
            self->waitToBeat();
        });
    }

    void send(std::string text) override {
        if (isClosed_) return;
        unsent_.push_back(std::move(text));
        if (unsent_.size() == 1) write();
    }

    void write() {
        stream_.async_write(asio::buffer(unsent_.front()),
                            [self = self()](error_code error, std::size_t) {
                                if (error || self->isClosed_)
                                    return;  // the reader is notified, too
                                self->unsent_.pop_front();
                                if (!self->unsent_.empty()) self->write();
                            });
    }

    void cut() override { close(); }

    websocket::stream<tcp::socket> stream_;
    const HttpRequest request_;
    Service& service_;
    Channels& channels_;
    ClockTimer heartbeat_;
    beast::flat_buffer buffer_;
    std::deque<std::string> unsent_;
    LiveSession session_;
    bool isLive_ = false;
    bool isClosed_ = false;
};

class HttpChannel final : public Channel {
public:
    HttpChannel(tcp::socket socket, Service& service, Channels& channels)
        : socket_(std::move(socket)),
          service_(service),
          channels_(channels),
          timer_(socket_.get_executor()) {
        channels_.all.insert(this);
    }
    ~HttpChannel() override { channels_.all.erase(this); }

    void read() {
        parser_.emplace();
        parser_->body_limit(boost::none);
        http::async_read(socket_, buffer_, *parser_,
                         [self = self()](error_code error, std::size_t) {
                             if (!error && self->socket_.is_open()) self->received();
                         });
    }

    void close() override {
        error_code ignored;
        socket_.close(ignored);
        timer_.cancel();
    }

private:
    std::shared_ptr<HttpChannel> self() {
        return std::static_pointer_cast<HttpChannel>(shared_from_this());
    }

    void received() {
        HttpRequest& message = parser_->get();
        keepAlive_ = message.keep_alive();
        const bool isHandshake = websocket::is_upgrade(message);
        const Reply reply = service_.reply(plain(message), isHandshake);
        if (reply.delay == std::chrono::nanoseconds(0)) return carryOut(reply);
        timer_.expires_after(reply.delay);
        timer_.async_wait([self = self(), reply](error_code error) {
            if (!error) self->carryOut(reply);
        });
    }

    void carryOut(const Reply& reply) {
        const bool isCutShort = reply.fault == FakeService::Fault::CutShort;
        if (reply.fault == FakeService::Fault::Close) return close();
        // it notices when the client disconnects
        if (reply.fault == FakeService::Fault::Silence) return read();
        if (!reply.answer && !isCutShort) {
            return std::make_shared<WebSocketChannel>(std::move(socket_), parser_->release(),
                                                      service_, channels_)
                ->accept();
        }
        auto [text, headSize] = reply.answer ? wireForm(*reply.answer, keepAlive_)
                                             : std::pair(std::string(kHandshake), std::size_t{0});
        out_ = std::move(text);
        if (isCutShort) out_.resize(headSize + (out_.size() - headSize) / 2);
        asio::async_write(
            socket_, asio::buffer(out_),
            [self = self(), isLast = isCutShort || !keepAlive_](error_code error, std::size_t) {
                if (!error && !isLast) self->read();
            });
    }

    tcp::socket socket_;
    Service& service_;
    Channels& channels_;
    ClockTimer timer_;
    beast::flat_buffer buffer_;
    std::optional<http::request_parser<http::string_body>> parser_;
    bool keepAlive_ = true;
    std::string out_;
};

}  // namespace

struct Server::Impl : std::enable_shared_from_this<Server::Impl> {
    Impl(asio::io_context& context, Service& theService) : acceptor(context), service(theService) {}

    void accept() {
        acceptor.async_accept([self = shared_from_this()](error_code error, tcp::socket socket) {
            // it may have arrived during a `close`
            if (error || !self->acceptor.is_open()) return;
            error_code ignored;
            socket.set_option(tcp::no_delay(true), ignored);
            std::make_shared<HttpChannel>(std::move(socket), self->service, self->channels)->read();
            self->accept();
        });
    }

    tcp::acceptor acceptor;
    Service& service;
    Channels channels;
};

Server::Server(asio::io_context& context, Service& service)
    : impl_(std::make_shared<Impl>(context, service)) {}
Server::~Server() = default;

std::uint16_t Server::listen(std::uint16_t port) {
    // All or nothing: if the port is in use, it stays closed.
    impl_->acceptor =
        tcp::acceptor(impl_->acceptor.get_executor(),
                      tcp::endpoint(asio::ip::address_v4::loopback(), port), true /* reuse it */);
    impl_->accept();
    return impl_->acceptor.local_endpoint().port();
}

bool Server::isListening() const { return impl_->acceptor.is_open(); }

void Server::cut() {
    std::vector<std::shared_ptr<Channel>> open;
    for (Channel* const channel : impl_->channels.all) open.push_back(channel->shared_from_this());
    for (const auto& channel : open) channel->close();
}

void Server::close() {
    error_code ignored;
    impl_->acceptor.close(ignored);
    cut();
}

}  // namespace vexim::testing::fake
