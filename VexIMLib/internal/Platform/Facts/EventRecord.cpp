#include "VexIMLib/internal/Platform/Facts/EventRecord.h"

#include <string>
#include <utility>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Log.h"

namespace vexim {

void EventRecord::add(std::string_view name, Dictionary details) {
    VXIMDiagnosisEvent event{Clock::shared()->wallTime(), std::string(name), std::move(details)};
    if (isHeard(LogLevel::Info)) log(LogLevel::Info, event.description());
    const MutexLock lock(mutex_);
    if (events_.size() < most_) return events_.push_back(std::move(event));
    std::swap(events_[next_], event);
    next_ = (next_ + 1) % most_;
}

std::vector<VXIMDiagnosisEvent> EventRecord::events() const {
    const MutexLock lock(mutex_);
    const auto oldest = events_.begin() + static_cast<std::ptrdiff_t>(next_);
    std::vector<VXIMDiagnosisEvent> all(oldest, events_.end());
    all.insert(all.end(), events_.begin(), oldest);
    return all;
}

EventRecord& EventRecord::ofRequests() {
    static auto& record = *new EventRecord;
    return record;
}

}  // namespace vexim
