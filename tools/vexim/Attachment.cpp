// The system's table of types has a line for each pattern, the most important ones first
// (freedesktop.org, shared MIME-info database):
//   line := weight ':' type ':' pattern [':' flags]
// Example: 50:image/png:*.png

#include "Attachment.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <system_error>

#include "VexIMLib/VexIMLib.h"
#include "chat/Files.h"

namespace {

constexpr const char* kTable = "/usr/share/mime/globs2";
constexpr const char* kUnknownType = "application/octet-stream";

std::string inSmallLetters(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

/// MIME types by the ending of a file name, such as ".png".
std::map<std::string, std::string> readTypes() {
    std::map<std::string, std::string> types;
    std::ifstream table(kTable);
    for (std::string line; std::getline(table, line);) {
        const auto type = line.find(':');
        const auto pattern = line.find(":*.");
        if (line.starts_with('#') || pattern == std::string::npos || pattern <= type) continue;
        const auto ending = line.substr(pattern + 2);
        types.emplace(inSmallLetters(ending), line.substr(type + 1, pattern - type - 1));
    }
    return types;
}

std::string kindOf(const std::string& type) {
    for (const char* kind : {"image", "audio", "video"}) {
        if (type.starts_with(std::string(kind) + "/")) return kind;
    }
    return "file";
}

}  // namespace

std::string mediaTypeOf(const std::string& name) {
    static const auto types = readTypes();
    const auto small = inSmallLetters(name);
    // The longest known ending wins: "a.tar.gz" is not just a ".gz".
    for (auto dot = small.find('.'); dot != std::string::npos; dot = small.find('.', dot + 1)) {
        const auto found = types.find(small.substr(dot));
        if (found != types.end()) return found->second;
    }
    return kUnknownType;
}

std::shared_ptr<VXIMMessage> messageWithFile(const std::string& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status)) throw std::invalid_argument("no such file: " + path);
    if (std::filesystem::is_directory(status))
        throw std::invalid_argument("this is a directory, not a file: " + path);
    if (!std::filesystem::is_regular_file(status))
        throw std::invalid_argument("this is not a plain file: " + path);
    if (::access(path.c_str(), R_OK) != 0)
        throw std::invalid_argument("this file cannot be read: " + path);
    const std::string type = mediaTypeOf(path);
    const std::string kind = kindOf(type);
    auto message = kind == "audio"   ? VXIMMessage::messageWithAudioFileAtPath(path)
                   : kind == "video" ? VXIMMessage::messageWithVideoFileAtPath(path)
                                     : VXIMMessage::messageWithImageFileAtPath(path);
    if (!message) throw std::invalid_argument("this file cannot be read: " + path);
    // A file name may have any bytes, but a message must be UTF-8.
    const auto name = chat::safeFileName(path);
    message->payload().update("content", [&](vexim::Value& content) {
        content.mutableDictionary().set("name", name);
        content.mutableDictionary().set("type", type);
    });
    return message;
}

Attachment attachmentOf(VXIMMessage& message) {
    const auto content = message.payload().get("content");
    Attachment attachment;
    const auto name = content.get("name").asString().value_or("");
    attachment.name = name.empty() ? chat::fileNameFor(message.attachmentUrl().value_or(""))
                                   : chat::safeFileName(name);
    attachment.type = content.get("type").asString().value_or("");
    if (attachment.type.empty()) attachment.type = mediaTypeOf(attachment.name);
    attachment.kind = kindOf(attachment.type);
    if (message.mediaType() == VXIMMessageMediaTypeAudio) attachment.kind = "audio";
    if (message.mediaType() == VXIMMessageMediaTypeVideo) attachment.kind = "video";
    return attachment;
}

std::string contentsOf(VXIMMessage& message) {
    const auto media = message.mediaType();
    if (!VXIMMessageMediaTypeIsAttachment(media)) return message.text().value_or("");
    if (media < VXIMMessageMediaTypeText || media > VXIMMessageMediaTypeVideo)
        return "[media " + std::to_string(media) + "]";
    const auto attachment = attachmentOf(message);
    const auto url = message.attachmentUrl().value_or("");
    return "[" + attachment.kind + "] " +
           (url.ends_with("/" + attachment.name) ? "" : attachment.name + " ") + url;
}
