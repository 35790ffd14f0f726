#pragma once

#include "Account.h"

class VXIMClient;

/// A chat line by line, for scripts and simple terminals: what is read from standard input is sent or obeyed, what happens is
/// printed.
int runPlainChat(const std::shared_ptr<VXIMClient>& client, const Credentials& credentials, const Peer& peer);
