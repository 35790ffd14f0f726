#pragma once

#include <string>
#include <vector>

#include "CommandTable.h"

/// The choices for the last of `words`, the command line so far without the program's name. One
/// line for each: "WORD<tab>explanation", or "@files" if a file name is expected. Empty if there
/// are none.
std::string completionsOf(const CommandTable& table, const std::vector<std::string>& words);
