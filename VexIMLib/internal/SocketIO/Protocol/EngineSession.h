#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMErrors.h"
#include "VexIMLib/internal/SocketIO/Protocol/BoundedAppend.h"
#include "VexIMLib/internal/SocketIO/Protocol/EnginePacket.h"
#include "VexIMLib/internal/SocketIO/Protocol/OpenPacket.h"
#include "VexIMLib/internal/SocketIO/Protocol/Packet.h"
#include "VexIMLib/internal/SocketIO/Protocol/Payload.h"

namespace vexim {

enum class TransportChoice : std::uint8_t {
    WebSocketThenPolling,  // polling if the WebSocket handshake is refused
    WebSocketOnly,
    PollingOnly,
    PollingThenWebSocket,  // upgraded if the server offers it
};

/// The settings of one connection.
struct SessionConfig {
    TransportChoice transports = TransportChoice::WebSocketThenPolling;
    std::string nsp = "/";
    // sent with the join, only to revision 3; revision 4 has no query
    std::string nspQuery;
    // sent with the join, only to revision 4; a dictionary or nil
    Value joinPayload;
    std::string path = "/socket.io/";        // begins and ends with a slash
    std::string query;                       // the application's part, encoded: "auth=%7B%7D"
    std::optional<EngineRevision> revision;  // nullopt: detected
    std::chrono::milliseconds connectTimeout{20'000};
    std::chrono::milliseconds upgradeTimeout{10'000};
    std::size_t maxMessageBytes = kDefaultMaxMessageBytes;
};

/// The events of a session. Views need to be valid only during the call.
namespace event {
struct Start {};
struct WebSocketOpened {};
/// It failed to open.
struct WebSocketFailed {
    /// Cut: the server was reached and closed the connection without an answer.
    enum class Stage : std::uint8_t { Resolve, Connect, Tls, Proxy, Handshake, Cut };
    Stage stage = Stage::Handshake;
    std::string reason;
    int httpStatus = 0;  // 0 if there was no HTTP answer
    std::string body;
};
struct WebSocketText {
    std::string_view text;
};
struct WebSocketBinary {
    std::string_view bytes;
};
/// It was open and has closed.
struct WebSocketClosed {
    enum class Cause : std::uint8_t { Peer, Network, Malformed, TooLarge };
    Cause cause = Cause::Network;
    std::string reason;
};
/// An answer to a ping of the WebSocket itself.
struct WebSocketPong {};
/// The server's ping; the transport has answered it.
struct WebSocketPing {};
struct GetAnswered {
    int status = 200;
    std::string_view body;
};
struct PostAnswered {
    int status = 200;
    std::string_view body;
};
/// A GET or POST got no answer, or too long an answer.
struct RequestFailed {
    std::string reason;
    bool isTooLarge = false;
    VXIMConnectionErrorKind kind = VXIMConnectionErrorLost;
};
/// A message from the application; see `canEmit`.
struct Emit {
    EncodedPacket packet;
};
/// No more messages for now: send the collected ones.
struct Flush {};
/// The time of `deadline()` has come.
struct Tick {};
/// The network changed: check the connection with a ping.
struct NetworkChanged {};
/// The application is too slow: read only what the server's heartbeat needs.
struct Pause {};
/// It has caught up.
struct Resume {};
/// Continue reading an answer; see `hasMoreToRead`.
struct ReadOn {};
/// The application disconnects.
struct Close {};
}  // namespace event

using SessionEvent =
    std::variant<event::Start, event::WebSocketOpened, event::WebSocketFailed, event::WebSocketText,
                 event::WebSocketBinary, event::WebSocketClosed, event::WebSocketPong,
                 event::WebSocketPing, event::GetAnswered, event::PostAnswered,
                 event::RequestFailed, event::Emit, event::Flush, event::Tick,
                 event::NetworkChanged, event::Pause, event::Resume, event::ReadOn, event::Close>;

enum class EndCause : std::uint8_t {
    Asked,             // event::Close
    ServerDisconnect,  // the server removed us from the namespace: do not retry
    Refused,           // the server refused the namespace: do not retry
    ConnectFailed,     // never joined
    LinkLost,
    HeartbeatMissed,
    ProtocolFault,
    LimitPassed,
};

/// The actions that a session asks for, in order.
namespace action {
struct OpenWebSocket {
    std::string target;
};
struct SendText {
    std::string text;
};
struct SendBinary {
    std::string bytes;
};
struct PingWebSocket {};
/// Read a portion, although reading is paused.
struct ReadOn {};
/// Flush, send the close, and drop the connection within a second.
struct CloseWebSocket {};
/// Drop the connection at once.
struct DropWebSocket {};
struct Get {
    std::string target;
    std::chrono::milliseconds timeout;
};
struct Post {
    std::string target;
    std::string body;
};
/// Post `body` when a running POST is done, drop the GET, and close within a second.
struct ClosePolling {
    std::string target;
    std::string body;
};
struct Joined {
    std::string sid;
    EngineRevision revision;
    std::optional<std::size_t> maxPayload;
};
struct Deliver {
    Packet packet;
    std::size_t bytes = 0;  // on the wire
};
/// An error that does not end the connection.
struct Report {
    std::string description;
    Value detail;
    VXIMConnectionErrorKind kind = VXIMConnectionErrorServerReported;
};
/// The last action. Drop any transport that is still open.
struct Ended {
    EndCause cause;
    std::string why;
    Value detail;  // what the server said, or nil
    // polling requests reach different servers: start the next connection in another way
    bool preferWebSocket = false;
    std::optional<VXIMConnectionErrorKind> kind = std::nullopt;  // if the cause says too little
};
}  // namespace action

using SessionAction =
    std::variant<action::OpenWebSocket, action::SendText, action::SendBinary, action::PingWebSocket,
                 action::ReadOn, action::CloseWebSocket, action::DropWebSocket, action::Get,
                 action::Post, action::ClosePolling, action::Joined, action::Deliver,
                 action::Report, action::Ended>;
using SessionActions = std::vector<SessionAction>;

/// One connection to one namespace, from the first request to its end: detection of the revision,
/// join, heartbeat, upgrade, close. A pure state machine without sockets, clock or threads: events
/// go in, actions come out.
///
/// It has more than 25 functions because each of 19 kinds of events has one, and all of them depend
/// on the same phase. Three files share them by job.
class EngineSession {
public:
    using TimePoint = Clock::TimePoint;

    explicit EngineSession(SessionConfig config);

    /// Appends to `actions`. After Ended it does nothing.
    void on(const SessionEvent& happened, TimePoint now, SessionActions& actions);

    /// When the next Tick is due; nullopt means never.
    std::optional<TimePoint> deadline() const;
    /// Whether Emit is allowed now. If not, messages wait outside.
    bool canEmit() const noexcept;
    /// Whether a message may be sent directly on the WebSocket, without an Emit, because nothing of
    /// this session must go before it.
    bool emitsDirectly() const noexcept;
    /// Whether the WebSocket must read only what ReadOn asks for.
    bool pausesWebSocket() const noexcept { return isPaused_ && emitsDirectly(); }
    /// Whether ReadOn is allowed. A long answer is read in portions, so that a pause can come in
    /// between.
    bool hasMoreToRead() const noexcept { return reader_ && !isPaused_ && !hasEnded(); }
    std::optional<EngineRevision> revision() const noexcept { return revision_; }
    bool hasEnded() const noexcept { return phase_ == Phase::Ended; }

private:
    enum class Phase : std::uint8_t {
        Idle,
        OpeningWebSocket,  // until the open packet
        OpeningPolling,    // until the open packet
        Detecting,         // open on a WebSocket, revision unknown, a join sent
        Joining,           // revision known, a join sent
        Joined,
        Probing,   // joined with polling, a WebSocket is being tried
        Draining,  // the WebSocket answers; waiting for the last GET, and for a running POST
        Ended,
    };
    enum class Carrier : std::uint8_t { None, WebSocket, Polling };

    void handle(const event::Start&);
    void handle(const event::WebSocketOpened&);
    void handle(const event::WebSocketFailed&);
    void handle(const event::WebSocketText&);
    void handle(const event::WebSocketBinary&);
    void handle(const event::WebSocketClosed&);
    void handle(const event::WebSocketPong&);
    void handle(const event::WebSocketPing&);
    void handle(const event::GetAnswered&);
    void handle(const event::PostAnswered&);
    void handle(const event::RequestFailed&);
    void handle(const event::Emit&);
    void handle(const event::Flush&) {}
    void handle(const event::Tick&);
    void handle(const event::NetworkChanged&);
    void handle(const event::Pause&);
    void handle(const event::Resume&);
    void handle(const event::ReadOn&);
    void handle(const event::Close&);

    void begin(bool& tried);
    void openWebSocket();
    void openPolling();
    void refused(event::WebSocketFailed::Stage stage, int status, std::string_view body,
                 std::string reason);
    void didReceiveOpen(std::string_view json);
    void decide(EngineRevision revision);
    std::optional<EngineRevision> revisionToldBy(const Packet& packet) const;

    void didReceiveProbeAnswer(std::string_view text);
    void abandonUpgrade();
    void finishUpgradeWhenDrained();
    void didReceiveEngine(const EnginePacketView& packet);
    void didDecode(PacketDecoder::Result result);
    void didReceiveWhileJoining(Packet packet);
    void didReceiveWhileJoined(Packet packet);
    void joined(const Packet* reply);
    void didReceivePing();

    void waitForNextPing();
    void waitForSignOfLife();
    void sendPing();
    void readPortion();
    void readToTheEnd();
    void didEndAnswer(bool isMalformed);
    void expectPing();
    void readOnForPing();
    void send(std::string text);
    void addFollowUps();
    void post();
    void end(EndCause cause, std::string why, Value detail = nullptr, bool preferWebSocket = false,
             std::optional<VXIMConnectionErrorKind> kind = std::nullopt);
    void failToConnect(VXIMConnectionErrorKind kind, std::string why);
    template <class Action>
    void addAction(Action&& action) {
        actions_->emplace_back(std::forward<Action>(action));
    }

    bool isConnecting() const noexcept;
    bool isJoined() const noexcept;
    std::string target(std::string_view transport);
    std::string nspWithQuery() const;

    const SessionConfig config_;
    Phase phase_ = Phase::Idle;
    Carrier carrier_ = Carrier::None;

    // Valid during `on` only.
    SessionActions* actions_ = nullptr;
    TimePoint now_{};

    std::optional<EngineRevision> revision_;
    EngineRevision requested_ = EngineRevision::V4;
    OpenPacket open_;
    PacketDecoder decoder_;
    bool triedWebSocket_ = false;
    bool triedPolling_ = false;
    bool triedUpgrade_ = false;
    bool askedProbeNamespace_ = false;
    unsigned requests_ = 0;

    std::optional<TimePoint> connectDeadline_;
    std::optional<TimePoint> webSocketDeadline_;  // then polling is tried
    std::optional<TimePoint> upgradeDeadline_;
    std::optional<TimePoint> pingDue_;            // revision 3: our ping
    std::optional<TimePoint> heartbeatDeadline_;  // a pong (3) or a ping (4) must come before this
    std::optional<TimePoint> livenessDeadline_;

    // Used while the application is too slow: when the next ping of each kind is expected.
    struct Rhythm {
        std::optional<TimePoint> last;
        std::optional<TimePoint> next;
        void heard(TimePoint now, std::chrono::nanoseconds interval);
    };
    bool isPaused_ = false;
    Rhythm enginePings_;                  // revision 4: the server's
    Rhythm webSocketPings_;               // of the WebSocket itself, if the server sends any
    std::optional<TimePoint> readOnDue_;  // while paused: a ping is waiting to be read

    // Polling.
    bool getInFlight_ = false;
    TimePoint getSentAt_{};
    unsigned hastyAnswers_ = 0;        // in a row: answered at once, and empty
    std::optional<TimePoint> getDue_;  // the next GET waits until then
    bool wantsGet_ = false;            // although reading is paused
    std::string answer_;               // the one that `reader_` reads
    std::optional<PayloadReader> reader_;
    bool isIdleAnswer_ = false;
    std::size_t receivedBytes_ = 0;  // of the message that is coming in
    bool postInFlight_ = false;
    std::deque<std::string> outgoing_;  // packets as text, in order
    std::size_t outgoingBytes_ = 0;
};

}  // namespace vexim
