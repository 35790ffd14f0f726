#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Commands.h"

namespace chat {

/// Who and what can be named. `files` lists the paths that begin with a text.
struct KnownNames {
    std::vector<std::string> friends;
    std::vector<std::string> groups;
    std::vector<std::string> rooms;
    std::vector<std::string> members;  // of the current conversation
    std::function<std::vector<std::string>(const std::string& beginning)> files;
};

struct Completion {
    std::wstring text;  ///< the line afterwards
    std::size_t cursor = 0;
    std::vector<std::string> choices;  ///< when there are several ways on
};

/// Completes the word before the cursor: a command, what it takes, or in a message a name. As far
/// as all choices agree; a single one is finished with a blank.
Completion complete(const std::wstring& line, std::size_t cursor, const KnownNames& names);

}  // namespace chat
