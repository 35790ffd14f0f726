#include "Files.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "Text.h"

namespace chat {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestName = 120;  // bytes; file systems allow 255

/// "dot.png", or "dot (1).png" if that exists.
fs::path freePath(const fs::path& folder, const std::string& name) {
    fs::path path = folder / name;
    for (int number = 1; fs::exists(fs::symlink_status(path)); ++number) {
        path = folder / (fs::path(name).stem().string() + " (" + std::to_string(number) + ")" +
                         fs::path(name).extension().string());
    }
    return path;
}

}  // namespace

std::string expandedPath(const std::string& path) {
    const char* home = std::getenv("HOME");
    return path.starts_with("~/") && home != nullptr ? home + path.substr(1) : path;
}

std::vector<std::string> matchingFiles(const std::string& beginning) {
    const auto slash = beginning.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "" : beginning.substr(0, slash + 1);
    std::vector<std::string> found;
    std::error_code error;
    for (fs::directory_iterator entry(folder.empty() ? "." : expandedPath(folder), error), end;
         !error && entry != end; entry.increment(error)) {
        const std::string path = folder + entry->path().filename().string();
        std::error_code ignored;
        if (path.starts_with(beginning))
            found.push_back(entry->is_directory(ignored) ? path + "/" : path);
    }
    return found;
}

std::string fileNameFor(const std::string& url) {
    return safeFileName(url.substr(0, url.find_first_of("?#")));
}

std::string safeFileName(const std::string& path) {
    // Everything, if there is no slash.
    std::string name = harmlessLine(path.substr(path.find_last_of("/\\") + 1));
    // Keep the end of a long name, because the extension matters. It may begin with half a
    // character.
    if (name.size() > kLongestName) name = narrow(wide(name.substr(name.size() - kLongestName)));
    if (name.starts_with('.') || name.starts_with('-') || name.starts_with('~')) name.front() = '_';
    return name.empty() ? "file" : name;
}

std::string placeFor(const std::string& wanted, const std::string& name) {
    if (wanted.empty()) return freePath(".", safeFileName(name)).lexically_normal().string();
    const fs::path path = expandedPath(wanted);
    if (fs::is_directory(path))
        return freePath(path, safeFileName(name)).lexically_normal().string();
    if (fs::exists(fs::symlink_status(path)))
        throw std::invalid_argument("the file already exists: " + wanted);
    return path.string();
}

}  // namespace chat
