#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/internal/Platform/Threads/HostResolver.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"
#include "VexIMLib/internal/SocketIO/Client/Outbox.h"
#include "VexIMLib/internal/SocketIO/Protocol/CookieJar.h"
#include "VexIMLib/internal/SocketIO/Protocol/EngineSession.h"
#include "VexIMLib/internal/SocketIO/Transports/PollingTransport.h"
#include "VexIMLib/internal/SocketIO/Transports/Transport.h"
#include "VexIMLib/internal/SocketIO/Transports/WebSocketTransport.h"

namespace vexim {

/// One connection from its first lookup to its end: a session with the transports and the timer
/// that it asks for. Lives on the network thread.
class SocketIOLink final : private TransportListener {
public:
    class Owner {
    public:
        virtual void linkDidJoin(const action::Joined& joined) = 0;
        /// `bytes` is what the packet took on the wire.
        virtual void linkDidReceive(Packet packet, std::size_t bytes) = 0;
        /// A transport failed or closed; the session may go on with another.
        virtual void linkDidTrip(const SessionEvent& what) = 0;
        virtual void linkDidReport(const action::Report& report) = 0;
        /// What was heard can be handed on together, and there may be room to emit.
        virtual void linkDidEndTurn() = 0;
        /// The last call. The link may be destroyed once this has returned.
        virtual void linkDidEnd(const action::Ended& ended) = 0;

    protected:
        ~Owner() = default;
    };

    struct Environment {
        std::shared_ptr<Clock> clock;
        HostResolver* resolver;
    };

    /// `owner` must outlive the link.
    SocketIOLink(SessionConfig session, TransportOptions transport, Owner& owner,
                 Environment environment);
    SocketIOLink(const SocketIOLink&) = delete;
    SocketIOLink& operator=(const SocketIOLink&) = delete;
    ~SocketIOLink();  // lets go of the peer at once; nothing is called any more

    void start() { apply(event::Start{}); }
    bool canEmit() const;
    /// Takes the first packet of `outbox` out and writes it; `flush` sends what was written.
    /// Answers what it cost there.
    std::size_t emitFrom(Outbox& outbox);
    void flush();
    void nudge() { apply(event::Nudge{}); }
    /// No more is read but what the peer's heartbeat needs. To be called from `linkDidEndTurn`
    /// only.
    void pauseReading() { apply(event::Pause{}); }
    void resumeReading();
    /// Says goodbye in the background. `linkDidEnd` comes at once.
    void close() { apply(event::Close{}); }
    /// Breaks the link off for a reason of the owner's.
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
    const Environment environment_;
    EngineSession session_;
    bool isOver_ = false;           // as the owner has been told
    SessionActions actions_;        // empty between events; keeps its capacity
    std::size_t emittedBytes_ = 0;  // of what is unsent, at most
    CookieJar cookies_;
    std::shared_ptr<WebSocketTransport> webSocket_;
    std::unique_ptr<PollingTransport> polling_;
    NetworkTimer timer_;
    std::optional<Clock::TimePoint> armedFor_;
};

}  // namespace vexim
