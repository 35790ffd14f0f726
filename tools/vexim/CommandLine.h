#pragma once

#include <string>
#include <vector>

#include "CommandTable.h"

/// What a command line means: a command with everything given for it, or a text to print and the
/// exit status.
struct Parsed {
    const CommandSpec* command = nullptr;
    Given given = {};
    std::string text = {};  ///< help or an error
    int status = 0;         ///< 0 if the user asked for the text
};
/// Reads also the environment and the configuration file. `arguments` does not include the
/// program's name.
Parsed parse(const CommandTable& table, const std::vector<std::string>& arguments);
