#pragma once

#include <memory>
#include <string>

class VXIMMessage;

/// What a message says of the file that it carries.
struct Attachment {
    std::string kind;  ///< "image", "audio", "video" or "file"
    std::string name;  ///< as its sender had it; from the URL where the message has none
    std::string type;  ///< "application/pdf"; from the name's ending where the message has none
};

/// A message that carries the file: as a sound or a film by its type, else as a picture, for the
/// service knows no other kinds. Beside it stand the name that the file has here and its true type:
/// {"content": {"media": 1, "body": URL, "name": "plan.pdf", "type": "application/pdf"}}.
/// Throws std::invalid_argument when there is no such file, or it cannot be read.
std::shared_ptr<VXIMMessage> messageWithFile(const std::string& path);

/// Of a message that is not a text.
Attachment attachmentOf(VXIMMessage& message);

/// A message in one line: a text as it is, a file as "[image] dot.png URL".
std::string contentsOf(VXIMMessage& message);

/// The media type that a file's name tells ("image/png"), by the system's table of types;
/// "application/octet-stream" for one that it does not know.
std::string mediaTypeOf(const std::string& name);
