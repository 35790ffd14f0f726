#include "Completion.h"

#include <algorithm>
#include <optional>

#include "Text.h"

namespace chat {
namespace {

using Strings = std::vector<std::string>;

Strings namesOf(Names kind, const KnownNames& names, const std::string& beginning) {
    switch (kind) {
        case Names::Nothing:
        case Names::Command: return {};
        case Names::Friend: return names.friends;
        case Names::Group: return names.groups;
        case Names::Room: return names.rooms;
        case Names::Member: return names.members;
        case Names::File: return names.files ? names.files(beginning) : Strings();
    }
    return {};
}

/// The choices for the word at `position` of a command; 0 is its name.
Strings candidates(const Command& command, std::size_t position, const std::string& beginning,
                   const KnownNames& names) {
    Strings found;
    for (const auto& form : commandForms()) {
        if (position == 0) {
            found.push_back(std::string("/") + form.name);
            continue;
        }
        if (command.name != form.name) continue;
        const std::string action = form.action;
        if (position == 1 && !action.empty()) found.push_back(action);
        const bool isArgument =
            action.empty() ? position >= 1 : position >= 2 && command.words.front() == action;
        if (!isArgument || (action.empty() && position > 1 && form.names != Names::File)) continue;
        const auto more = namesOf(form.names, names, beginning);
        found.insert(found.end(), more.begin(), more.end());
    }
    return found;
}

/// The length in bytes of the beginning that all share. It never ends inside a character.
std::string commonBeginning(const Strings& texts) {
    std::string common = texts.front();
    for (const auto& text : texts) {
        const auto differ =
            std::mismatch(common.begin(), common.end(), text.begin(), text.end()).first;
        common.erase(differ, common.end());
    }
    const auto isContinuation = [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
    };
    for (const auto& text : texts) {
        while (!common.empty() && common.size() < text.size() &&
               isContinuation(text[common.size()]))
            common.pop_back();
    }
    return common;
}

std::string quoted(const std::string& word) {
    return word.find(' ') == std::string::npos ? word : "\"" + word;
}

/// The file name as far as it is typed, with its blanks; nullopt if the line does not end in a file
/// name.
std::optional<std::string> unquotedFile(const Command& command, const std::string& typed) {
    const bool takesFile = std::ranges::any_of(commandForms(), [&](const CommandForm& form) {
        return command.name == form.name && form.names == Names::File;
    });
    if (!takesFile || typed.find('"') != std::string::npos || command.rest.empty())
        return std::nullopt;
    std::string beginning = typed.substr(typed.find(command.rest, command.name.size() + 1));
    const auto digits = beginning.find_first_not_of("0123456789");
    if (command.name == "save" && digits != 0 && digits != std::string::npos &&
        beginning[digits] == ' ')
        beginning.erase(0, digits + 1);
    return beginning;
}

}  // namespace

Completion complete(const std::wstring& line, std::size_t cursor, const KnownNames& names) {
    const std::string typed = narrow(line.substr(0, cursor));
    const auto command = parseCommand(typed);
    Strings found;
    std::size_t start = typed.find_last_of(" \n") + 1;  // of the word; 0 if there is no blank
    std::string beginning = typed.substr(start);
    if (command) {
        const bool isNewWord = typed.ends_with(' ') && !command->isUnfinished;
        const std::size_t position = command->words.size() + (isNewWord ? 1 : 0);
        if (command->isUnfinished) start = typed.rfind('"');
        if (command->isUnfinished && !command->words.empty()) beginning = command->words.back();
        const auto file = unquotedFile(*command, typed);
        if (file) {
            beginning = *file;
            start = typed.size() - file->size();
        }
        found = candidates(*command, file ? 1 : position, beginning, names);
    } else {
        found = names.friends;
        found.insert(found.end(), names.members.begin(), names.members.end());
        if (beginning.empty()) found.clear();
    }
    std::erase_if(found, [&](const std::string& name) { return !name.starts_with(beginning); });
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    if (found.empty()) return {line, cursor, {}};

    std::string inserted = command ? quoted(commonBeginning(found)) : commonBeginning(found);
    if (found.size() == 1 && !inserted.ends_with('/'))
        inserted += inserted.starts_with('"') ? "\" " : " ";
    const std::wstring before = wide(typed.substr(0, start) + inserted);
    if (found.size() == 1) found.clear();
    return {before + line.substr(cursor), before.size(), std::move(found)};
}

}  // namespace chat
