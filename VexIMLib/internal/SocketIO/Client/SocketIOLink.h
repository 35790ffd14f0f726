#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"
#include "VexIMLib/internal/SocketIO/Client/PacketQueue.h"
#include "VexIMLib/internal/SocketIO/Client/SocketIOEnvironment.h"
#include "VexIMLib/internal/SocketIO/Protocol/CookieJar.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"
#include "VexIMLib/internal/SocketIO/Transports/PollingTransport.h"
#include "VexIMLib/internal/SocketIO/Transports/Transport.h"
#include "VexIMLib/internal/SocketIO/Transports/WebSocketTransport.h"

namespace vexim {

/// One connection from its first lookup to its end: a session, its transports and its timer.
/// Network thread only.
///
/// It has more than 25 functions because the session's actions and the transports' reports have one
/// each.
class SocketIOLink final : private TransportListener {
public:
    class Owner {
    public:
        virtual void linkDidJoin(const action::Joined& joined) = 0;
        /// `bytes` is the size of the packet on the wire.
        virtual void linkDidReceive(Packet packet, std::size_t bytes) = 0;
        /// A transport failed or closed. The session may continue with another.
        virtual void linkDidLoseTransport(const SessionEvent& what) = 0;
        virtual void linkDidReport(const action::Report& report) = 0;
        /// The events received so far can be passed on together, and there may be room to emit.
        virtual void linkDidEndTurn() = 0;
        /// The last call. After it returns, the link may be destroyed.
        virtual void linkDidEnd(const action::Ended& ended) = 0;

    protected:
        ~Owner() = default;
    };

    /// `owner` must outlive the link.
    SocketIOLink(SessionConfig session, TransportOptions transport, Owner& owner,
                 SocketIOEnvironment environment);
    SocketIOLink(const SocketIOLink&) = delete;
    SocketIOLink& operator=(const SocketIOLink&) = delete;
    ~SocketIOLink();  // closes the connection at once; nothing is called any more

    void start() { apply(event::Start{}); }
    bool canEmit() const;
    /// Removes the first packet of `queue` and writes it; `flush` sends what was written. Returns
    /// the packet's cost in the queue.
    std::size_t emitFrom(PacketQueue& queue);
    void flush();
    void networkDidChange() { apply(event::NetworkChanged{}); }
    /// Reads only what the server's heartbeat needs. Call it only from `linkDidEndTurn`.
    void pauseReading() { apply(event::Pause{}); }
    void resumeReading();
    /// Closes the connection in the background. `linkDidEnd` is called at once.
    void close() { apply(event::Close{}); }
    /// Ends the link for a reason that the owner gives.
    void abort(EndCause cause, std::string why);

private:
    void didHappen(const SessionEvent& what) override;
    void didReceiveCookies(const std::vector<std::string>& cookies) override;
    void didEndTurn() override;

    void apply(const SessionEvent& what);
    void perform();
    void armTimer();
    void dropTransports();
    PollingTransport& polling();

    void carryOut(action::OpenWebSocket& what);
    void carryOut(action::SendText& what);
    void carryOut(action::SendBinary& what);
    void carryOut(action::PingWebSocket& what);
    void carryOut(action::ReadOn& what);
    void carryOut(action::CloseWebSocket& what);
    void carryOut(action::DropWebSocket& what);
    void carryOut(action::Get& what);
    void carryOut(action::Post& what);
    void carryOut(action::ClosePolling& what);
    void carryOut(action::Joined& what);
    void carryOut(action::Deliver& what);
    void carryOut(action::Report& what);
    void carryOut(action::Ended& what);

    const TransportOptions options_;
    Owner& owner_;
    const SocketIOEnvironment environment_;
    EngineSession session_;
    bool isOver_ = false;           // as reported to the owner
    SessionActions actions_;        // empty between events; keeps its capacity
    std::size_t emittedBytes_ = 0;  // at most this many unsent bytes are not pongs
    CookieJar cookies_;
    std::shared_ptr<WebSocketTransport> webSocket_;
    std::unique_ptr<PollingTransport> polling_;
    NetworkTimer timer_;
    std::optional<Clock::TimePoint> armedFor_;
};

}  // namespace vexim
