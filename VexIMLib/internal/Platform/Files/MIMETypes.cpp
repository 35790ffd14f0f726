// The shared MIME database's file "globs2" consists of lines of this form:
//   weight ':' type ':' pattern [':' flags]      '#' begins a comment
// Example: 50:image/png:*.png

#include "VexIMLib/internal/Platform/Files/MIMETypes.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>

#include "VexIMLib/internal/Foundation/Text/ASCII.h"

namespace vexim {
namespace {

using Types = std::unordered_map<std::string, std::string>;

const Types& builtIn() {
    static const auto* const types = new Types{
        {"png", "image/png"},        {"jpg", "image/jpeg"},      {"jpeg", "image/jpeg"},
        {"gif", "image/gif"},        {"webp", "image/webp"},     {"heic", "image/heic"},
        {"bmp", "image/bmp"},        {"tiff", "image/tiff"},     {"svg", "image/svg+xml"},
        {"mp3", "audio/mpeg"},       {"m4a", "audio/mp4"},       {"aac", "audio/aac"},
        {"wav", "audio/x-wav"},      {"amr", "audio/AMR"},       {"ogg", "audio/ogg"},
        {"opus", "audio/ogg"},       {"flac", "audio/flac"},     {"mp4", "video/mp4"},
        {"m4v", "video/mp4"},        {"mov", "video/quicktime"}, {"webm", "video/webm"},
        {"mkv", "video/x-matroska"}, {"3gp", "video/3gpp"},      {"avi", "video/x-msvideo"},
        {"txt", "text/plain"},       {"html", "text/html"},      {"json", "application/json"},
        {"pdf", "application/pdf"},  {"zip", "application/zip"},
    };
    return *types;
}

const Types& fromSystem() {
    static const auto* const types = [] {
        std::ostringstream text;
        if (std::ifstream file("/usr/share/mime/globs2"); file) text << file.rdbuf();
        return new Types(parseMIMEGlobs(text.str()));
    }();
    return *types;
}

}  // namespace

Types parseMIMEGlobs(std::string_view globs2) {
    Types types;
    std::unordered_map<std::string, int> weights;
    while (!globs2.empty()) {
        const auto end = std::min(globs2.find('\n'), globs2.size());
        const auto line = globs2.substr(0, end);
        globs2.remove_prefix(std::min(end + 1, globs2.size()));
        if (line.starts_with('#')) continue;
        const auto afterWeight = line.find(':');
        if (afterWeight == std::string_view::npos) continue;
        const auto afterType = line.find(':', afterWeight + 1);
        if (afterType == std::string_view::npos) continue;

        int weight = 0;
        std::from_chars(line.data(), line.data() + afterWeight, weight);
        const auto type = line.substr(afterWeight + 1, afterType - afterWeight - 1);
        const auto pattern =
            line.substr(afterType + 1, line.find(':', afterType + 1) - afterType - 1);
        if (type.empty() || !pattern.starts_with("*.")) continue;
        const auto extension = detail::lowerCase(pattern.substr(2));
        if (extension.empty() || extension.find_first_of("*?[") != std::string::npos) continue;

        const auto known = weights.find(extension);
        if (known != weights.end() && known->second >= weight) continue;
        weights[extension] = weight;
        types[extension] = type;
    }
    return types;
}

std::optional<std::string> mimeTypeForExtension(std::string_view extension) {
    const auto name = detail::lowerCase(extension);
    for (const Types* types : {&fromSystem(), &builtIn()}) {
        if (const auto found = types->find(name); found != types->end()) return found->second;
    }
    return std::nullopt;
}

}  // namespace vexim
