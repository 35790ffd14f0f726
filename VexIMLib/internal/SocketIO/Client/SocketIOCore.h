#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Random.h"
#include "VexIMLib/SocketIOClient.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/Platform/Facts/EventRecord.h"
#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"
#include "VexIMLib/internal/SocketIO/Client/EventHandlers.h"
#include "VexIMLib/internal/SocketIO/Client/Outbox.h"
#include "VexIMLib/internal/SocketIO/Client/SocketIOLink.h"
#include "VexIMLib/internal/SocketIO/Client/SocketIOOptions.h"

namespace vexim {

/// The implementation of a client, between the application's threads, the network thread and the
/// main queue. It outlives the client while something is still running.
///
/// Each connection has an epoch. connect(), disconnect() and each loss start a new one. Reports of
/// the network thread from an older epoch are dropped.
class SocketIOCore final : public std::enable_shared_from_this<SocketIOCore>,
                           private SocketIOLink::Owner,
                           private Meter::Source {
public:
    SocketIOCore(std::optional<Endpoint> endpoint, SocketIOOptions options);
    ~SocketIOCore();

    /// See SocketIOClient. Call it before the first connect().
    void recordInto(std::shared_ptr<EventRecord> record) { record_ = std::move(record); }

    // The client's operations; see SocketIOClient. Any thread.
    void joinNamespace(std::string_view nsp);
    std::string nsp() const;
    void connect();
    void disconnect();
    void networkDidChange();
    SocketIOStatus status() const noexcept { return status_.load(); }
    EventHandlers& handlers() noexcept { return handlers_; }
    ErrorPtr tryEmit(std::string_view event, const Array& items);
    bool emit(std::string_view event, const Array& items);
    void emitWithAck(std::string_view event, const Array& items, std::chrono::milliseconds timeout,
                     SocketIOClient::AckCallback callback);
    /// The client was destroyed: closes the connection, and calls nothing any more except pending
    /// acknowledgements, with an error.
    void shutDown();

private:
    using Epoch = std::uint64_t;

    /// An entry for the main queue: an event, or an answer for `callback`.
    struct Delivery {
        Value event;  // its name
        Array arguments;
        AckEmitter ack;
        SocketIOClient::AckCallback callback;
        ErrorPtr error;
        std::size_t bytes = 0;
    };
    struct PendingAck {
        SocketIOClient::AckCallback callback;
        std::optional<Clock::TimePoint> deadline;
    };
    struct Sent {
        std::size_t events = 0;
        std::size_t bytes = 0;
    };
    enum class EmitFault : std::uint8_t {
        None,
        NotConnected,
        QueueFull,
        Oversize,
        TooLarge,
        NotEncodable
    };

    /// Holds the mutex while something may be pushed. Wakes the main queue only after unlocking it,
    /// because that may call a function of the application.
    class VEXIM_THREAD_ANNOTATION(scoped_lockable) Section {
    public:
        explicit Section(SocketIOCore& core)
            VEXIM_THREAD_ANNOTATION(acquire_capability(core.mutex_));
        ~Section() VEXIM_THREAD_ANNOTATION(release_capability());
        Section(const Section&) = delete;
        Section& operator=(const Section&) = delete;

    private:
        SocketIOCore& core_;
    };

    static ErrorPtr makeError(SocketIOErrorCode code, std::string description);

    // Any thread.
    EmitFault enqueue(const EncodedPacket& packet) VEXIM_REQUIRES(mutex_);
    void sendAck(Epoch epoch, std::uint64_t id, const Array& items);
    void schedulePump() VEXIM_REQUIRES(mutex_);
    void postPump();
    void push(Delivery delivery) VEXIM_REQUIRES(mutex_);
    void countUndelivered(Delivery& delivery) VEXIM_REQUIRES(mutex_);
    void pushEvent(const char* event, Array arguments) VEXIM_REQUIRES(mutex_);
    void failAcks(SocketIOErrorCode code) VEXIM_REQUIRES(mutex_);
    ErrorPtr refusal(EncodeFault encodeFault, EmitFault fault, std::string_view what) const;
    void addLevels(Meter::Figures& figures) const override;
    Outbox beginEpoch(SocketIOStatus status) VEXIM_REQUIRES(mutex_);
    Clock::TimePoint::duration pausedFor(Clock::TimePoint now) const VEXIM_REQUIRES(mutex_);
    void endPause() VEXIM_REQUIRES(mutex_);

    void announce();

    // Main queue.
    bool deliverSome(bool isContinued);
    void countDelivered() VEXIM_REQUIRES(mutex_);
    void deliver(const Delivery& delivery);

    // Network thread.
    void startLink(Epoch epoch);
    void stopLink(Outbox leftover);
    void resumeReading();
    void attemptReconnect(Epoch epoch);
    void scheduleReconnect(Epoch epoch);
    void didGiveUp() VEXIM_REQUIRES(mutex_);
    void pump();
    std::size_t emitNext(Outbox& outbox, Sent& sent);
    void count(const Sent& sent);
    void armAckTimer();
    void expireAcks();
    void flushTurn();
    void retireLink();
    void note(std::string_view what, Dictionary details = {}) const;
    void noteImpostor(std::string_view event);

    void linkDidJoin(const action::Joined& joined) override;
    void linkDidReceive(Packet packet, std::size_t bytes) override;
    void linkDidTrip(const SessionEvent& what) override;
    void linkDidReport(const action::Report& report) override;
    void linkDidEndTurn() override;
    void linkDidEnd(const action::Ended& ended) override;

    std::shared_ptr<EventRecord> record_;  // constant once connected; may be nullptr
    const std::optional<Endpoint> endpoint_;
    const SocketIOOptions options_;
    Meter* const meter_ = options_.meter.get();  // nullptr: nothing is counted
    EventHandlers handlers_;
    std::atomic<SocketIOStatus> status_{SocketIOStatusNotConnected};  // written with the mutex held

    mutable Mutex mutex_;  // never held while a callback runs
    std::string nsp_ VEXIM_GUARDED_BY(mutex_) = "/";
    std::string nspQuery_ VEXIM_GUARDED_BY(mutex_);
    Epoch epoch_ VEXIM_GUARDED_BY(mutex_) = 0;
    std::string joinedNsp_ VEXIM_GUARDED_BY(mutex_);
    std::size_t maxPayload_ VEXIM_GUARDED_BY(mutex_) = 0;
    Outbox outbox_ VEXIM_GUARDED_BY(mutex_);
    // includes what the network thread has taken but not written yet
    std::size_t queuedBytes_ VEXIM_GUARDED_BY(mutex_) = 0;
    std::size_t queuedMessages_ VEXIM_GUARDED_BY(mutex_) = 0;
    bool pumpScheduled_ VEXIM_GUARDED_BY(mutex_) = false;
    std::vector<Delivery> inbox_ VEXIM_GUARDED_BY(mutex_);
    std::size_t undeliveredBytes_ VEXIM_GUARDED_BY(mutex_) = 0;
    // of `ready_`, as its last turn left it
    std::size_t undeliveredReady_ VEXIM_GUARDED_BY(mutex_) = 0;
    bool deliveryScheduled_ VEXIM_GUARDED_BY(mutex_) = false;
    // reading is paused until the application catches up
    std::optional<Clock::TimePoint> pausedSince_ VEXIM_GUARDED_BY(mutex_);
    Clock::TimePoint::duration pausedBefore_ VEXIM_GUARDED_BY(mutex_){};
    std::uint64_t nextAckId_ VEXIM_GUARDED_BY(mutex_) = 0;
    std::unordered_map<std::uint64_t, PendingAck> acks_ VEXIM_GUARDED_BY(mutex_);
    // Uses a clock that stands still while reading is paused: an answer that we do not read is not
    // late.
    std::set<std::pair<Clock::TimePoint, std::uint64_t>> ackDeadlines_ VEXIM_GUARDED_BY(mutex_);
    bool closed_ VEXIM_GUARDED_BY(mutex_) = false;

    // Main queue only. A handler may run the queue itself, and so deliver the rest of the batch.
    std::vector<Delivery> ready_;
    std::size_t nextReady_ = 0;
    std::size_t deliveredBytes_ = 0;  // not subtracted yet

    // Network thread only.
    std::shared_ptr<SocketIOLink> link_;
    Epoch linkEpoch_ = 0;
    bool joined_ = false;
    bool notedImpostor_ = false;  // of this link
    std::optional<Clock::TimePoint> joinedAt_;
    Clock::TimePoint attemptedAt_;  // with a meter only
    std::uint32_t attempt_ = 0;     // attempts since the last stable connection
    bool reconnecting_ = false;     // the link or the wait for it follows a loss
    bool preferWebSocket_ = false;
    std::optional<Epoch> waitingFor_;  // the epoch that waits for the next attempt
    Outbox sending_;
    std::vector<Delivery> turn_;
    std::optional<Clock::TimePoint> emittedAt_;  // the link's last event
    std::unique_ptr<NetworkTimer> reconnectTimer_;
    // keeps the core, and so the link, until the close is sent
    std::unique_ptr<NetworkTimer> goodbyeTimer_;
    std::unique_ptr<NetworkTimer> ackTimer_;
    std::optional<Clock::TimePoint> ackArmedFor_;

    const MeterSourceRegistration registration_{options_.meter, *this};  // the first to go
};

}  // namespace vexim
