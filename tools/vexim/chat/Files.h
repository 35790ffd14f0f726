#pragma once

#include <string>
#include <vector>

namespace chat {

/// The paths that begin with `beginning`. Folders end with a slash. "~/" at the beginning means the
/// home folder.
std::vector<std::string> matchingFiles(const std::string& beginning);
/// Replaces "~/" at the beginning by the home folder.
std::string expandedPath(const std::string& path);

/// A file name for the file at a URL. It is safe in any of the user's folders: no path, not hidden,
/// only printable characters, not too long. Never empty.
std::string fileNameFor(const std::string& url);
/// The same for a name that somebody else has chosen.
std::string safeFileName(const std::string& name);
/// Where to save a file called `name`. `wanted` is a file, a folder, or empty for the current
/// folder. In a folder it chooses a free name, such as "dot (1).png". Throws std::invalid_argument
/// if `wanted` is a file that exists.
std::string placeFor(const std::string& wanted, const std::string& name);

}  // namespace chat
