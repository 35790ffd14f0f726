#pragma once

#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Testing/FakeService.h"
#include "VexIMLib/internal/SocketIO/Protocol/Packet.h"

namespace vexim::testing::fake {

/// Sends to the client: messages are sent whole and in order.
class LiveLink {
public:
    virtual ~LiveLink() = default;
    virtual void send(std::string text) = 0;
    /// Closes it without a close frame; `LiveSession::ended` follows.
    virtual void cut() = 0;
};

/// The server's side of one WebSocket connection: Engine.IO, and above it one namespace of
/// Socket.IO. No sockets, no clocks.
///   line 2      open, "40" unasked, the join answered with "40/chat,"; the client pings
///   lines 3, 4  open, the join answered with 40/chat,{"sid":…}; the server pings
class LiveSession {
public:
    class Listener {
    public:
        virtual void sessionJoined(LiveSession& session) = 0;
        virtual void sessionSaid(LiveSession& session, const std::string& event,
                                 const Value& item) = 0;
        /// At most once, and only after it has joined.
        virtual void sessionLeft(LiveSession& session) = 0;
        /// The last call.
        virtual void sessionEnded(LiveSession& session) = 0;

    protected:
        ~Listener() = default;
    };

    /// `auth` is the connection's query parameter. The link and the listener must outlive the
    /// session.
    LiveSession(const FakeService::Options& options, std::string id, std::string auth,
                LiveLink& link, Listener& listener);
    LiveSession(const LiveSession&) = delete;
    LiveSession& operator=(const LiveSession&) = delete;

    void start();
    void received(std::string_view text);
    void receivedBytes(std::string_view bytes);
    /// The service's part of the heartbeat; only lines 3 and 4 have one.
    bool pings() const noexcept { return line_ > 2; }
    void sendPing() { send("2"); }
    void ended();

    void emit(std::string_view event, const Array& items);
    void setSilent(bool silent) noexcept { isSilent_ = silent; }
    void cut() { link_.cut(); }

    const std::string& auth() const noexcept { return auth_; }
    /// The user's id; empty before the login.
    std::string user;

private:
    void send(std::string text);
    void handle(const PacketDecoder::Result& result);
    void join(std::string_view nsp);
    void leave();

    const int line_;
    const std::string nsp_;
    const Dictionary open_;
    const std::string id_;
    const std::string auth_;
    LiveLink& link_;
    Listener& listener_;
    PacketDecoder decoder_{std::size_t{64} << 20};
    bool isJoined_ = false;
    bool isSilent_ = false;
};

}  // namespace vexim::testing::fake
