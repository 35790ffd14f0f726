#pragma once

#include <functional>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// How much a line matters, the least first.
enum class LogLevel { Debug, Info, Warning, Error };

/// Hears one line without a line end. Called on the thread that logs, several at once, with no lock
/// held; it must be quick. What it logs itself, or throws, is dropped.
using LogSink = std::function<void(LogLevel level, std::string_view line)>;

/// From now on `sink` hears the lines of `least` and above; an empty one: nobody hears any.
/// Callable at any time, from any thread; a call of the former sink may still be running on
/// another.
///
/// Until this is called the library is silent, but for what asks for the programmer's eye (a send
/// to nobody, an option that it does not know) and for the connection's own log where the
/// configuration's `shouldLog` wants it: that goes to standard error. A sink also hears, at `Info`,
/// everything that `VXIMClient::diagnose` reports, while it happens.
///
/// No credential, signature or message text is ever logged.
VEXIM_EXPORT void setLogSink(LogLevel least, LogSink sink);
/// The same for all levels.
VEXIM_EXPORT void setLogSink(LogSink sink);
/// Whether a sink was set that hears `level`: whether a line is worth making.
VEXIM_EXPORT bool isHeard(LogLevel level) noexcept;
/// Hands a line of the application's own to the same sink. Callable from any thread.
VEXIM_EXPORT void log(LogLevel level, std::string_view line);

}  // namespace vexim
