#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace vexim {

/// The preferred MIME type of a file name extension (without dot, any case), from the system's
/// shared MIME database or, if there is none, from a built-in table of the types in messages.
/// nullopt if unknown or empty.
std::optional<std::string> mimeTypeForExtension(std::string_view extension);

/// The MIME types by extension (in lower case) from the "*.extension" lines of a shared MIME
/// database's "globs2" file. If an extension has several lines, the one with the greatest weight
/// wins, then the first.
std::unordered_map<std::string, std::string> parseMIMEGlobs(std::string_view globs2);

}  // namespace vexim
