#pragma once

#include "Account.h"

/// An interactive chat on the terminal. 0 when it ended with a logout, or without one by the end of the input.
int runChat(const Account& account, const Credentials& credentials, const Peer& peer);
