#pragma once

#include <vector>

#include "CommandTable.h"

/// "chat", which uses the store. On a terminal it takes the whole screen, else it goes line by
/// line.
CommandSpec chatCommand();
/// "search" and "export", which read it. A build without the store has all three, too, and they say
/// so.
std::vector<CommandSpec> storeCommands();

/// Which file keeps the messages.
inline OptionSpec storeOption() {
    return {"--store", "PATH", "Keep the messages in this file, or in a file of this directory",
            true};
}
