#pragma once

#include <optional>
#include <string>

#include "VexIMLib/Foundation/Export.h"

// Settings that an application makes once, at its start.
namespace vexim {

/// Describes the application in the User-Agent of its requests. There, nil appears as "(null)".
struct ApplicationInfo {
    /// in reverse domain notation, such as "org.example.chat"
    std::optional<std::string> bundleIdentifier;
    /// the build, such as "142"
    std::optional<std::string> bundleVersion;
    /// nil means the version of the running kernel
    std::optional<std::string> systemVersion;
};
/// Sets it, from the next request on. Call this before other threads use the library.
VEXIM_EXPORT void setApplicationInfo(ApplicationInfo info);

/// Whether the session manager keeps finished requests, each with its answer, until the process
/// ends. The default is true. Set false in a program that runs for long: from then on, a request is
/// released when it has ended. Call from any thread.
VEXIM_EXPORT void setKeepsFinishedDelegates(bool keeps);

}  // namespace vexim
