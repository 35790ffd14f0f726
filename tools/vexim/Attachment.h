#pragma once

#include <memory>
#include <string>

class VXIMMessage;

/// What a message says about its file.
struct Attachment {
    std::string kind;  ///< "image", "audio", "video" or "file"
    std::string name;  ///< as the sender named it, or from the URL
    /// such as "application/pdf"; if the message has none, from the name's ending
    std::string type;
};

/// Makes a message that carries the file. Its type decides whether it is sent as audio or video;
/// everything else is sent as an image, because the service knows no other kinds. The content also
/// gets the file's name and its true type:
/// {"content": {"media": 1, "body": URL, "name": "plan.pdf", "type": "application/pdf"}}.
/// Throws std::invalid_argument if the file does not exist or cannot be read.
std::shared_ptr<VXIMMessage> messageWithFile(const std::string& path);

/// The file of a message that is not a text.
Attachment attachmentOf(VXIMMessage& message);

/// A message in one line: the text, or for a file "[image] dot.png URL".
std::string contentsOf(VXIMMessage& message);

/// The MIME type for a file name ("image/png"), from the system's table of types;
/// "application/octet-stream" if it is unknown.
std::string mediaTypeOf(const std::string& name);
