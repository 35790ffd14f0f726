#pragma once

#include <functional>
#include <string>
#include <vector>

#include "SlashCommands.h"

namespace chat {

/// The names that can be completed. `files` lists the paths that begin with a text.
struct KnownNames {
    std::vector<std::string> friends;
    std::vector<std::string> groups;
    std::vector<std::string> rooms;
    std::vector<std::string> members;  // of the current conversation
    std::function<std::vector<std::string>(const std::string& beginning)> files;
};

struct Completion {
    std::wstring text;  ///< the new line
    std::size_t cursor = 0;
    std::vector<std::string> choices;  ///< if there are several
};

/// Completes the word before the cursor: a command, an argument, or in a message a name. It adds
/// what all choices have in common; if there is only one, also a blank.
Completion complete(const std::wstring& line, std::size_t cursor, const KnownNames& names);

}  // namespace chat
