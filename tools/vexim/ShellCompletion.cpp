#include "ShellCompletion.h"

#include <algorithm>
#include <set>

namespace {

constexpr const char* kFiles = "@files\n";

const OptionSpec* findOption(const CommandSpec* command, const std::string& name) {
    static const CommandSpec kNothing{};
    for (const auto* options : {&commonOptions(), &(command ? *command : kNothing).options}) {
        const auto found = std::ranges::find(*options, name, &OptionSpec::name);
        if (found != options->end()) return &*found;
    }
    return nullptr;
}

std::string choice(const std::string& word, const std::string& help, const std::string& beginning) {
    return word.starts_with(beginning) ? word + "\t" + help + "\n" : "";
}

/// The commands of `topic`; if it is empty, the top level's commands and topics.
std::string commandsOf(const CommandTable& table, const std::string& topic,
                       const std::string& beginning) {
    std::string lines;
    std::set<std::string> told;
    for (const auto& command : table.commands) {
        const auto blank = command.name.find(' ');
        const bool isBelow = blank != std::string::npos;
        if (!topic.empty()) {
            if (isBelow && command.name.substr(0, blank) == topic)
                lines += choice(command.name.substr(blank + 1), command.help, beginning);
            continue;
        }
        const auto name = command.name.substr(0, blank);
        if (!told.insert(name).second) continue;
        const auto about =
            std::ranges::find(table.topics, name, &std::pair<std::string, std::string>::first);
        lines += choice(name, isBelow ? about->second : command.help, beginning);
    }
    return lines;
}

std::string optionsOf(const CommandSpec* command, const std::string& beginning) {
    std::string lines;
    if (command != nullptr) {
        for (const auto& option : command->options)
            lines += choice(option.name, option.help, beginning);
    }
    for (const auto& option : commonOptions()) lines += choice(option.name, option.help, beginning);
    return lines + choice("--help", "Show what can be given", beginning) +
           (command == nullptr ? choice("--version", "Print the version", beginning) : "");
}

std::string wordsAt(const CommandSpec& command, std::size_t place, const std::string& beginning) {
    if (command.words.empty()) return "";
    const auto& word = command.words[std::min(place, command.words.size() - 1)];
    const bool isMany = word.count == Count::Any || word.count == Count::Some;
    if (place >= command.words.size() && !isMany) return "";
    if (word.name == "FILE") return kFiles;
    std::string lines;
    for (const auto& one : word.choices) lines += choice(one, word.help, beginning);
    return lines;
}

}  // namespace

std::string completionsOf(const CommandTable& table, const std::vector<std::string>& words) {
    const std::string beginning = words.empty() ? "" : words.back();
    std::string path;  // first "friends", then "friends list"
    const CommandSpec* command = nullptr;
    std::size_t place = 0;
    const OptionSpec* open = nullptr;  // the option that still needs its value
    bool isText = false;               // after "--", everything is text
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        const auto& word = words[i];
        if (open != nullptr) {
            open = nullptr;
        } else if (word == "--") {
            isText = true;
        } else if (!isText && word.starts_with("--")) {
            const auto* option = findOption(command, word);
            if (option != nullptr && !option->value.empty()) open = option;
        } else if (command == nullptr) {
            path += (path.empty() ? "" : " ") + word;
            command = table.find(path);
        } else {
            ++place;
        }
    }
    if (open != nullptr) return open->value == "FILE" || open->value == "PATH" ? kFiles : "";
    if (!isText && beginning.starts_with('-')) return optionsOf(command, beginning);
    if (command == nullptr) return commandsOf(table, path, beginning);
    return wordsAt(*command, place, beginning);
}
