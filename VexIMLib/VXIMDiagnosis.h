#pragma once

#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"

/// One thing that happened.
struct VXIMDiagnosisEvent {
    /// seconds since 1970
    double time = 0;
    /// "status", "connecting", "joined", "ended", "waiting", "login answered", "request failed", …
    std::string name;
    /// fixed words, numbers and host names only
    vexim::Dictionary details;

    /// "waiting seconds=1.7"
    VEXIM_EXPORT std::string description() const;
};

/// What a client has lately gone through, for a report of trouble: changes of status, attempts to
/// connect, the waits between them, why connections ended, what TLS objected to, and REST requests
/// that failed. A copy, which does not change any more.
///
///     std::cerr << client->diagnose().text();
///
/// It can be shown to anybody: it holds no credential, signature, id, message, file name, path or
/// query, and nothing that the service said but numbers.
class VEXIM_EXPORT VXIMDiagnosis {
public:
    /// For `VXIMClient::diagnose`.
    explicit VXIMDiagnosis(std::vector<VXIMDiagnosisEvent> events) : events_(std::move(events)) {}

    /// The oldest first. Of the connection and of requests, each the last 128.
    const std::vector<VXIMDiagnosisEvent>& events() const& noexcept { return events_; }
    std::vector<VXIMDiagnosisEvent> events() && noexcept { return std::move(events_); }
    /// A line an event: "2026-11-21T12:00:00.123Z waiting seconds=1.7".
    std::string text() const;
    /// An array with a dictionary an event: "time" (as in `text`), "event", and the details.
    vexim::Value value() const;
    /// The same as JSON.
    std::string json() const;

private:
    std::vector<VXIMDiagnosisEvent> events_;
};
