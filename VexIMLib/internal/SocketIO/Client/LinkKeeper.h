#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/internal/Configuration/Meter.h"
#include "VexIMLib/internal/Platform/Facts/EventRecord.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"
#include "VexIMLib/internal/SocketIO/Client/Reconnector.h"
#include "VexIMLib/internal/SocketIO/Client/SocketIOCore.h"
#include "VexIMLib/internal/SocketIO/Client/SocketIOEnvironment.h"
#include "VexIMLib/internal/SocketIO/Client/SocketIOLink.h"
#include "VexIMLib/internal/SocketIO/Client/SocketIOOptions.h"

namespace vexim {

/// The part of a client on the network thread. It keeps a link while the application wants one,
/// reconnects after losses, and passes packets between the link and the core.
class LinkKeeper final : public std::enable_shared_from_this<LinkKeeper>,
                         public SocketIOCore::Network,
                         private SocketIOLink::Owner {
public:
    using Epoch = SocketIOCore::Epoch;

    /// A missing endpoint makes every connect fail. `record` may be nullptr.
    LinkKeeper(std::shared_ptr<SocketIOCore> core, std::optional<Endpoint> endpoint,
               SocketIOOptions options, SocketIOEnvironment environment,
               std::shared_ptr<EventRecord> record);

    // Any thread.

    void start(Epoch epoch) override;
    void attemptNow() override;
    void stop(PacketQueue leftover) override;
    void send() override;
    void resumeReading() override;
    void networkDidChange();

private:
    // Network thread.
    void openLink(Epoch epoch);
    void closeLink(PacketQueue leftover);
    void retireLink();
    void attempt();
    void waitForAttempt(Epoch epoch);
    void sendWaiting();
    void watchAcks();
    void flushTurn();
    Clock::TimePoint now() const { return environment_.clock->now(); }
    bool isNoting() const noexcept { return options_.log || record_; }
    void note(std::string_view what, Dictionary details = {}) const;
    void noteReservedName(std::string_view event);

    void linkDidJoin(const action::Joined& joined) override;
    void linkDidReceive(Packet packet, std::size_t bytes) override;
    void linkDidLoseTransport(const SessionEvent& what) override;
    void linkDidReport(const action::Report& report) override;
    void linkDidEndTurn() override;
    void linkDidEnd(const action::Ended& ended) override;

    const std::shared_ptr<SocketIOCore> core_;
    const std::optional<Endpoint> endpoint_;
    const SocketIOOptions options_;
    const SocketIOEnvironment environment_;
    const std::shared_ptr<EventRecord> record_;  // may be nullptr
    Meter* const meter_ = options_.meter.get();  // nullptr: nothing is counted

    // Network thread only.
    std::shared_ptr<SocketIOLink> link_;
    Epoch epoch_ = 0;  // of the link
    Reconnector reconnector_;
    Clock::TimePoint attemptedAt_;    // set only if there is a meter
    bool notedReservedName_ = false;  // on this link
    bool preferWebSocket_ = false;
    std::optional<Epoch> waitingFor_;  // the epoch that waits for the next attempt
    PacketQueue sending_;
    std::vector<Delivery::Item> turn_;
    std::optional<Clock::TimePoint> emittedAt_;  // when the link's last event was sent
    std::optional<Clock::TimePoint> ackArmedFor_;
    // Made when needed, and destroyed on this thread.
    std::unique_ptr<NetworkTimer> reconnectTimer_;
    std::unique_ptr<NetworkTimer> ackTimer_;
    // keeps this object, and so the link, until the close is sent
    std::unique_ptr<NetworkTimer> goodbyeTimer_;
};

}  // namespace vexim
