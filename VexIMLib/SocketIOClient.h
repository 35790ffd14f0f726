#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/VXIMErrors.h"

// Qt has a macro of this name. Programs that keep it call `tryEmit`.
#pragma push_macro("emit")
#undef emit

namespace vexim {

/// What a client's `status()` returns. Events are sent only in state 3.
enum SocketIOStatus : std::int32_t {
    SocketIOStatusNotConnected = 0,  ///< never asked to connect
    SocketIOStatusDisconnected = 1,  ///< lost, refused, or closed on request
    SocketIOStatusConnecting = 2,    ///< a first connect or a reconnect is under way
    SocketIOStatusConnected = 3,     ///< the namespace is joined
};

/// Answers an event whose sender asked for an acknowledgement. Cheap to copy; may outlive the
/// handler and the client.
class VEXIM_EXPORT AckEmitter {
public:
    /// Sends the answer on its way.
    using Send = std::function<void(const Array& items)>;

    /// An emitter for an event that asked for no answer: `with` does nothing.
    AckEmitter() = default;
    /// `send` is called at most once, however many copies there are.
    explicit AckEmitter(Send send);

    /// Whether the sender asked for an answer.
    bool isExpected() const noexcept { return state_ != nullptr; }
    /// Answers with `items`. Only the first call sends anything. After a reconnect it sends
    /// nothing. Call from any thread.
    void with(const Array& items) const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

/// A client for one namespace of a Socket.IO server. It detects by itself whether the server is
/// 2.x, 3.x or 4.x.
///
///     auto socket = SocketIOClient::create(url, options);
///     socket->joinNamespace("/chat");
///     socket->on("message", [](const Array& arguments, const AckEmitter&) { … });
///     socket->connect();
///     vexim::MainQueue::shared().run();
///
/// It needs no `VXIMClient`; examples/socketio.cpp is a whole program. The destructor closes the
/// connection, and callbacks that wait for an answer get an error.
///
/// Every operation can be called from any thread, in any state, and inside a handler. None of them
/// waits for the server; nor does the destructor. Handlers run on the main queue, one at a time, in
/// the order of the events. Besides the server's events there are these:
///
/// - "connect", [nsp]: the namespace is joined, and `status()` is already 3. Also after each
///   successful reconnect.
/// - "disconnect", [reason]: the link was lost while connected. Also exactly once for each
///   `disconnect()` that follows a `connect()`, whatever state the link was in.
/// - "error", [description, what the server said (if anything), the error]: a first connect failed
///   (no other event follows), an attempt to reconnect failed, the server refused the
///   namespace, a limit was exceeded, or an emit was refused.
/// - "reconnect", [attempt]: before each attempt to reconnect; attempts count from 1.
///
/// A server cannot fake these events. Its own events named "error" or "reconnect" are dropped and
/// not acknowledged; the first one on a connection is recorded. "connect", "disconnect" and the
/// other names that the protocol reserves are protocol errors.
///
/// This is an interface, so code that uses it can be tested with a fake. `create` makes the real
/// client.
class VEXIM_EXPORT SocketIOClient : public Object {
public:
    using Object::Object;

    /// Receives an event on the main queue: its arguments, and an emitter to answer it with.
    using Handler = std::function<void(const Array& arguments, const AckEmitter& ack)>;
    /// Identifies a handler, for `off`. Never 0.
    using HandlerId = std::uint64_t;
    /// Receives the server's answer and nullptr, or an empty array and the error.
    using AckCallback = std::function<void(const Array& answer, ErrorPtr error)>;

    /// Makes a client for `url` (http, https, ws or wss). With nil or another scheme, `connect`
    /// gives "error". An unknown option, or a value of the wrong type or range, is logged once and
    /// ignored; a malformed "caFile", "caPEM" or "pinnedKeys" makes `connect` give "error".
    /// docs/socketio.md has types and defaults. The options are:
    ///
    /// - How to connect: "transports" (array of "websocket" and "polling", in the order to try),
    ///   "forceWebsockets", "forcePolling", "secure" (TLS for a plain URL), "compress", "path",
    ///   "protocolVersion" (3 or 4; detected otherwise), "connectTimeout" (seconds).
    /// - What to send along: "connectParams" (the handshake's query), "joinPayload" (servers 3.x
    ///   and 4.x call it `auth`), "extraHeaders".
    /// - Whom to trust: "caFile", "caPEM", "pinnedKeys", "selfSigned".
    /// - When to try again: "reconnects", "reconnectAttempts", "reconnectWait" and
    ///   "reconnectWaitMax" (seconds).
    /// - Limits in bytes: "maxMessageSize" (received), "maxQueuedBytes" (not sent yet),
    ///   "maxReadAhead" (received and not delivered yet).
    /// - What to watch: "log" (connects and losses), "metrics" (a `VXIMMetrics`).
    static std::shared_ptr<SocketIOClient> create(const std::optional<URL>& url,
                                                  const Dictionary& options);

    /// Sets the namespace for the next `connect()`; "/" at first. An empty name means "/", and a
    /// missing leading slash is added. A query ("/chat?x=y") is sent to 2.x servers only; later
    /// ones have none.
    virtual void joinNamespace(std::string_view nsp) = 0;
    /// The namespace, without its query.
    virtual std::string nsp() const = 0;

    /// Connects. If a reconnect attempt is scheduled, it starts now. Does nothing while connecting
    /// or connected. A failure arrives as "error".
    virtual void connect() = 0;
    /// Leaves the namespace and closes the connection; "disconnect" follows. Reconnecting stops.
    /// Events emitted before are still sent if the connection can take them right away. `connect()`
    /// works again afterwards, with the same handlers.
    virtual void disconnect() = 0;
    /// The state of the connection.
    virtual SocketIOStatus status() const noexcept = 0;
    /// Call this when the network has come back or changed. A scheduled reconnect attempt starts
    /// now, and an open link is checked with a heartbeat.
    virtual void networkDidChange() = 0;

    /// Calls `handler` for each `event`, after the handlers that were registered before it.
    virtual HandlerId on(std::string_view event, Handler handler) = 0;
    /// Removes all handlers of `event`, or one handler. If you call this on the main thread, they
    /// are not called any more once it has returned.
    virtual void off(std::string_view event) = 0;
    virtual void off(HandlerId id) = 0;
    /// Removes every handler of every event, like `off`.
    virtual void removeAllHandlers() = 0;

    /// Sends `event` with `items` (data values become binary attachments, 10 at most). Returns
    /// nullptr if the connection has accepted it. Otherwise it returns the reason, and no "error"
    /// event follows. The error is in `kSocketIOErrorDomain`, with a `SocketIOErrorCode`: not
    /// connected (1), too large for the server or the queue, or the queue is full (4; temporary
    /// only if the queue is full), or the items cannot be sent (5). Nothing is kept for a later
    /// connection.
    virtual ErrorPtr tryEmit(std::string_view event, const Array& items) = 0;
    /// Like `tryEmit`, but returns whether the event was accepted. If not, an "error" event gives
    /// the reason.
    virtual bool emit(std::string_view event, const Array& items) = 0;
    /// Like `emit`, and asks for an answer. `callback` runs exactly once, on the main queue. It
    /// gets the answer, or an error in `kSocketIOErrorDomain`: the link went down (2), `timeout`
    /// has passed (3), or nothing was sent (1, 4 or 5). With a timeout of 0 it waits until the link
    /// goes down.
    virtual void emitWithAck(std::string_view event, const Array& items,
                             std::chrono::milliseconds timeout, AckCallback callback) = 0;
};

}  // namespace vexim

#pragma pop_macro("emit")
