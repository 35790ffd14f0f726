#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim {
class Meter;
}

/// Names and values.
using VXIMMetricLabels = std::vector<std::pair<std::string, std::string>>;

/// How to read a metric.
enum VXIMMetricKind : std::int32_t {
    VXIMMetricKindCounter = 0,    ///< only grows
    VXIMMetricKindGauge = 1,      ///< how much there is now
    VXIMMetricKindHistogram = 2,  ///< how long things took, in seconds
};

/// The figures of one metric under one set of labels.
struct VXIMMetricSeries {
    /// How many took at most so long.
    struct Bucket {
        double seconds = 0;       ///< the upper bound, itself included; infinity in the last bucket
        std::uint64_t count = 0;  ///< with those of all buckets before
    };

    VXIMMetricLabels labels;  ///< those given to `read`, and the metric's own
    /// of a counter or a gauge; of a histogram the sum of all, in seconds
    double value = 0;
    /// of a histogram, by growing bounds; otherwise empty
    std::vector<Bucket> buckets;
};

/// One metric: "vexim_events_received_total", what it counts, and its figures.
struct VXIMMetric {
    std::string name;                             ///< such as "vexim_logins_total"
    std::string help;                             ///< what it counts, in a sentence
    VXIMMetricKind kind = VXIMMetricKindCounter;  ///< how to read the figures
    std::vector<VXIMMetricSeries> series;         ///< one for each set of labels
};

/// Counts what clients do: connections, messages, bytes, how long REST requests take, and how much
/// waits in queues. For the dashboard of a program with many clients, which all share one:
///
///     const auto metrics = VXIMMetrics::init();
///     configuration->setMetrics(metrics);  // of each client, before it logs in
///     …
///     answer("text/plain; version=0.0.4; charset=utf-8", metrics->prometheusText());
///
/// A connection counts here when its options had this object under "metrics" as it was made. A REST
/// request counts here when `vxim_configuration` had it as the request was made, because requests
/// belong to no client. A client without one counts nothing and pays nothing.
///
/// Every function may be called from any thread, at any time; none waits for the network. Each
/// figure is exact by itself. While clients are at work, two figures may be some events apart. The
/// figures live as long as this object, and start at 0 with a new one.
class VEXIM_EXPORT VXIMMetrics final : public vexim::Object {
public:
    explicit VXIMMetrics(vexim::Creation creation);  ///< For the factories.
    ~VXIMMetrics() override;

    /// One with all figures at 0.
    static std::shared_ptr<VXIMMetrics> init();

    /// All metrics, always the same ones in the same order. `labels` are added to each series, for
    /// a program that has several of these objects. A label's name must be of letters, digits and
    /// "_", not begin with a digit or "__", and be none of the library's own ("le", "kind",
    /// "status", "cause", "outcome", "reason"); its value must be UTF-8. Anything else raises
    /// NSInvalidArgumentException.
    std::vector<VXIMMetric> read(const VXIMMetricLabels& labels = {}) const;

    /// One figure now: the sum of those series of the metric that have all of `labels`. Of a
    /// histogram it is how many were counted. nullopt when no metric has the name.
    std::optional<double> total(std::string_view name, const VXIMMetricLabels& labels = {}) const;

    /// What a Prometheus server reads: the text exposition format, version 0.0.4. Raises as `read`
    /// does.
    std::string prometheusText(const VXIMMetricLabels& labels = {}) const;
    /// The same of what `read` gave. Lists of several objects may stand behind one another; they
    /// need different labels then.
    static std::string prometheusTextOf(const std::vector<VXIMMetric>& metrics);

    /// An array with a dictionary a metric: "name", "help", "kind" ("counter", "gauge" or
    /// "histogram") and "series", an array of "labels" with "value", or with "count", "sum" and
    /// "buckets" (each with "le" and "count"; the one without a bound is left out).
    vexim::Value value() const;

    const vexim::Class& runtimeClass() const override;

    /// For the factories.
    bool initialise();

private:
    friend class vexim::Meter;
    std::shared_ptr<vexim::Meter> meter_;
};
