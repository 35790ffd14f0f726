#pragma once

#include <functional>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// The importance of a log line, the least important first.
enum class LogLevel { Debug, Info, Warning, Error };

/// Receives one line, without a line end. It runs on the thread that logs, perhaps on several
/// threads at once, with no lock held. It must be quick. Lines that it logs itself, and exceptions
/// that it throws, are dropped.
using LogSink = std::function<void(LogLevel level, std::string_view line)>;

/// Sends all lines of level `least` and above to `sink`. An empty sink turns the log off. Call at
/// any time, from any thread; on another thread a call of the previous sink may still be running.
///
/// Before the first call only two things are logged, to standard error: mistakes of the programmer
/// (a message without a receiver, an unknown option), and the connection's log if the
/// configuration's `shouldLog` is set. A sink also gets, at `Info`, everything that
/// `VXIMClient::diagnose` reports, as it happens.
///
/// No credential, signature or message text is ever logged.
VEXIM_EXPORT void setLogSink(LogLevel least, LogSink sink);
/// The same, for all levels.
VEXIM_EXPORT void setLogSink(LogSink sink);
/// Whether a sink is set for `level`. Check this before formatting an expensive line.
VEXIM_EXPORT bool isHeard(LogLevel level) noexcept;
/// Logs a line of the application to the same sink. Call from any thread.
VEXIM_EXPORT void log(LogLevel level, std::string_view line);

}  // namespace vexim
