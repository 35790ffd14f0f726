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

class EventRecord;

/// What a client's `status()` says. Only at 3 do events go out.
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

    /// An emitter nobody waits for: `with` does nothing.
    AckEmitter() = default;
    /// `send` is called at most once among all copies.
    explicit AckEmitter(Send send);

    /// Whether the sender asked for an answer.
    bool isExpected() const noexcept { return state_ != nullptr; }
    /// Answers with `items`. Only the first call counts; after a reconnect none does. Call from any
    /// thread.
    void with(const Array& items) const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

/// One namespace of a Socket.IO server, 2.x, 3.x or 4.x: which it is, it finds out by itself.
///
///     auto socket = SocketIOClient::create(url, options);
///     socket->joinNamespace("/chat");
///     socket->on("message", [](const Array& arguments, const AckEmitter&) { … });
///     socket->connect();
///
/// Every operation can be called from any thread, in any state, also inside a handler; none waits
/// for the peer, the destructor neither. Handlers run on the main queue, one at a time, in the
/// order in which things happened. Besides the peer's events they hear:
///
/// - "connect", [nsp]: the namespace is joined; `status()` is 3 since before. Also after each
///   successful reconnect.
/// - "disconnect", [reason]: the link was lost while connected; or, exactly once for each
///   `disconnect()` that follows a `connect()`, whatever the link's state was.
/// - "error", [description, what the server said if anything, the error]: a first connect failed
///   (nothing else is heard then), an attempt to reconnect failed, the server refused the
///   namespace, a limit was passed, or an emit was refused.
/// - "reconnect", [attempt]: before each attempt to reconnect; attempts count from 1.
///
/// A peer cannot pretend to be the connection: its events named "error" or "reconnect" are dropped
/// and not answered, and the first of a connection is recorded. "connect", "disconnect" and the
/// other names that the protocol reserves are faults.
///
/// An interface, so that what stands on it can be tested with a fake; `create` makes the one that
/// speaks to servers.
class VEXIM_EXPORT SocketIOClient : public Object {
public:
    using Object::Object;

    /// Hears an event on the main queue: its arguments, and what answers it.
    using Handler = std::function<void(const Array& arguments, const AckEmitter& ack)>;
    /// Names a registration for `off`; never 0.
    using HandlerId = std::uint64_t;
    /// The peer's answer and nullptr, or an empty array and the error.
    using AckCallback = std::function<void(const Array& answer, ErrorPtr error)>;
    /// How a client of the library gets its socket; `create` is one.
    using Factory = std::function<std::shared_ptr<SocketIOClient>(const std::optional<URL>& url,
                                                                  const Dictionary& options)>;

    /// A client for `url` (http, https, ws or wss; nil, or another scheme: `connect` gives
    /// "error"). The options are listed in docs/socketio.md; an unknown key or a value of the wrong
    /// type is logged once and ignored.
    static std::shared_ptr<SocketIOClient> create(const std::optional<URL>& url,
                                                  const Dictionary& options);

    /// Where to write down what the connection goes through. To be called before the first
    /// `connect()`.
    virtual void recordInto(std::shared_ptr<EventRecord> record) { static_cast<void>(record); }

    /// Chooses the namespace of the next `connect()`; "/" at first. Empty is "/", a missing leading
    /// slash is added, and a query ("/chat?x=y") goes to servers 2.x only, which alone know one.
    virtual void joinNamespace(std::string_view nsp) = 0;
    /// The namespace, without a query.
    virtual std::string nsp() const = 0;

    /// Connects, or tries at once where the next attempt is still being waited for. Does nothing
    /// while connecting or connected.
    virtual void connect() = 0;
    /// Leaves and closes; "disconnect" follows. Attempts to reconnect end. What was emitted before
    /// still goes out when it can at once. `connect()` works again afterwards, with the same
    /// handlers.
    virtual void disconnect() = 0;
    /// How the connection stands.
    virtual SocketIOStatus status() const noexcept = 0;
    /// The network has come back or changed: an attempt that is being waited for starts now, a link
    /// that looks alive is asked for a sign of life.
    virtual void networkDidChange() = 0;

    /// Calls `handler` for each `event`, after those registered before.
    virtual HandlerId on(std::string_view event, Handler handler) = 0;
    /// Removes all handlers of `event`, or one. Once this has returned on the main thread nothing
    /// of them is called.
    virtual void off(std::string_view event) = 0;
    virtual void off(HandlerId id) = 0;
    /// Removes every handler of every event, as `off` does.
    virtual void removeAllHandlers() = 0;

    /// Sends `event` with `items` (data values go as attachments, at most 10). nullptr: the
    /// connection has taken it. Else the answer is why not, with a `SocketIOErrorCode`, and nothing
    /// else is heard of it: `status()` is not 3, the items cannot be sent, the server or the queue
    /// takes nothing as long, or the queue is full. Nothing is queued for a later connection.
    virtual ErrorPtr tryEmit(std::string_view event, const Array& items) = 0;
    /// As `tryEmit`, for callers that do not ask why: the answer is whether it was taken, and an
    /// "error" tells the reason.
    virtual bool emit(std::string_view event, const Array& items) = 0;
    /// As `emit`, and asks for an answer. `callback` runs exactly once, on the main queue: with the
    /// answer, or with an error when `timeout` has passed, the link went down, or nothing was sent.
    /// A timeout of 0 waits as long as the link lasts.
    virtual void emitWithAck(std::string_view event, const Array& items,
                             std::chrono::milliseconds timeout, AckCallback callback) = 0;
};

}  // namespace vexim

#pragma pop_macro("emit")
