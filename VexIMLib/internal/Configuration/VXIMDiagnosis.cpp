// How the events of a diagnosis are written. EventNames.h lists the events.
#include "VexIMLib/VXIMDiagnosis.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/JSON.h"

namespace {

/// ISO 8601, in UTC, to the millisecond.
std::string timeText(double seconds) {
    const auto millis = static_cast<std::int64_t>(std::floor(seconds * 1000));
    const auto whole = static_cast<std::time_t>(millis / 1000);
    std::tm parts{};
    gmtime_r(&whole, &parts);
    std::array<char, 40> text{};
    const auto length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data() + length, text.size() - length, ".%03dZ",
                  static_cast<int>(millis % 1000));
    return text.data();
}

}  // namespace

std::string VXIMDiagnosisEvent::description() const {
    std::string line = name;
    for (const auto& [key, detail] : details) {
        line += " " + std::string(key) + "=" +
                (detail.isBoolean() ? detail.boolean() ? "yes" : "no" : detail.description());
    }
    return line;
}

std::string VXIMDiagnosis::text() const {
    std::string text;
    for (const auto& event : events_) {
        text += timeText(event.time) + " " + event.description() + "\n";
    }
    return text;
}

vexim::Value VXIMDiagnosis::value() const {
    vexim::Array list;
    for (const auto& event : events_) {
        vexim::Dictionary entry{{"time", timeText(event.time)}, {"event", event.name}};
        entry.addEntries(event.details);
        list.append(std::move(entry));
    }
    return list;
}

std::string VXIMDiagnosis::json() const { return vexim::writeJSON(value()).text; }
