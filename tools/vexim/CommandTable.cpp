#include "CommandTable.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

std::optional<std::string> Given::find(const std::string& name) const {
    const auto found = values.find(name);
    if (found == values.end() || found->second.empty()) return std::nullopt;
    return found->second.back();
}

std::vector<std::string> Given::all(const std::string& name) const {
    const auto found = values.find(name);
    return found == values.end() ? std::vector<std::string>() : found->second;
}

std::string Given::text(const std::string& name) const {
    std::string text;
    for (const auto& word : all(name)) text += (text.empty() ? "" : " ") + word;
    return text;
}

std::int32_t Given::number(const std::string& name, std::int32_t least,
                           std::int32_t otherwise) const {
    const auto text = find(name);
    if (!text) return otherwise;
    std::int32_t value = 0;
    const auto end = text->data() + text->size();
    const auto read = std::from_chars(text->data(), end, value);
    if (read.ec != std::errc() || read.ptr != end || value < least) {
        throw std::invalid_argument(name + " takes a number from " + std::to_string(least) +
                                    " on, not " + *text);
    }
    return value;
}

const CommandSpec* CommandTable::find(const std::string& name) const {
    const auto found = std::ranges::find(commands, name, &CommandSpec::name);
    return found == commands.end() ? nullptr : &*found;
}

const std::vector<OptionSpec>& commonOptions() {
    static const std::vector<OptionSpec> options = {
        {"--server", "URL", "The service's address", true},
        {"--user", "ID", "Who you are: your user id", true},
        {"--username", "NAME", "Or your user name, together with a password", true},
        {"--password", "WORD", "The password; if it is missing, vexim asks for it", true},
        {"--json", "", "Print JSON, for programs"},
        {"--app", "ID", "The application's id; by default the local service's", true},
        {"--key", "KEY", "The application's key; by default the local service's", true},
        {"--ca", "FILE", "Trust the certificate authorities in this PEM file, not the system's",
         true},
        {"--pin", "KEY",
         "Accept only a server with this key: the base64 of its SHA-256; may be repeated", true,
         true},
        {"--install", "ID", "This device's id; by default vexim-terminal", true},
        {"--config", "FILE",
         "Read this configuration file instead of the usual one [VEXIM_CONFIG]"},
    };
    return options;
}

std::string environmentName(const std::string& option) {
    std::string name = "VEXIM_" + option.substr(2);
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::toupper(c); });
    return name;
}

std::vector<OptionSpec> peerOptions(const std::string& verb) {
    return {{"--friend", "ID", verb + " this friend"},
            {"--group", "ID", verb + " this group"},
            {"--room", "ID", verb + " this room"}};
}

const std::vector<std::pair<int, std::string>>& exitStatuses() {
    static const std::vector<std::pair<int, std::string>> statuses = {
        {0, "Success."},
        {1, "The command failed; standard error says why."},
        {2, "Nothing was done: the command line, a file or the configuration is wrong."},
    };
    return statuses;
}

std::string usualConfigurationFile() {
    const char* folder = std::getenv("XDG_CONFIG_HOME");
    if (folder != nullptr && *folder == '/') return std::string(folder) + "/vexim/config";
    const char* home = std::getenv("HOME");
    return home != nullptr && *home != '\0' ? std::string(home) + "/.config/vexim/config" : "";
}
