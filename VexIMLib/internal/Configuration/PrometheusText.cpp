// What Prometheus servers read, the text exposition format 0.0.4:
//
//   # HELP name help            "\" and the line feed of a help text are escaped with "\"
//   # TYPE name kind
//   name{label="value",…} figure     in a value '"' is escaped, too
//
// A histogram has the series name_bucket, name_sum and name_count. The label "le" of a bucket is
// its upper bound, and its figure counts everything up to that bound. All series of a name are
// together.
// Example: vexim_logins_total{outcome="accepted"} 17
//
// Meter.cpp has the names and the help texts.

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string>
#include <string_view>

#include "VexIMLib/VXIMMetrics.h"
#include "VexIMLib/internal/Configuration/Meter.h"

namespace {

std::string escaped(std::string_view text, bool isQuoted) {
    std::string safe;
    for (const char c : text) {
        if (c == '\\' || (isQuoted && c == '"')) safe += '\\';
        if (c == '\n') {
            safe += "\\n";
        } else {
            safe += c;
        }
    }
    return safe;
}

/// The shortest text that reads as the same number, whatever the program's locale.
std::string numberText(double number) {
    if (std::isinf(number)) return number > 0 ? "+Inf" : "-Inf";
    constexpr double kExact = 9007199254740992;  // 2^53: integers up to here are written out
    std::array<char, 32> text{};
    const auto end =
        number == std::trunc(number) && std::abs(number) <= kExact
            ? std::to_chars(text.begin(), text.end(), static_cast<std::int64_t>(number))
            : std::to_chars(text.begin(), text.end(), number);
    return {text.data(), end.ptr};
}

void writeLine(std::string& text, std::string_view name, const VXIMMetricLabels& labels,
               double figure) {
    text += name;
    char separator = '{';
    for (const auto& [label, value] : labels) {
        text += separator + label + "=\"" + escaped(value, true) + '"';
        separator = ',';
    }
    if (!labels.empty()) text += '}';
    text += ' ' + numberText(figure) + '\n';
}

void writeSeries(std::string& text, const VXIMMetric& metric, const VXIMMetricSeries& series) {
    if (metric.kind != VXIMMetricKindHistogram)
        return writeLine(text, metric.name, series.labels, series.value);
    auto labels = series.labels;
    labels.emplace_back("le", "");
    for (const auto& bucket : series.buckets) {
        labels.back().second = numberText(bucket.seconds);
        writeLine(text, metric.name + "_bucket", labels, static_cast<double>(bucket.count));
    }
    const auto count = series.buckets.empty() ? 0 : series.buckets.back().count;
    writeLine(text, metric.name + "_sum", series.labels, series.value);
    writeLine(text, metric.name + "_count", series.labels, static_cast<double>(count));
}

}  // namespace

std::string VXIMMetrics::prometheusTextOf(const std::vector<VXIMMetric>& metrics) {
    std::string text;
    for (auto metric = metrics.begin(); metric != metrics.end(); ++metric) {
        const auto isSame = [&](const VXIMMetric& other) { return other.name == metric->name; };
        if (std::any_of(metrics.begin(), metric, isSame)) continue;  // written with the first
        text += "# HELP " + metric->name + ' ' + escaped(metric->help, false) + '\n';
        text += "# TYPE " + metric->name + ' ' + vexim::nameOf(metric->kind) + '\n';
        for (auto same = metric; same != metrics.end(); ++same) {
            if (!isSame(*same)) continue;
            for (const auto& series : same->series) writeSeries(text, *metric, series);
        }
    }
    return text;
}
