#pragma once

#include <functional>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// How much a line matters, the least first.
enum class LogLevel { Debug, Info, Warning, Error };

/// Hears one line without a line end. Called on the thread that logs; it must be quick and may not log.
using LogSink = std::function<void(LogLevel level, std::string_view line)>;

/// Replaces where log lines go (empty: nowhere). At first they go to standard error.
/// No credential, signature or message text is ever logged.
VEXIM_EXPORT void setLogSink(LogSink sink);
/// Hands a line of the application's own to the same sink. Callable from any thread.
VEXIM_EXPORT void log(LogLevel level, std::string_view line);

}  // namespace vexim
