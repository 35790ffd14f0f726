#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/VXIMMetrics.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim {

/// The order is that of `kMetrics`.
enum class Metric : std::uint8_t {
    Connections,
    ConnectionsPaused,
    ConnectionAttempts,
    ConnectionsJoined,
    ConnectionsEnded,
    ConnectDuration,
    Logins,
    MessagesReceived,
    MessagesSent,
    EventsReceived,
    EventsReceivedBytes,
    EventsSent,
    EventsSentBytes,
    EmitsRefused,
    SendQueueEvents,
    SendQueueBytes,
    UndeliveredEvents,
    UndeliveredBytes,
    MainQueueLength,
    RequestDuration,
    RequestRetries,
    RequestsSentBytes,
    RequestsReceivedBytes,
};

// The values of the labels, which tell a metric's series apart.
enum class AttemptKind : std::uint8_t { First, Reconnect };
enum class ConnectionState : std::uint8_t { Connecting, Connected, Disconnected };
enum class LoginOutcome : std::uint8_t { Accepted, Refused };
enum class SendOutcome : std::uint8_t { Taken, Refused };
enum class MessageKind : std::uint8_t { Peer, Own, System };
enum class EmitRefusal : std::uint8_t { NotConnected, QueueFull, TooLong, NotEncodable };
enum class RequestOutcome : std::uint8_t { Success, Refused, Failed, NoAnswer, Cancelled };

/// The label values of `Metric::ConnectionsEnded`, in the order of the live connection's
/// `EndCause`.
inline constexpr const char* kConnectionEndCauses[] = {
    "asked",           "server disconnect", "refused",        "connect failed",
    "connection lost", "heartbeat missed",  "protocol fault", "limit passed"};

/// "counter", "gauge" or "histogram".
const char* nameOf(VXIMMetricKind kind);

/// The figures behind a `VXIMMetrics`. The library counts here. Call from any thread.
class Meter {
public:
    static constexpr std::size_t kFigures = 129;
    using Figures = std::array<std::uint64_t, kFigures>;

    /// Something that can say, when asked, how much is waiting in it.
    class Source {
    public:
        /// Adds its own levels to `figures`. Called on any thread, with a lock of the meter held.
        virtual void addLevels(Figures& figures) const = 0;

    protected:
        ~Source() = default;
    };

    /// The meter of the `VXIMMetrics` under "metrics"; nullptr if there is none.
    static std::shared_ptr<Meter> of(const Dictionary& options);
    static std::shared_ptr<Meter> of(const Value& metrics);

    /// `label` is the index of the label's value.
    void add(Metric metric, std::size_t label, std::uint64_t by = 1) noexcept;
    template <class Label>
    requires std::is_enum_v<Label>
    void add(Metric metric, Label label) noexcept { add(metric, static_cast<std::size_t>(label)); }
    /// Adds a duration to a histogram.
    void observe(Metric metric, std::size_t label, std::chrono::nanoseconds duration) noexcept;

    /// `source` is asked at each reading until it is removed. Do not call these while you hold a
    /// lock that `addLevels` takes.
    void addSource(const Source& source);
    void removeSource(const Source& source);

    /// Whether the library itself uses a label of this name.
    static bool isOwnLabel(std::string_view name);
    /// The index of a figure.
    static std::size_t slot(Metric metric, std::size_t label) noexcept;
    /// A copy of all figures, with the current levels of the sources and the main queue.
    Figures figures() const;
    std::vector<VXIMMetric> read(const VXIMMetricLabels& labels) const;

private:
    std::array<std::atomic<std::uint64_t>, kFigures> figures_{};
    mutable Mutex mutex_;
    std::unordered_set<const Source*> sources_ VEXIM_GUARDED_BY(mutex_);
};

/// Keeps `source` registered with the meter as long as it lives. Without a meter it does nothing.
class MeterSourceRegistration {
public:
    MeterSourceRegistration(std::shared_ptr<Meter> meter, const Meter::Source& source)
        : meter_(std::move(meter)),
          source_(source) {
        if (meter_) meter_->addSource(source_);
    }
    ~MeterSourceRegistration() {
        if (meter_) meter_->removeSource(source_);
    }
    MeterSourceRegistration(const MeterSourceRegistration&) = delete;
    MeterSourceRegistration& operator=(const MeterSourceRegistration&) = delete;

private:
    const std::shared_ptr<Meter> meter_;
    const Meter::Source& source_;
};

}  // namespace vexim
