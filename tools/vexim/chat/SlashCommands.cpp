#include "SlashCommands.h"

#include <algorithm>
#include <utility>

namespace chat {
namespace {

constexpr std::pair<const char*, const char*> kKeys[] = {
    {"Enter", "send; if nothing is typed: go to the newest message"},
    {"Tab", "complete a command or a name"},
    {"Up, Down", "earlier lines"},
    {"PageUp, PageDown", "scroll; older messages are loaded"},
    {"Alt-0 … Alt-9", "switch to that conversation"},
    {"Alt-A", "next conversation with unread messages"},
    {"Ctrl-N, Ctrl-P", "next, previous conversation"},
    {"Ctrl-C", "cancel the newest transfer; if there is none, clear the line"},
    {"Ctrl-D", "quit, on an empty line"},
    {"Ctrl-L", "redraw the screen"},
    {"Ctrl-Z", "suspend"},
    {"Ctrl-A E B F, Alt-B F", "move: line, character, word"},
    {"Ctrl-W U K, Alt-D, Ctrl-Y",
     "cut word, to the start, to the end, word on the right; insert it again"},
};

// The column of the explanations: two blanks after the longest form.
constexpr std::size_t kColumn = 29;

std::string padded(std::string text, std::size_t width) {
    // Whether a character begins at this byte.
    const auto begins = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; };
    const auto columns = static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins));
    return text.append(std::max(columns + 1, width) - columns, ' ');
}

std::string trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(" \n");
    if (begin == std::string_view::npos) return "";
    return std::string(text.substr(begin, text.find_last_not_of(" \n") + 1 - begin));
}

}  // namespace

const std::vector<CommandForm>& commandForms() {
    static const std::vector<CommandForm> forms = {
        {"friend", "", "USER", "talk to a friend", Names::Friend},
        {"friend", "add", "USER", "become friends", Names::Nothing},
        {"friend", "remove", "USER", "end a friendship", Names::Friend},
        {"group", "", "GROUP", "talk to a group", Names::Group},
        {"group", "new", "NAME [USER …]", "create a group, and add users", Names::Friend},
        {"group", "add", "USER …", "add users to this group", Names::Friend},
        {"group", "remove", "USER …", "remove users from this group", Names::Member},
        {"group", "leave", "", "leave this group", Names::Nothing},
        {"group", "members", "", "who is in this group", Names::Nothing},
        {"group", "rename", "NAME", "rename this group", Names::Nothing},
        {"group", "delete", "", "delete this group, for everybody", Names::Nothing},
        {"room", "", "ROOM", "talk to a room", Names::Room},
        {"room", "join", "ROOM", "enter a room", Names::Nothing},
        {"room", "new", "NAME [USER …]", "create a room, and add users", Names::Friend},
        {"room", "add", "USER …", "add users to this room", Names::Friend},
        {"room", "remove", "USER …", "remove users from this room", Names::Member},
        {"room", "leave", "", "leave this room", Names::Nothing},
        {"room", "members", "", "who is in this room", Names::Nothing},
        {"room", "rename", "NAME", "rename this room", Names::Nothing},
        {"room", "delete", "", "delete this room, for everybody", Names::Nothing},
        {"send", "", "FILE", "send a file; its name needs no quotes", Names::File},
        {"save", "", "[NUMBER] [PATH]",
         "download a file: by default the newest one, to the current folder", Names::File},
        {"cancel", "", "", "cancel the newest transfer, or the messages that wait here",
         Names::Nothing},
        {"retry", "", "", "send failed messages of this conversation again", Names::Nothing},
        {"search", "", "WORD …", "find messages, the newest first", Names::Nothing},
        {"refresh", "", "", "read the lists of friends, groups and rooms again", Names::Nothing},
        {"pause", "", "", "close the connection", Names::Nothing},
        {"resume", "", "", "open it again, or try now", Names::Nothing},
        {"status", "", "", "the state of the session", Names::Nothing},
        {"diagnose", "", "", "what has happened to the connection lately, without secrets",
         Names::Nothing},
        {"help", "", "", "this list", Names::Nothing},
        {"quit", "", "", "log out and quit", Names::Nothing},
    };
    return forms;
}

std::optional<Command> parseCommand(std::string_view line) {
    if (!line.starts_with('/') || line.starts_with("//")) return std::nullopt;
    std::vector<std::string> words;
    bool isQuoted = false;
    bool isInWord = false;
    for (const char c : line.substr(1)) {
        if (c == '"') {
            isQuoted = !isQuoted;
            if (!isInWord) words.emplace_back();
            isInWord = true;
        } else if (!isQuoted && (c == ' ' || c == '\n')) {
            isInWord = false;
        } else {
            if (!isInWord) words.emplace_back();
            isInWord = true;
            words.back() += c;
        }
    }
    Command command;
    command.isUnfinished = isQuoted;
    if (line.size() > 1 && line[1] != ' ' && !words.empty()) {
        command.name = words.front();
        words.erase(words.begin());
        const auto blank = line.find_first_of(" \n");
        if (blank != std::string_view::npos) command.rest = trimmed(line.substr(blank));
    }
    command.words = std::move(words);
    return command;
}

std::string fileIn(const Command& command, std::size_t from) {
    if (from + 1 == command.words.size()) return command.words[from];
    std::string_view rest = command.rest;
    for (; from > 0; --from) {
        rest.remove_prefix(std::min(rest.size(), rest.find(' ')));
        rest.remove_prefix(std::min(rest.size(), rest.find_first_not_of(' ')));
    }
    return std::string(rest);
}

std::string messageText(std::string_view line) {
    if (line.starts_with("//")) line.remove_prefix(1);
    return std::string(line);
}

std::string keysText() {
    std::string text;
    for (const auto& [key, does] : kKeys)
        text += (text.empty() ? "" : "\n") + padded("  " + std::string(key), kColumn) + does;
    return text;
}

std::string helpText() {
    std::string text = "Text that does not begin with / is sent.";
    for (const auto& form : commandForms()) {
        std::string usage = "  /" + std::string(form.name);
        for (const char* part : {form.action, form.arguments}) {
            if (*part != '\0') usage += " " + std::string(part);
        }
        text += "\n" + padded(std::move(usage), kColumn) + form.help;
    }
    return text + "\n" + padded("  //TEXT", kColumn) + "send a text that begins with /\n" +
           keysText();
}

}  // namespace chat
