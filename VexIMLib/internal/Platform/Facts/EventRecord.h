#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/VXIMDiagnosis.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim {

/// The latest events of a client, or of the process's REST requests. Each is also logged, at
/// `Info`. Call from any thread.
///
/// Anybody may see the contents: only our own words, numbers and host names. Never add text of the
/// application or of a server.
class EventRecord {
public:
    explicit EventRecord(std::size_t most = 128) : most_(most) {}

    /// `name` is one of EventNames.h.
    void add(std::string_view name, Dictionary details = {});
    /// The oldest first.
    std::vector<VXIMDiagnosisEvent> events() const;

    /// The record of REST requests, which belong to no client. Never destroyed.
    static EventRecord& ofRequests();

private:
    const std::size_t most_;
    mutable Mutex mutex_;
    std::vector<VXIMDiagnosisEvent> events_ VEXIM_GUARDED_BY(mutex_);  // a ring once it is full
    // the oldest, which the next event replaces
    std::size_t next_ VEXIM_GUARDED_BY(mutex_) = 0;
};

}  // namespace vexim
