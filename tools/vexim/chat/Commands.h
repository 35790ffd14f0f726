#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace chat {

/// What a word of a command names, for completion.
enum class Names { Nothing, Command, Friend, Group, Room, Member, File };

/// One form of a command: "/group add USER …".
struct CommandForm {
    const char* name;       ///< without the slash
    const char* action;     ///< the word that must follow; empty: none
    const char* arguments;  ///< as the help shows them
    const char* help;
    Names names;  ///< what the arguments name
};

const std::vector<CommandForm>& commandForms();

/// A line that begins with a slash, in words; blanks divide them, and double quotes hold one
/// together.
struct Command {
    std::string name;
    std::vector<std::string> words;
    bool isUnfinished = false;  ///< a quote is open
    std::string rest = {};      ///< all behind the name, as it was typed
};

/// nullopt when the line is a message: it has no slash in front, or two ("//" writes a text that
/// begins with one).
std::optional<Command> parseCommand(std::string_view line);

/// The file that a command names from its word `from` on: a name with blanks needs no quotes.
std::string fileIn(const Command& command, std::size_t from);

/// The text that a line means that is no command: without the first of two slashes.
std::string messageText(std::string_view line);

/// What /help prints: the commands, then the keys.
std::string helpText();
/// The keys, as "--help" prints them, too.
std::string keysText();

}  // namespace chat
