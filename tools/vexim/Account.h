#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/VXIMCompletions.h"

class VXIMClient;

/// Which service is asked, in whose name. The defaults are those of the local development service.
struct Account {
    std::string server;  // empty: none was named
    std::string appId = "demo-app";
    std::string clientKey = "demo-key";
    std::string installation = "vexim-terminal";
    std::optional<std::string> authorityFile;  // the system's authorities without one
    std::vector<std::string> pins;             // none: any key

    /// A client that is configured but not logged in. Throws std::invalid_argument when `server` is
    /// no URL.
    std::shared_ptr<VXIMClient> makeClient() const;
};

/// Who logs in, either way.
struct Credentials {
    std::optional<std::string> userId;
    std::optional<std::string> username;
    std::optional<std::string> password;

    /// Asks the terminal for a password that is missing. Throws std::invalid_argument when there is
    /// no terminal, or no answer.
    void askForPassword();
    /// Throws std::invalid_argument when nobody is named.
    void logIn(VXIMClient& client, VXIMBooleanCompletion completion) const;
};

/// Overwrites the values of `--password` and `--key` among a program's arguments, so that process
/// lists do not show them.
void hideSecrets(int argc, char** argv);

/// Whom a message goes to: a friend, a group or a room.
struct Peer {
    std::optional<std::string> friendId;
    std::optional<std::string> groupId;
    std::optional<std::string> roomId;

    bool isNamed() const { return friendId || groupId || roomId; }
};
