#include "socketio/BeastClients.h"

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <boost/json.hpp>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <type_traits>

namespace vexim::bench {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace json = boost::json;
using tcp = asio::ip::tcp;
using TlsSocket = beast::ssl_stream<tcp::socket>;

constexpr std::size_t kPrefix = sizeof("42/chat,") - 1;

/// A socket that is read through a buffer, with the other functions that Beast needs.
template <class Socket>
class Buffered : public beast::buffered_read_stream<Socket, beast::flat_buffer> {
public:
    using beast::buffered_read_stream<Socket, beast::flat_buffer>::buffered_read_stream;
    friend void teardown(beast::role_type role, Buffered& socket, beast::error_code& error) {
        using beast::websocket::teardown;
        teardown(role, socket.next_layer(), error);
    }
    template <class Handler>
    friend void async_teardown(beast::role_type role, Buffered& socket, Handler&& handler) {
        using beast::websocket::async_teardown;
        async_teardown(role, socket.next_layer(), std::forward<Handler>(handler));
    }
};

/// Made once, because reading certificates is not to be measured.
asio::ssl::context& contextFor(const PeerServer& server) {
    static asio::ssl::context context(asio::ssl::context::tls_client);
    static const bool isReady = [&] {
        context.add_certificate_authority(asio::buffer(server.authorityPEM()));
        context.set_verify_mode(asio::ssl::verify_peer);
        return true;
    }();
    (void)isReady;
    return context;
}

/// Calls `work` with a plain or a TLS socket, as the server needs.
template <class Work>
void withSocket(const PeerServer& server, Work work) {
    asio::io_context context(1);
    if (server.isSecure()) {
        work(context, TlsSocket(context, contextFor(server)));
    } else {
        work(context, tcp::socket(context));
    }
}

template <class Stream>
void join(beast::websocket::stream<Stream>& stream, const PeerServer& server,
          const std::string& query) {
    auto& socket = beast::get_lowest_layer(stream);
    socket.connect({asio::ip::address_v4::loopback(), server.port()});
    socket.set_option(tcp::no_delay(true));
    if constexpr (std::is_same_v<Stream, TlsSocket>)
        stream.next_layer().handshake(asio::ssl::stream_base::client);
    if constexpr (std::is_same_v<Stream, Buffered<TlsSocket>>) {
        stream.next_layer().next_layer().handshake(asio::ssl::stream_base::client);
    }
    stream.handshake("127.0.0.1", "/socket.io/?EIO=4&transport=websocket&" + query);
    beast::flat_buffer buffer;
    stream.read(buffer);  // open
    stream.write(asio::buffer("40/chat,", 8));
    buffer.clear();
    stream.read(buffer);  // joined
}

std::int64_t parse(const beast::flat_buffer& buffer) {
    const json::string_view text(static_cast<const char*>(buffer.data().data()), buffer.size());
    const json::value value = json::parse(text.substr(kPrefix));
    return value.as_array().at(1).as_object().at("ts").as_int64();
}

}  // namespace

void receiveWithAsyncReads(const PeerServer& server, long count) {
    withSocket(server, [&](asio::io_context& context, auto socket) {
        beast::websocket::stream<decltype(socket)> stream(std::move(socket));
        join(stream, server, "flood=" + std::to_string(count));
        beast::flat_buffer buffer;
        std::int64_t sum = 0;
        std::function<void()> next = [&] {
            stream.async_read(buffer, [&](beast::error_code error, std::size_t) {
                if (error) return;
                sum += parse(buffer);
                buffer.clear();
                if (--count > 0) next();
            });
        };
        next();
        context.run();
    });
}

void receiveWithBufferedReads(const PeerServer& server, long count) {
    withSocket(server, [&](asio::io_context&, auto socket) {
        beast::websocket::stream<Buffered<decltype(socket)>> stream(std::move(socket));
        stream.next_layer().capacity(64 * 1024);
        join(stream, server, "flood=" + std::to_string(count));
        beast::flat_buffer buffer;
        std::int64_t sum = 0;
        for (; count > 0; --count) {
            stream.read(buffer);
            sum += parse(buffer);
            buffer.clear();
        }
    });
}

void emitCoalesced(const PeerServer& server, long count) {
    withSocket(server, [&](asio::io_context&, auto socket) {
        beast::websocket::stream<decltype(socket)> stream(std::move(socket));
        join(stream, server, "sink");
        const json::value message = json::parse(kMessage);
        std::mt19937 masks(1);
        std::string out;
        for (; count > 0; --count) {
            const std::string text = "42/chat,[\"say\"," + json::serialize(message) + "]";
            out += '\x82';
            out += static_cast<char>(0x80 | 126);
            out += static_cast<char>(text.size() >> 8);
            out += static_cast<char>(text.size() & 0xFF);
            const std::uint32_t mask = static_cast<std::uint32_t>(masks());
            char key[4];
            std::memcpy(key, &mask, sizeof key);
            out.append(key, sizeof key);
            const std::size_t at = out.size();
            out += text;
            for (std::size_t i = 0; i < text.size(); ++i)
                out[at + i] = static_cast<char>(out[at + i] ^ key[i % 4]);
            if (out.size() < 64 * 1024 && count > 1) continue;
            asio::write(stream.next_layer(), asio::buffer(out));
            out.clear();
        }
    });
}

void connectAndClose(const PeerServer& server) {
    withSocket(server, [&](asio::io_context&, auto socket) {
        beast::websocket::stream<decltype(socket)> stream(std::move(socket));
        join(stream, server, "x");
        beast::get_lowest_layer(stream).close();
    });
}

}  // namespace vexim::bench
