#pragma once

#include <string>
#include <vector>

#include "CommandTable.h"

/// What a command line means: a command with all that was given, or a text to print and the status
/// to end with.
struct Parsed {
    const CommandSpec* command = nullptr;
    Given given = {};
    std::string text = {};  ///< help, or a complaint
    int status = 0;         ///< 0: the text is what was asked for
};
/// `arguments` are without the program's name. Reads the environment and the configuration file.
Parsed parse(const CommandTable& table, const std::vector<std::string>& arguments);
