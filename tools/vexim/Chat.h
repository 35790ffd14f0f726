#pragma once

#include "Account.h"

/// A chat: on the full screen of a terminal, else line by line. 0 when it ended with a logout, or without one by the end of the
/// input; 1 when nobody could be logged in.
int runChat(const Account& account, const Credentials& credentials, const Peer& peer);
/// What `--help` says of it, below the options.
std::string chatHelp();
