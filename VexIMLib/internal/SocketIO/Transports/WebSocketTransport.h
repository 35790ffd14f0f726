#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "VexIMLib/internal/Platform/Threads/HostResolver.h"
#include "VexIMLib/internal/SocketIO/Transports/Transport.h"

namespace vexim {

/// Sends and receives a session's messages over one WebSocket: lookup, TCP, proxy, TLS, handshake,
/// frames. Network thread only.
class WebSocketTransport : public std::enable_shared_from_this<WebSocketTransport> {
public:
    /// `listener` must live until the transport is destroyed, or until `close` or `drop` is called.
    /// After that it is not called any more.
    static std::shared_ptr<WebSocketTransport> create(TransportOptions options,
                                                      TransportListener& listener,
                                                      HostResolver& resolver);
    virtual ~WebSocketTransport() = default;

    /// Connects and asks for `target`. WebSocketOpened or WebSocketFailed follows, then messages,
    /// then WebSocketClosed.
    virtual void open(std::string target, const std::string& cookies) = 0;

    // These collect bytes; `flush` sends them.
    virtual void writeText(std::string_view text) = 0;
    virtual void writeBinary(std::string_view prefix, std::string_view bytes) = 0;
    virtual void writePing() = 0;
    virtual void flush() = 0;
    /// Bytes that the system has not taken yet. When they have become fewer, `didEndTurn` is
    /// called.
    virtual std::size_t unsentBytes() const = 0;

    /// While paused, it reads only what `readOn` asks for.
    virtual void setPaused(bool paused) = 0;
    /// Reads a portion soon: at most 64 KiB from the wire.
    virtual void readOn() = 0;

    /// Sends what was written and a close frame, waits at most a second for the server's close
    /// frame, and closes the connection.
    virtual void close() = 0;
    /// Closes the connection at once.
    virtual void drop() = 0;
};

}  // namespace vexim
