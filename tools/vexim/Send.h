#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Account.h"

class VXIMMessage;

/// What is sent: a text ("-" or none: that of standard input), or a file (a picture, a sound or a
/// film, as its ending says).
struct SendOptions {
    std::optional<std::string> text;
    std::optional<std::string> file;

    void addOptions(CLI::App& command);
};

/// A message that carries the file: as a sound or a film by its ending, else as a picture. Throws
/// std::invalid_argument when there is no such file, or it cannot be read.
std::shared_ptr<VXIMMessage> messageWithFile(const std::string& name);

/// "image", "audio", "video" or "file": what a message with the file `name` carries. What is
/// neither sound nor film travels as an image, and is called one only where its ending agrees.
const char* mediaName(std::int32_t media, const std::string& name);

/// Makes the one that `peer` names the receiver.
void address(VXIMMessage& message, const Peer& peer);

/// Logs in, sends one message with a progress bar for its file, waits until the service has sent it
/// back, and logs out. 0 when it came back. Throws std::invalid_argument when it cannot even be
/// tried, std::runtime_error with the reason when it failed.
int runSend(const Account& account, const Credentials& credentials, const Peer& peer,
            const SendOptions& options);
