#pragma once

#include <vector>

#include "CommandTable.h"

/// Friends, groups, rooms and their members.
std::vector<CommandSpec> peopleCommands();
/// Histories, attributes, searches by attributes, passengers.
std::vector<CommandSpec> lookupCommands();
