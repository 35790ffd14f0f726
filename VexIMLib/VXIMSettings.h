#pragma once

#include <optional>
#include <string>

#include "VexIMLib/Foundation/Export.h"

// What an application may tell the library once, at its start.
namespace vexim {

/// Who the application is, for the User-Agent of its requests, where nil reads "(null)".
struct ApplicationInfo {
    std::optional<std::string> bundleIdentifier;  ///< in reverse domain notation
    std::optional<std::string> bundleVersion;     ///< the build, such as "142"
    std::optional<std::string> systemVersion;     ///< nil leaves the running kernel's
};
/// Takes effect with the next request. Call it before other threads use the library.
VEXIM_EXPORT void setApplicationInfo(ApplicationInfo info);

/// Whether the session manager remembers the requests that have ended, each with the answer that it
/// collected, for as long as the process lives. It does by default. A program that runs for long
/// says false: from then on a request is forgotten when it has ended.
VEXIM_EXPORT void setKeepsFinishedDelegates(bool keeps);

}  // namespace vexim
