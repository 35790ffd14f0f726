#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Account.h"

/// How many words may stand in one place.
enum class Count { One, Optional, Any, Some };

/// A positional argument of a command.
struct WordSpec {
    std::string name;  ///< as in the help: "FRIEND"
    std::string help;
    Count count = Count::One;
    std::vector<std::string> choices = {};  ///< what may be typed; if empty, anything
};

/// An option. If its value has no name, it is a flag.
struct OptionSpec {
    std::string name;   ///< "--limit"
    std::string value;  ///< the value's name in the help; "FILE" and "PATH" complete file names
    std::string help;
    /// Whether it may also stand in the configuration file ("limit = 5") and in the environment
    /// ("VEXIM_LIMIT").
    bool isSetting = false;
    bool isRepeatable = false;
};

struct CommandSpec;

/// Everything that was given, on the command line, in the environment and in the configuration
/// file.
struct Given {
    Account account;
    Credentials credentials;
    Peer peer;
    bool isJSON = false;
    /// by the name of the option or argument
    std::map<std::string, std::vector<std::string>> values = {};

    bool has(const std::string& name) const { return values.contains(name); }
    std::optional<std::string> find(const std::string& name) const;
    /// The only value of that name; empty if there is none.
    std::string one(const std::string& name) const { return find(name).value_or(""); }
    std::vector<std::string> all(const std::string& name) const;
    /// All values of that name, separated by blanks.
    std::string text(const std::string& name) const;
    /// A number. Throws std::invalid_argument if the value is not a number or is below `least`.
    std::int32_t number(const std::string& name, std::int32_t least, std::int32_t otherwise) const;
};

/// One command. The parser, the help, the completion and the manual are all made from this.
struct CommandSpec {
    std::string name;  ///< "send", or with its topic: "friends list"
    std::string help;
    std::vector<WordSpec> words;
    std::vector<OptionSpec> options;
    std::function<int(const Given&)> run;
    std::string notes = {};  ///< printed below the options; may be empty
};

/// All commands, in the order of the help, and what they share.
struct CommandTable {
    std::vector<CommandSpec> commands;
    /// Each topic and its title: "friends", "A user's friends".
    std::vector<std::pair<std::string, std::string>> topics;

    const CommandSpec* find(const std::string& name) const;
};

/// The options of every command.
const std::vector<OptionSpec>& commonOptions();
/// The environment variable for an option: "VEXIM_SERVER" for "--server".
std::string environmentName(const std::string& option);
/// "--friend", "--group", "--room": whom the command is about.
std::vector<OptionSpec> peerOptions(const std::string& verb);
/// What each exit status means, as printed in the help and the manual.
const std::vector<std::pair<int, std::string>>& exitStatuses();
/// Where the configuration file is if no other is named; empty without a home directory.
std::string usualConfigurationFile();
