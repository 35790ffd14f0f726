#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/VXIMCompletions.h"

class VXIMClient;

/// The service to use, and as which application. The defaults are those of the local development
/// service.
struct Account {
    std::string server;  // empty if none was given
    std::string appId = "demo-app";
    std::string clientKey = "demo-key";
    std::string installation = "vexim-terminal";
    std::optional<std::string> authorityFile;  // without one, the system's authorities
    std::vector<std::string> pins;             // if empty, any key is accepted

    /// Makes a client that is configured but not logged in. Throws std::invalid_argument if
    /// `server` is not a URL.
    std::shared_ptr<VXIMClient> makeClient() const;
};

/// Who logs in: a user id, or a user name and a password.
struct Credentials {
    std::optional<std::string> userId;
    std::optional<std::string> username;
    std::optional<std::string> password;

    /// Asks for a missing password on the terminal. Throws std::invalid_argument if there is no
    /// terminal or no answer.
    void askForPassword();
    /// Throws std::invalid_argument if neither a user nor a user name is given.
    void logIn(VXIMClient& client, VXIMBooleanCompletion completion) const;
};

/// Overwrites the values of `--password` and `--key` in the program's arguments, so that `ps` does
/// not show them.
void hideSecrets(int argc, char** argv);

/// The receiver of a message: a friend, a group or a room.
struct Peer {
    std::optional<std::string> friendId;
    std::optional<std::string> groupId;
    std::optional<std::string> roomId;

    bool isNamed() const { return friendId || groupId || roomId; }
};
