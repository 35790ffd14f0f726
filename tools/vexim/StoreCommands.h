#pragma once

#include <CLI/App.hpp>
#include <functional>
#include <memory>

#include "Account.h"

/// Adds the commands that need the store on the device: chat, search and export. The one that the
/// user gave is stored in `chosen`. A build without the store has them, too, and they say so.
void addStoreCommands(CLI::App& app, Account& account, Credentials& credentials, Peer& peer,
                      std::function<int()>& chosen);
