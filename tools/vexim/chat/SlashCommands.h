#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace chat {

/// What an argument of a command names, for completion.
enum class Names { Nothing, Command, Friend, Group, Room, Member, File };

/// One form of a command, such as "/group add USER …".
struct CommandForm {
    const char* name;       ///< without the slash
    const char* action;     ///< the word that must follow; may be empty
    const char* arguments;  ///< as in the help
    const char* help;
    Names names;  ///< what the arguments name
};

const std::vector<CommandForm>& commandForms();

/// A line that begins with a slash, split at blanks. Double quotes keep words together.
struct Command {
    std::string name;
    std::vector<std::string> words;
    bool isUnfinished = false;  ///< a quote was not closed
    std::string rest = {};      ///< everything after the name, as typed
};

/// nullopt if the line is a message: it does not begin with a slash, or begins with two. ("//"
/// sends a text that begins with a slash.)
std::optional<Command> parseCommand(std::string_view line);

/// The file name in a command, from its word number `from` on. A name with blanks needs no quotes.
std::string fileIn(const Command& command, std::size_t from);

/// The text of a line that is not a command: without the first of two slashes.
std::string messageText(std::string_view line);

/// What /help prints: the commands, then the keys.
std::string helpText();
/// The keys; "--help" prints them as well.
std::string keysText();

}  // namespace chat
