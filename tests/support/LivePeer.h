#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "support/ScriptedServer.h"

namespace vexim::testing {

/// The server's side of one live connection, played step by step over a scripted one: a WebSocket
/// (RFC 6455), Engine.IO revision 4 above it, and a Socket.IO namespace. Each step can be left out,
/// or something else be sent in its place.
///
///     ScriptedServer server([](ScriptedServer::Connection& connection) {
///         LivePeer peer(connection);
///         if (!peer.join()) return;
///         peer.emit("login", R"({"success":true,"id":"u1"})");
///         peer.waitForClose();
///     });
class LivePeer {
public:
    enum Opcode : unsigned char {
        Continuation = 0,
        Text = 1,
        Binary = 2,
        Close = 8,
        Ping = 9,
        Pong = 10
    };

    static constexpr const char* kOpenPacket =
        R"(0{"sid":"s1","upgrades":[],"pingInterval":25000,"pingTimeout":20000,"maxPayload":1000000})";

    /// `request` is the opening handshake when that was read already.
    explicit LivePeer(ScriptedServer::Connection& connection,
                      std::optional<WireRequest> request = std::nullopt)
        : connection_(connection),
          request_(std::move(request)) {}

    // Each is false when the peer is gone.

    /// Reads the opening handshake and answers it; `fields` are further header lines, `behind`
    /// follows in the same write.
    bool acceptWebSocket(std::string_view fields = {}, std::string_view behind = {});
    /// `acceptWebSocket`, and the open packet right behind it.
    bool open(std::string_view openPacket = kOpenPacket);
    /// `open`, then answers the join of the namespace.
    bool join();
    /// The WebSocket's accept value for the request of `acceptWebSocket`.
    static std::string acceptKeyFor(const WireRequest& request);

    bool sendText(std::string_view text) { return connection_.write(frame(Text, text)); }
    /// An event with one argument, as JSON.
    bool emit(std::string_view event, std::string_view argument) {
        return sendText(eventText(event, argument));
    }
    /// Takes part in the heartbeat and drops the rest, until the peer closes or the server ends.
    void waitForClose();
    /// Sends a ping and waits for its pong; what comes before it is dropped.
    bool beat();
    /// The next text that is no heartbeat; nullopt when the connection has ended.
    std::optional<std::string> readText();

    struct Frame {
        unsigned char opcode;
        std::string payload;
    };
    /// The next frame, unmasked.
    std::optional<Frame> readFrame();

    std::string eventText(std::string_view event, std::string_view argument) const;
    /// One unmasked frame. `first` replaces the first byte (FIN, reserved bits, opcode).
    static std::string frame(Opcode opcode, std::string_view payload,
                             std::optional<unsigned char> first = std::nullopt);
    ScriptedServer::Connection& connection() { return connection_; }
    const std::string& nsp() const { return nsp_; }

private:
    bool need(std::size_t count);

    ScriptedServer::Connection& connection_;
    std::optional<WireRequest> request_;
    std::string buffer_;
    std::string nsp_ = "/chat";
};

}  // namespace vexim::testing
