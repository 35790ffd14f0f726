#include "VexIMLib/Foundation/Log.h"

#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "VexIMLib/Foundation/SharedSlot.h"

namespace vexim {

namespace {

void writeToStandardError(LogLevel, std::string_view line) {
    std::string whole(line);
    whole += '\n';
    std::fwrite(whole.data(), 1, whole.size(), stderr);  // at once, so that lines of several threads do not mix
}

detail::SharedSlot<LogSink>& slot() {
    static auto& slot = *new detail::SharedSlot<LogSink>(std::make_shared<LogSink>(writeToStandardError));
    return slot;
}

}  // namespace

void setLogSink(LogSink sink) { slot().set(sink ? std::make_shared<LogSink>(std::move(sink)) : nullptr); }

void log(LogLevel level, std::string_view line) {
    if (auto sink = slot().get()) (*sink)(level, line);
}

}  // namespace vexim
