#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "VexIMLib/internal/SocketIO/Protocol/BoundedAppend.h"
#include "VexIMLib/internal/SocketIO/Protocol/HeaderList.h"

namespace vexim {

/// The client side of one WebSocket (RFC 6455), in memory: received bytes go in, messages and bytes
/// to send come out. It wraps the Beast stream, which only this class's source instantiates.
class WebSocketStream {
public:
    struct Options {
        std::size_t maxMessageBytes = kDefaultMaxMessageBytes;
        bool offerDeflate = false;
    };
    struct HandshakeResult {
        bool accepted = false;
        bool isCutOff = false;  // the server closed the connection before it answered
        int httpStatus = 0;     // 0 when there was no HTTP answer
        std::string body;
        std::vector<std::string> cookies;  // values of "Set-Cookie"
        std::string reason;
    };
    /// Never called from inside a function of the stream.
    using HandshakeHandler = std::function<void(HandshakeResult)>;

    class Listener {
    public:
        virtual ~Listener() = default;
        enum class Next : std::uint8_t {
            GoOn,
            Pause,  // the rest is kept; `receive` continues with it
            Stop,   // nothing more is delivered
        };
        /// `bytes` are valid only during the call.
        virtual Next didReceiveMessage(bool isText, std::string_view bytes) = 0;
        /// The ping has already been answered.
        virtual void didReceivePing() = 0;
        virtual void didReceivePong() = 0;
    };

    enum class Status : std::uint8_t { Open, ClosedByPeer, Malformed, TooLarge };

    WebSocketStream(boost::asio::io_context::executor_type executor, Options options);
    WebSocketStream(const WebSocketStream&) = delete;
    WebSocketStream& operator=(const WebSocketStream&) = delete;
    ~WebSocketStream();  // the handler of a handshake is not called any more

    void startHandshake(std::string_view host, std::string_view target, const HeaderList& headers,
                        HandshakeHandler handler);
    /// The server has closed its end of the connection: ends a running handshake.
    void endOfInput();

    /// Takes bytes from the server. Until the handshake has ended they are kept. Call it without
    /// bytes when the handshake has ended, and after a pause.
    Status receive(std::string_view bytes, Listener& listener);
    /// What was wrong if `receive` did not return Open; for a close by the server, its code and
    /// reason.
    const std::string& fault() const noexcept;

    // These do nothing before the end of the handshake, and after a close or an error.
    void writeText(std::string_view text);
    /// `prefix` and `bytes` together are one message.
    void writeBinary(std::string_view prefix, std::string_view bytes);
    void writePing();
    void writeClose();

    /// Bytes to send. Take them out to send them.
    std::string& output() noexcept;
    std::size_t outputBytes() const noexcept;

private:
    struct Impl;
    // shared with a running handshake, which Beast may still be executing
    const std::shared_ptr<Impl> impl_;
};

}  // namespace vexim
