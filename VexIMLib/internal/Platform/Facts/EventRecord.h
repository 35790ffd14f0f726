#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/VXIMDiagnosis.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim {

/// The last things that happened to a client, or to the process's requests. Each is a line of the
/// log, too, at `Info`. Any thread.
///
/// What goes in can be shown to anybody: words of our own, numbers, host names. Never text of the
/// application's or of a peer's.
class EventRecord {
public:
    explicit EventRecord(std::size_t most = 128) : most_(most) {}

    void add(std::string_view name, Dictionary details = {});
    /// The oldest first.
    std::vector<VXIMDiagnosisEvent> events() const;

    /// Of REST requests, which belong to no client. Never destroyed.
    static EventRecord& ofRequests();

private:
    const std::size_t most_;
    mutable Mutex mutex_;
    std::vector<VXIMDiagnosisEvent> events_ VEXIM_GUARDED_BY(mutex_);  // a ring once it is full
    // where the oldest is replaced
    std::size_t next_ VEXIM_GUARDED_BY(mutex_) = 0;
};

}  // namespace vexim
