#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Account.h"

/// How often a word may stand in its place.
enum class Count { One, Optional, Any, Some };

/// A word that a command takes, in its place.
struct WordSpec {
    std::string name;  ///< as the help shows it: "FRIEND"
    std::string help;
    Count count = Count::One;
    std::vector<std::string> choices = {};  ///< without any: whatever is typed
};

/// An option. Without the name of a value it is a flag.
struct OptionSpec {
    std::string name;   ///< "--limit"
    std::string value;  ///< what the help calls its value; "FILE" and "PATH" complete file names
    std::string help;
    /// Whether it may also stand in the configuration file ("limit = 5") and in the environment
    /// ("VEXIM_LIMIT").
    bool isSetting = false;
    bool isRepeatable = false;
};

struct CommandSpec;

/// What was given on the command line, and for what was not, in the environment and in the
/// configuration file.
struct Given {
    Account account;
    Credentials credentials;
    Peer peer;
    bool isJSON = false;
    std::map<std::string, std::vector<std::string>> values = {};  ///< by the name of option or word

    bool has(const std::string& name) const { return values.contains(name); }
    std::optional<std::string> find(const std::string& name) const;
    /// The only value; empty when there is none.
    std::string one(const std::string& name) const { return find(name).value_or(""); }
    std::vector<std::string> all(const std::string& name) const;
    /// All words of that name, with blanks between them.
    std::string text(const std::string& name) const;
    /// A count. Throws std::invalid_argument when it is not a number from `least` on.
    std::int32_t number(const std::string& name, std::int32_t least, std::int32_t otherwise) const;
};

/// One command. All that the program knows of it stands here: parser, help, completion and manual
/// are made from it.
struct CommandSpec {
    std::string name;  ///< "send", or with its topic "friends list"
    std::string help;
    std::vector<WordSpec> words;
    std::vector<OptionSpec> options;
    std::function<int(const Given&)> run;
    std::string notes = {};  ///< below the options; empty: none
};

/// The commands, in the order of the help, and what they have in common.
struct CommandTable {
    std::vector<CommandSpec> commands;
    /// What the topics are about: "friends", "A user's friends".
    std::vector<std::pair<std::string, std::string>> topics;

    const CommandSpec* find(const std::string& name) const;
};

/// What every command takes.
const std::vector<OptionSpec>& commonOptions();
/// The variable that stands for an option: "VEXIM_SERVER" for "--server".
std::string environmentName(const std::string& option);
/// "--friend", "--group", "--room": whom a command is about.
std::vector<OptionSpec> peerOptions(const std::string& verb);
/// What a status says, as help and manual tell it.
const std::vector<std::pair<int, std::string>>& exitStatuses();
/// Where the configuration file is looked for when none is named; empty without a home.
std::string usualConfigurationFile();
