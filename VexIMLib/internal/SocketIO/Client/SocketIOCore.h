#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/SocketIOClient.h"
#include "VexIMLib/internal/Configuration/Meter.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"
#include "VexIMLib/internal/SocketIO/Client/Acknowledgements.h"
#include "VexIMLib/internal/SocketIO/Client/Delivery.h"
#include "VexIMLib/internal/SocketIO/Client/SendQueue.h"
#include "VexIMLib/internal/SocketIO/Client/SocketIOOptions.h"

namespace vexim {

/// The part of a client that the application's threads, the network thread and the main queue
/// share, under one lock. It outlives the client while something is still running.
///
/// Each connection has an epoch. connect(), disconnect() and each loss start a new one. Reports of
/// the network thread from an older epoch are dropped.
///
/// It has more than 25 functions because two sides meet here: the client's operations, and what a
/// connection reports. Most of them are short: queues, answers and delivery are classes of their
/// own.
class SocketIOCore final : public std::enable_shared_from_this<SocketIOCore>,
                           private Meter::Source {
public:
    using Epoch = std::uint64_t;

    /// The network thread's part of a client. These functions only queue work, in the order of the
    /// calls. They may be called with the lock held.
    class Network {
    public:
        virtual void start(Epoch epoch) = 0;
        /// Starts the next attempt now, if one is waiting.
        virtual void attemptNow() = 0;
        /// Writes as much of `leftover` as the connection takes at once, then disconnects.
        virtual void stop(PacketQueue leftover) = 0;
        virtual void send() = 0;
        virtual void resumeReading() = 0;

    protected:
        ~Network() = default;
    };

    /// Uses only the limits and the meter of `options`.
    SocketIOCore(const SocketIOOptions& options, std::shared_ptr<Clock> clock);
    /// Call it before the first connection.
    void attach(std::weak_ptr<Network> network) { network_ = std::move(network); }

    // The client's operations; see SocketIOClient. Any thread.

    void joinNamespace(std::string_view nsp);
    std::string nsp() const;
    SocketIOStatus status() const noexcept { return status_.load(); }
    EventHandlers& handlers() noexcept { return delivery_.handlers(); }
    void connect();
    void disconnect();
    /// The client was destroyed: closes the connection, and calls nothing any more except pending
    /// acknowledgements, with an error.
    void shutDown();
    ErrorPtr tryEmit(std::string_view event, const Array& items);
    bool emit(std::string_view event, const Array& items);
    void emitWithAck(std::string_view event, const Array& items, std::chrono::milliseconds timeout,
                     Acknowledgements::Callback callback);
    /// Answers the peer, unless that connection has ended.
    void sendAck(Epoch epoch, std::uint64_t id, const Array& items);

    // Reports of a connection; network thread. Those of an older epoch change nothing.

    struct Namespace {
        std::string name;
        std::string query;
    };
    /// The namespace to join; nullopt if the epoch is over.
    std::optional<Namespace> namespaceFor(Epoch epoch) const;
    void didJoin(Epoch epoch, std::size_t serverLimit);
    /// Queues an event. Returns false if the epoch is over.
    bool queueEvent(Epoch epoch, const char* event, Array arguments);
    /// What the application is told when a connection ends, in this order.
    struct Ending {
        ErrorPtr error;
        std::optional<std::string> loss;
        bool givesUp = false;  // no attempt follows, although the application expects one
        bool retries = false;
    };
    /// Starts the next epoch and returns it; nullopt if `epoch` is over.
    std::optional<Epoch> didEnd(Epoch epoch, const Ending& ending);

    std::optional<Acknowledgements::Callback> takeAck(Epoch epoch, std::uint64_t id);
    /// Queues what was received, and empties `items`. If the epoch is over, only answers are
    /// queued: their callbacks were already taken out, so nobody else would call them.
    void deliver(Epoch epoch, std::vector<Delivery::Item>& items);
    struct EndOfTurn {
        bool overflows = false;  // so much is undelivered that the connection must end
        bool pauses = false;     // so much that reading must pause
        bool hasToSend = false;
    };
    /// `mayPause` is true only after the join: the messages that open a connection are short, and
    /// have a deadline.
    EndOfTurn endTurn(Epoch epoch, bool mayPause);
    bool isReadingPaused() const { return delivery_.isPaused(); }
    /// Subtracts what was written, and refills `sending` if that is empty. Returns whether there is
    /// something to write now; if not, the next emit calls `Network::send` again.
    bool refill(Epoch epoch, SendQueue::Written written, bool canEmit, PacketQueue& sending);
    /// Fails the callbacks that got no answer in time. Returns the next deadline, if there is one.
    std::optional<Clock::TimePoint> expireAcks();

private:
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

    PacketQueue beginEpoch(SocketIOStatus status) VEXIM_REQUIRES(mutex_);
    EmitFault enqueue(const EncodedPacket& packet) VEXIM_REQUIRES(mutex_);
    void pushEvent(const char* event, Array arguments) VEXIM_REQUIRES(mutex_);
    void pushFailure(Acknowledgements::Callback callback, ErrorPtr error) VEXIM_REQUIRES(mutex_);
    ErrorPtr refuse(EncodeFault encodeFault, EmitFault fault, std::string_view what) const;
    void wakeNetwork() VEXIM_REQUIRES(mutex_);
    void didDeliver();
    void addLevels(Meter::Figures& figures) const override;
    template <class Call>
    void tellNetwork(const Call& call) const;

    const std::shared_ptr<Clock> clock_;
    const std::shared_ptr<Meter> meter_;  // nullptr: nothing is counted
    std::weak_ptr<Network> network_;      // constant from the first connect on
    Delivery delivery_;                   // its own lock is taken after ours
    std::atomic<SocketIOStatus> status_{SocketIOStatusNotConnected};  // written with the mutex held

    mutable Mutex mutex_;  // never held while a callback runs
    std::string nsp_ VEXIM_GUARDED_BY(mutex_) = "/";
    std::string nspQuery_ VEXIM_GUARDED_BY(mutex_);
    std::string joinedNsp_ VEXIM_GUARDED_BY(mutex_);
    Epoch epoch_ VEXIM_GUARDED_BY(mutex_) = 0;
    SendQueue queue_ VEXIM_GUARDED_BY(mutex_);
    Acknowledgements acks_ VEXIM_GUARDED_BY(mutex_);
    bool closed_ VEXIM_GUARDED_BY(mutex_) = false;

    const MeterSourceRegistration registration_{meter_, *this};  // destroyed first
};

}  // namespace vexim
