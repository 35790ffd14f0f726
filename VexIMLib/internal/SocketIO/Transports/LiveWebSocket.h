#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include "VexIMLib/internal/Platform/Threads/NetworkThreadAsio.h"
#include "VexIMLib/internal/Platform/Trust/TlsSession.h"
#include "VexIMLib/internal/SocketIO/Transports/Dialer.h"
#include "VexIMLib/internal/SocketIO/Transports/OutgoingBytes.h"
#include "VexIMLib/internal/SocketIO/Transports/Proxy.h"
#include "VexIMLib/internal/SocketIO/Transports/WebSocketStream.h"
#include "VexIMLib/internal/SocketIO/Transports/WebSocketTransport.h"

namespace vexim {

/// The transport over a real socket. WebSocketTransport.cpp opens and ends it, WebSocketTraffic.cpp
/// reads and writes.
///
/// It has more than 25 functions because it stacks a socket, a proxy, TLS and the WebSocket, and an
/// error in any of them must end all of them in the same way.
class LiveWebSocket final : public WebSocketTransport, private WebSocketStream::Listener {
public:
    LiveWebSocket(TransportOptions options, TransportListener& listener, HostResolver& resolver)
        : options_(std::move(options)),
          listener_(&listener),
          resolver_(resolver),
          dialer_(std::make_shared<Dialer>(NetworkThreadAsio::ioContext())),
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
    std::size_t unsentBytes() const override { return raw_.rest().size() + stream_.outputBytes(); }
    void setPaused(bool paused) override;
    void readOn() override;
    void close() override;
    void drop() override;

private:
    enum class Stage : std::uint8_t {
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

    void didConnect(boost::asio::ip::tcp::socket& socket);
    void didReachServer();
    void startHandshake();
    void didHandshake(WebSocketStream::HandshakeResult result);

    void awaitInput();
    void readInput(int times);
    void continueReading();
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
    /// Drops the connection. `why` is the last report.
    void end(const SessionEvent& why);
    void report(const SessionEvent& what);

    const TransportOptions options_;
    TransportListener* listener_;  // nullptr once nothing must be called any more
    HostResolver& resolver_;
    Stage stage_ = Stage::Connecting;
    std::string target_;
    HeaderList headers_;

    const std::shared_ptr<Dialer> dialer_;
    boost::asio::ip::tcp::socket socket_;
    boost::asio::steady_timer timer_;  // for the close
    ProxyAnswer proxyAnswer_;
    std::unique_ptr<TlsSession> tls_;
    std::string plain_;  // decrypted bytes; unused without TLS
    WebSocketStream stream_;
    OutgoingBytes raw_;
    bool awaitsRoom_ = false;

    bool isPaused_ = false;
    bool awaitsInput_ = false;
    std::size_t portion_ = 0;         // the cost of its messages so far
    bool keepsRest_ = false;          // of a portion, in the stream
    std::optional<std::string> end_;  // why the input ended; reported after that rest
};

}  // namespace vexim
