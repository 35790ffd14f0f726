#pragma once

#include <string>
#include <vector>

namespace chat {

/// Paths that begin with `beginning`, folders with a slash at their end. A leading "~/" is the home
/// folder.
std::vector<std::string> matchingFiles(const std::string& beginning);
/// The path that a leading "~/" means.
std::string expandedPath(const std::string& path);

/// A name for the file that a message's URL names, safe in a folder of the user's: no folders,
/// nothing hidden, nothing unprintable, not too long. Never empty.
std::string fileNameFor(const std::string& url);
/// The same of a name that somebody else has given.
std::string safeFileName(const std::string& name);
/// Where a file is saved that somebody calls `name`: `wanted` is a file, a folder, or empty for the
/// current folder. In a folder a name is found that is free, "dot (1).png" perhaps. Throws
/// std::invalid_argument when `wanted` is a file that exists.
std::string placeFor(const std::string& wanted, const std::string& name);

}  // namespace chat
