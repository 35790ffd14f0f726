#pragma once

#include <vector>

#include "CommandTable.h"

/// "chat", which uses the store. On a terminal it takes the whole screen; otherwise it reads and
/// prints lines.
CommandSpec chatCommand();
/// "search" and "export", which read the store. A build without the store has all three, too; they
/// report that it is missing.
std::vector<CommandSpec> storeCommands();

/// The option that names the store's file.
inline OptionSpec storeOption() {
    return {"--store", "PATH", "Keep the messages in this file, or in a file of this directory",
            true};
}
