#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "VexIMLib/internal/Platform/Threads/HostResolver.h"
#include "VexIMLib/internal/SocketIO/Transports/Transport.h"

namespace vexim {

/// Carries a session's messages over one WebSocket: lookup, TCP, proxy, TLS, handshake, frames.
/// Lives on the network thread.
class WebSocketTransport : public std::enable_shared_from_this<WebSocketTransport> {
public:
    /// `listener` must outlive the transport or its `close` or `drop`; nothing is called after
    /// these.
    static std::shared_ptr<WebSocketTransport> create(TransportOptions options,
                                                      TransportListener& listener,
                                                      HostResolver& resolver);
    virtual ~WebSocketTransport() = default;

    /// Connects and asks for `target`. WebSocketOpened or WebSocketFailed follows, then messages,
    /// then WebSocketClosed.
    virtual void open(std::string target, const std::string& cookies) = 0;

    // These collect; `flush` sends.
    virtual void writeText(std::string_view text) = 0;
    virtual void writeBinary(std::string_view prefix, std::string_view bytes) = 0;
    virtual void writePing() = 0;
    virtual void flush() = 0;
    /// Written, but not taken by the system yet. When it has sunk, `didEndTurn` is called.
    virtual std::size_t unsentBytes() const = 0;

    /// While paused, nothing is read but what `readOn` asks for.
    virtual void setPaused(bool paused) = 0;
    /// Reads a portion, soon: 64 KiB of the wire at most.
    virtual void readOn() = 0;

    /// Sends what was written and a close frame, waits at most a second for the peer's, and lets
    /// go.
    virtual void close() = 0;
    /// Lets go at once.
    virtual void drop() = 0;
};

}  // namespace vexim
