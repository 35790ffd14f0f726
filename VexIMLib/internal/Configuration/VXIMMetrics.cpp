#include "VexIMLib/VXIMMetrics.h"

#include <algorithm>
#include <cmath>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/internal/Configuration/Meter.h"
#include "VexIMLib/internal/Foundation/Text/UTF8.h"

namespace {

/// Whether Prometheus accepts the name for a label. It reserves names that begin with "__".
bool isLabelName(std::string_view name) {
    constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_";
    constexpr std::string_view kDigits = "0123456789";
    return !name.empty() && !name.starts_with("__") && kDigits.find(name.front()) == kDigits.npos &&
           std::ranges::all_of(name, [&](char c) {
               return kLetters.find(c) != kLetters.npos || kDigits.find(c) != kDigits.npos;
           });
}

void require(const VXIMMetricLabels& labels) {
    for (auto label = labels.begin(); label != labels.end(); ++label) {
        const bool isTwice = std::any_of(labels.begin(), label, [&](const auto& former) {
            return former.first == label->first;
        });
        if (!isLabelName(label->first) || vexim::Meter::isOwnLabel(label->first) || isTwice)
            throw vexim::Exception(vexim::kInvalidArgumentException,
                                   "A label cannot have the name \"" + label->first + "\".");
        if (!vexim::detail::isValidUTF8(label->second))
            throw vexim::Exception(
                vexim::kInvalidArgumentException,
                "The value of the label \"" + label->first + "\" is not valid UTF-8.");
    }
}

vexim::Value valueOf(const VXIMMetricSeries& series, VXIMMetricKind kind) {
    vexim::Dictionary labels;
    for (const auto& [name, value] : series.labels) labels.set(name, value);
    vexim::Dictionary described{{"labels", std::move(labels)}};
    if (kind != VXIMMetricKindHistogram) {
        described.set("value", series.value);
        return described;
    }
    vexim::Array buckets;
    for (const auto& bucket : series.buckets) {
        if (std::isfinite(bucket.seconds))
            buckets.append(vexim::Dictionary{{"le", bucket.seconds}, {"count", bucket.count}});
    }
    described.set("count", series.buckets.back().count);
    described.set("sum", series.value);
    described.set("buckets", std::move(buckets));
    return described;
}

}  // namespace

VXIMMetrics::VXIMMetrics(vexim::Creation creation)
    : Object(creation),
      meter_(std::make_shared<vexim::Meter>()) {}

VXIMMetrics::~VXIMMetrics() = default;

std::shared_ptr<VXIMMetrics> VXIMMetrics::init() { return vexim::create<VXIMMetrics>(); }

bool VXIMMetrics::initialise() { return true; }

std::vector<VXIMMetric> VXIMMetrics::read(const VXIMMetricLabels& labels) const {
    require(labels);
    return meter_->read(labels);
}

std::optional<double> VXIMMetrics::total(std::string_view name,
                                         const VXIMMetricLabels& labels) const {
    const auto metrics = meter_->read({});
    const auto metric = std::ranges::find(metrics, name, &VXIMMetric::name);
    if (metric == metrics.end()) return std::nullopt;
    double total = 0;
    for (const auto& series : metric->series) {
        const bool isMeant = std::ranges::all_of(labels, [&](const auto& label) {
            return std::ranges::find(series.labels, label) != series.labels.end();
        });
        if (!isMeant) continue;
        total += series.buckets.empty() ? series.value
                                        : static_cast<double>(series.buckets.back().count);
    }
    return total;
}

std::string VXIMMetrics::prometheusText(const VXIMMetricLabels& labels) const {
    return prometheusTextOf(read(labels));
}

vexim::Value VXIMMetrics::value() const {
    vexim::Array list;
    for (const auto& metric : read()) {
        vexim::Array series;
        for (const auto& each : metric.series) series.append(valueOf(each, metric.kind));
        list.append(vexim::Dictionary{{"name", metric.name},
                                      {"help", metric.help},
                                      {"kind", vexim::nameOf(metric.kind)},
                                      {"series", std::move(series)}});
    }
    return list;
}

const vexim::Class& VXIMMetrics::runtimeClass() const {
    static const vexim::Class& cls =
        vexim::Class::declare("VXIMMetrics", &vexim::Object::staticClass());
    return cls;
}
