#pragma once

#include "Account.h"

/// A chat: on the full screen of a terminal, else line by line. 0 when it ended with a logout, or
/// without one by the end of the input; 1 when nobody could be logged in or the store could not be
/// opened. `store` is a file or a folder for the messages; without one they are forgotten at the
/// end.
int runChat(const Account& account, const Credentials& credentials, const Peer& peer,
            const std::optional<std::string>& store);
/// What `--help` says of it, below the options.
std::string chatHelp();
