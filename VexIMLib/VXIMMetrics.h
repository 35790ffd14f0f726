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

/// Labels: pairs of a name and a value.
using VXIMMetricLabels = std::vector<std::pair<std::string, std::string>>;

/// How to read a metric.
enum VXIMMetricKind : std::int32_t {
    VXIMMetricKindCounter = 0,    ///< only grows
    VXIMMetricKindGauge = 1,      ///< how much there is now
    VXIMMetricKindHistogram = 2,  ///< how long things took, in seconds
};

/// The figures of one metric under one set of labels.
struct VXIMMetricSeries {
    /// How many took at most `seconds`.
    struct Bucket {
        double seconds = 0;       ///< the upper bound, inclusive; infinity in the last bucket
        std::uint64_t count = 0;  ///< including all earlier buckets
    };

    VXIMMetricLabels labels;  ///< those passed to `read`, and the metric's own
    /// the value of a counter or a gauge; for a histogram the sum of all durations, in seconds
    double value = 0;
    /// of a histogram, with ascending bounds; otherwise empty
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
/// waits in queues. All clients of a program can share one object, for example to feed a dashboard:
///
///     const auto metrics = VXIMMetrics::init();
///     configuration->setMetrics(metrics);  // of each client, before it logs in
///     …
///     answer("text/plain; version=0.0.4; charset=utf-8", metrics->prometheusText());
///
/// A connection is counted here if its options had this object under "metrics" when it was made. A
/// REST request is counted here if `vxim_configuration` had it when the request was made, because
/// requests belong to no client. A client without metrics counts nothing.
///
/// Every function may be called from any thread, at any time; none waits for the network. Each
/// figure is exact, but while clients are working, two figures may be some events apart. A new
/// object starts with all figures at 0.
class VEXIM_EXPORT VXIMMetrics final : public vexim::Object {
public:
    explicit VXIMMetrics(vexim::Creation creation);  ///< For the factories.
    ~VXIMMetrics() override;

    /// Makes an object whose figures are all 0.
    static std::shared_ptr<VXIMMetrics> init();

    /// All metrics, always the same ones in the same order. `labels` are added to each series, for
    /// a program that has several of these objects. A label's name may have letters, digits and
    /// "_". It must not begin with a digit or "__", and must not be one that the library uses
    /// ("le", "kind", "status", "cause", "outcome", "reason"). Its value must be UTF-8. Anything
    /// else raises NSInvalidArgumentException.
    std::vector<VXIMMetric> read(const VXIMMetricLabels& labels = {}) const;

    /// One current figure: the sum of those series of the metric that have all of `labels`. For a
    /// histogram it is the number of durations. nullopt if there is no metric of this name.
    std::optional<double> total(std::string_view name, const VXIMMetricLabels& labels = {}) const;

    /// All metrics in Prometheus's text exposition format, version 0.0.4. Raises as `read` does.
    std::string prometheusText(const VXIMMetricLabels& labels = {}) const;
    /// The same for metrics that `read` returned. You may join the lists of several objects if
    /// their labels differ.
    static std::string prometheusTextOf(const std::vector<VXIMMetric>& metrics);

    /// An array with a dictionary for each metric: "name", "help", "kind" ("counter", "gauge" or
    /// "histogram") and "series". Each of the series is a dictionary with "labels" and either
    /// "value", or "count", "sum" and "buckets" (each with "le" and "count"; the one without a
    /// bound is left out).
    vexim::Value value() const;

    const vexim::Class& runtimeClass() const override;

    /// For the factories.
    bool initialise();

private:
    friend class vexim::Meter;
    std::shared_ptr<vexim::Meter> meter_;
};
