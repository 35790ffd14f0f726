#include "VexIMLib/internal/Configuration/Meter.h"

#include <algorithm>
#include <limits>
#include <span>
#include <string>
#include <string_view>

#include "VexIMLib/internal/Foundation/Threads/MainQueueLength.h"

namespace vexim {
namespace {

using Kind = VXIMMetricKind;
using Names = std::span<const char* const>;

constexpr const char* kNoLabel[] = {""};
constexpr const char* kAttemptKinds[] = {"first", "reconnect"};
constexpr const char* kStates[] = {"connecting", "connected", "disconnected"};
constexpr const char* kLoginOutcomes[] = {"accepted", "refused"};
constexpr const char* kMessageKinds[] = {"peer", "own", "system"};
constexpr const char* kSendOutcomes[] = {"taken", "refused"};
constexpr const char* kEmitFaults[] = {"not connected", "queue full", "too long", "not encodable"};
constexpr const char* kRequestOutcomes[] = {"success", "refused", "failed", "no answer",
                                            "cancelled"};

/// The one place for what a metric is called and means. Base units: seconds and bytes.
struct Row {
    Metric metric;
    Kind kind;
    const char* name;
    const char* help;
    const char* label = "";  // each series has one of `values` for it
    Names values = kNoLabel;
};
constexpr Row kMetrics[] = {
    {Metric::Connections, VXIMMetricKindGauge, "vexim_connections",
     "Live connections that clients hold, by their state.", "status", kStates},
    {Metric::ConnectionsPaused, VXIMMetricKindGauge, "vexim_connections_paused",
     "Connections that have stopped reading until the program handles their events."},
    {Metric::ConnectionAttempts, VXIMMetricKindCounter, "vexim_connection_attempts_total",
     "Attempts to connect: the first of a connection, and reconnects.", "kind", kAttemptKinds},
    {Metric::ConnectionsJoined, VXIMMetricKindCounter, "vexim_connections_joined_total",
     "Attempts that reached the service and joined its namespace.", "kind", kAttemptKinds},
    {Metric::ConnectionsEnded, VXIMMetricKindCounter, "vexim_connections_ended_total",
     "Failed attempts and ended connections, by the cause.", "cause", kConnectionEndCauses},
    {Metric::ConnectDuration, VXIMMetricKindHistogram, "vexim_connect_duration_seconds",
     "Time from the start of an attempt until the namespace was joined."},
    {Metric::Logins, VXIMMetricKindCounter, "vexim_logins_total",
     "Logins that the service answered, including those after reconnects.", "outcome",
     kLoginOutcomes},
    {Metric::MessagesReceived, VXIMMetricKindCounter, "vexim_messages_received_total",
     "Messages received: from others, echoes of own messages, and system messages.", "kind",
     kMessageKinds},
    {Metric::MessagesSent, VXIMMetricKindCounter, "vexim_messages_sent_total",
     "Messages given to connections, by whether they were taken or refused.", "outcome",
     kSendOutcomes},
    {Metric::EventsReceived, VXIMMetricKindCounter, "vexim_events_received_total",
     "Events and acknowledgements received, including messages."},
    {Metric::EventsReceivedBytes, VXIMMetricKindCounter, "vexim_events_received_bytes_total",
     "Length of the events and acknowledgements received."},
    {Metric::EventsSent, VXIMMetricKindCounter, "vexim_events_sent_total",
     "Events and acknowledgements sent, including messages."},
    {Metric::EventsSentBytes, VXIMMetricKindCounter, "vexim_events_sent_bytes_total",
     "Length of the events and acknowledgements sent."},
    {Metric::EmitsRefused, VXIMMetricKindCounter, "vexim_emits_refused_total",
     "Events and acknowledgements that connections refused, by the reason.", "reason", kEmitFaults},
    {Metric::SendQueueEvents, VXIMMetricKindGauge, "vexim_send_queue_events",
     "Events waiting to be sent, over all connections."},
    {Metric::SendQueueBytes, VXIMMetricKindGauge, "vexim_send_queue_bytes",
     "Memory of the events waiting to be sent."},
    {Metric::UndeliveredEvents, VXIMMetricKindGauge, "vexim_undelivered_events",
     "Events that the program has not handled yet, over all connections."},
    {Metric::UndeliveredBytes, VXIMMetricKindGauge, "vexim_undelivered_bytes",
     "Estimated memory of the events that the program has not handled yet."},
    {Metric::MainQueueLength, VXIMMetricKindGauge, "vexim_main_queue_length",
     "Functions waiting on the main queue of the process."},
    {Metric::RequestDuration, VXIMMetricKindHistogram, "vexim_request_duration_seconds",
     "Duration of a REST request. Each attempt counts separately.", "outcome", kRequestOutcomes},
    {Metric::RequestRetries, VXIMMetricKindCounter, "vexim_request_retries_total",
     "REST requests that were sent again after a temporary failure."},
    {Metric::RequestsSentBytes, VXIMMetricKindCounter, "vexim_requests_sent_bytes_total",
     "Length of the bodies of REST requests, including uploads."},
    {Metric::RequestsReceivedBytes, VXIMMetricKindCounter, "vexim_requests_received_bytes_total",
     "Length of the bodies of REST answers, including downloads."},
};

constexpr double kBounds[] = {0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1, 2.5, 5, 10, 30, 60};
constexpr std::size_t kBuckets = std::size(kBounds) + 1;  // the last has no bound
constexpr std::size_t kNanosOfSecond = 1'000'000'000;

/// A histogram has one figure for each bucket, which counts only the range of that bucket, and one
/// for the sum in nanoseconds.
constexpr std::size_t width(const Row& row) {
    return row.kind == VXIMMetricKindHistogram ? kBuckets + 1 : 1;
}

constexpr auto kFirstSlots = [] {
    std::array<std::size_t, std::size(kMetrics) + 1> slots{};
    for (std::size_t i = 0; i < std::size(kMetrics); ++i)
        slots[i + 1] = slots[i] + width(kMetrics[i]) * kMetrics[i].values.size();
    return slots;
}();
static_assert(kFirstSlots.back() == Meter::kFigures);
static_assert(std::ranges::all_of(kMetrics, [](const Row& row) {
    return &row == &kMetrics[static_cast<std::size_t>(row.metric)];
}));

VXIMMetricSeries seriesOf(const Row& row, const std::uint64_t* figures) {
    VXIMMetricSeries series;
    if (row.kind != VXIMMetricKindHistogram) {
        series.value = static_cast<double>(*figures);
        return series;
    }
    std::uint64_t count = 0;
    for (std::size_t i = 0; i < kBuckets; ++i) {
        count += figures[i];
        const bool isLast = i + 1 == kBuckets;
        series.buckets.push_back(
            {isLast ? std::numeric_limits<double>::infinity() : kBounds[i], count});
    }
    series.value = static_cast<double>(figures[kBuckets]) / kNanosOfSecond;
    return series;
}

}  // namespace

const char* nameOf(VXIMMetricKind kind) {
    switch (kind) {
        case VXIMMetricKindCounter: return "counter";
        case VXIMMetricKindGauge: return "gauge";
        case VXIMMetricKindHistogram: return "histogram";
    }
    return "untyped";
}

std::shared_ptr<Meter> Meter::of(const Value& metrics) {
    const auto object = metrics.as<VXIMMetrics>();
    return object ? object->meter_ : nullptr;
}

std::shared_ptr<Meter> Meter::of(const Dictionary& options) {
    const Value* metrics = options.find("metrics");
    return metrics ? of(*metrics) : nullptr;
}

std::size_t Meter::slot(Metric metric, std::size_t label) noexcept {
    const auto index = static_cast<std::size_t>(metric);
    return kFirstSlots[index] + label * width(kMetrics[index]);
}

void Meter::add(Metric metric, std::size_t label, std::uint64_t by) noexcept {
    figures_[slot(metric, label)].fetch_add(by, std::memory_order_relaxed);
}

void Meter::observe(Metric metric, std::size_t label, std::chrono::nanoseconds duration) noexcept {
    duration = std::max(duration, std::chrono::nanoseconds::zero());
    const double seconds = std::chrono::duration<double>(duration).count();
    const auto bucket =
        static_cast<std::size_t>(std::ranges::lower_bound(kBounds, seconds) - std::begin(kBounds));
    const std::size_t first = slot(metric, label);
    figures_[first + bucket].fetch_add(1, std::memory_order_relaxed);
    figures_[first + kBuckets].fetch_add(static_cast<std::uint64_t>(duration.count()),
                                         std::memory_order_relaxed);
}

void Meter::addSource(const Source& source) {
    const MutexLock lock(mutex_);
    sources_.insert(&source);
}

void Meter::removeSource(const Source& source) {
    const MutexLock lock(mutex_);
    sources_.erase(&source);
}

Meter::Figures Meter::figures() const {
    Figures figures;
    std::ranges::transform(figures_, figures.begin(), [](const auto& figure) {
        return figure.load(std::memory_order_relaxed);
    });
    figures[slot(Metric::MainQueueLength, 0)] = detail::mainQueueLength();
    const MutexLock lock(mutex_);
    for (const Source* source : sources_) source->addLevels(figures);
    return figures;
}

std::vector<VXIMMetric> Meter::read(const VXIMMetricLabels& labels) const {
    const Figures now = figures();
    std::vector<VXIMMetric> metrics;
    for (const Row& row : kMetrics) {
        VXIMMetric& metric = metrics.emplace_back();
        metric.name = row.name;
        metric.help = row.help;
        metric.kind = row.kind;
        for (std::size_t i = 0; i < row.values.size(); ++i) {
            auto& series = metric.series.emplace_back(seriesOf(row, &now[slot(row.metric, i)]));
            series.labels = labels;
            if (*row.label != '\0') series.labels.emplace_back(row.label, row.values[i]);
        }
    }
    return metrics;
}

bool Meter::isOwnLabel(std::string_view name) {
    return name == "le" ||
           std::ranges::any_of(kMetrics, [&](const Row& row) { return name == row.label; });
}

}  // namespace vexim
