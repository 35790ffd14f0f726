#pragma once

#include <string>
#include <vector>

#include "CommandTable.h"

/// What may stand as the last of `words`, which are those of a command line so far without the
/// program's name: a line for each choice, "WORD<tab>explanation", or "@files" where a file's name
/// belongs. Nothing when there is nothing to choose from.
std::string completionsOf(const CommandTable& table, const std::vector<std::string>& words);
