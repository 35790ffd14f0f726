#pragma once

#include <CLI/App.hpp>
#include <functional>

#include "Account.h"

/// Adds the commands that read and change what the service keeps: friends, groups, rooms, members,
/// attributes, history, find, passenger. The one that the user gave is stored in `chosen`;
/// `account` is filled by then.
void addResourceCommands(CLI::App& app, Account& account, std::function<int()>& chosen);
