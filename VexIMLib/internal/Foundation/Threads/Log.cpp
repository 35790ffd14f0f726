#include "VexIMLib/Foundation/Log.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "VexIMLib/internal/Foundation/Threads/SharedSlot.h"

namespace vexim {

namespace {

void writeToStandardError(LogLevel, std::string_view line) {
    std::string whole(line);
    whole += '\n';
    // in one write, so that lines of several threads do not mix
    std::fwrite(whole.data(), 1, whole.size(), stderr);
}

/// The sink and its level.
struct Hearing {
    LogLevel least;
    LogSink sink;
};

detail::SharedSlot<Hearing>& slot() {
    static auto& slot = *new detail::SharedSlot<Hearing>(
        std::make_shared<Hearing>(Hearing{LogLevel::Debug, writeToStandardError}));
    return slot;
}

constexpr int kNobody = static_cast<int>(LogLevel::Error) + 1;
/// The lowest level of the application's sink, readable without a lock.
std::atomic<int> leastHeard{kNobody};

thread_local bool isLogging = false;

}  // namespace

void setLogSink(LogLevel least, LogSink sink) {
    leastHeard = sink ? static_cast<int>(least) : kNobody;
    slot().set(sink ? std::make_shared<Hearing>(Hearing{least, std::move(sink)}) : nullptr);
}

void setLogSink(LogSink sink) { setLogSink(LogLevel::Debug, std::move(sink)); }

bool isHeard(LogLevel level) noexcept {
    return static_cast<int>(level) >= leastHeard.load(std::memory_order_relaxed);
}

void log(LogLevel level, std::string_view line) {
    const auto hearing = slot().get();
    if (!hearing || level < hearing->least || std::exchange(isLogging, true)) return;
    try {
        hearing->sink(level, line);
    } catch (...) {  // logging must not change what the program does
    }
    isLogging = false;
}

}  // namespace vexim
