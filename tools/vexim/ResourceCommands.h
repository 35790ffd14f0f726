#pragma once

#include <vector>

#include "CommandTable.h"

/// Commands for friends, groups, rooms and their members.
std::vector<CommandSpec> peopleCommands();
/// Commands for histories, attributes, searches by attributes, and passengers.
std::vector<CommandSpec> lookupCommands();
