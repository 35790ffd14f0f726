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

/// In the order of `kMetrics`.
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

// Values of labels, by what the library tells apart.
enum class AttemptKind : std::uint8_t { First, Reconnect };
enum class ConnectionState : std::uint8_t { Connecting, Connected, Disconnected };
enum class LoginOutcome : std::uint8_t { Accepted, Refused };
enum class SendOutcome : std::uint8_t { Taken, Refused };
enum class MessageKind : std::uint8_t { Peer, Own, System };
enum class EmitRefusal : std::uint8_t { NotConnected, QueueFull, TooLong, NotEncodable };
enum class RequestOutcome : std::uint8_t { Success, Refused, Failed, NoAnswer, Cancelled };

/// Of `Metric::ConnectionsEnded`, in the order of the live connection's `EndCause`.
inline constexpr const char* kConnectionEndCauses[] = {
    "asked",           "server disconnect", "refused",        "connect failed",
    "connection lost", "heartbeat missed",  "protocol fault", "limit passed"};

/// "counter", "gauge" or "histogram".
const char* nameOf(VXIMMetricKind kind);

/// The figures behind a `VXIMMetrics`, where the library counts. Any thread.
class Meter {
public:
    static constexpr std::size_t kFigures = 129;
    using Figures = std::array<std::uint64_t, kFigures>;

    /// What can tell how much waits in it, when asked.
    class Source {
    public:
        /// Adds its own to `figures`. Any thread; with a lock of the meter held.
        virtual void addLevels(Figures& figures) const = 0;

    protected:
        ~Source() = default;
    };

    /// The meter of what stands under "metrics"; nullptr when there is none.
    static std::shared_ptr<Meter> of(const Dictionary& options);
    static std::shared_ptr<Meter> of(const Value& metrics);

    /// `label` is the index of the label's value.
    void add(Metric metric, std::size_t label, std::uint64_t by = 1) noexcept;
    template <class Label>
    requires std::is_enum_v<Label>
    void add(Metric metric, Label label) noexcept { add(metric, static_cast<std::size_t>(label)); }
    /// A duration, of a histogram.
    void observe(Metric metric, std::size_t label, std::chrono::nanoseconds duration) noexcept;

    /// `source` is asked at each reading until it is removed. Neither may be called with a lock
    /// held that `addLevels` takes.
    void addSource(const Source& source);
    void removeSource(const Source& source);

    /// Whether the library gives a label of that name.
    static bool isOwnLabel(std::string_view name);
    /// Where a figure lies.
    static std::size_t slot(Metric metric, std::size_t label) noexcept;
    /// A copy of all figures, with what the sources and the main queue have.
    Figures figures() const;
    std::vector<VXIMMetric> read(const VXIMMetricLabels& labels) const;

private:
    std::array<std::atomic<std::uint64_t>, kFigures> figures_{};
    mutable Mutex mutex_;
    std::unordered_set<const Source*> sources_ VEXIM_GUARDED_BY(mutex_);
};

/// Counts as one of its sources for as long as it lives; without a meter it does nothing.
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
