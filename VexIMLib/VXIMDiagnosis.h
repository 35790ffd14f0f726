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

/// What has happened to a client lately, for a bug report: status changes, connection attempts, the
/// waits between them, why connections ended, why TLS refused a server, and which REST requests
/// failed. It is a copy and does not change later. Use it on any thread.
///
///     std::cerr << client->diagnose().text();
///
/// You can show it to anybody. It holds no credential, signature, id, message, file name, path or
/// query, and only numbers from the service's answers.
class VEXIM_EXPORT VXIMDiagnosis {
public:
    /// For `VXIMClient::diagnose`.
    explicit VXIMDiagnosis(std::vector<VXIMDiagnosisEvent> events) : events_(std::move(events)) {}

    /// The oldest first: the last 128 of the connection, and the last 128 of REST requests.
    const std::vector<VXIMDiagnosisEvent>& events() const& noexcept { return events_; }
    std::vector<VXIMDiagnosisEvent> events() && noexcept { return std::move(events_); }
    /// One line for each event: "2026-11-21T12:00:00.123Z waiting seconds=1.7".
    std::string text() const;
    /// An array with a dictionary for each event: "time" (as in `text`), "event", and the details.
    vexim::Value value() const;
    /// The same as JSON.
    std::string json() const;

private:
    std::vector<VXIMDiagnosisEvent> events_;
};
