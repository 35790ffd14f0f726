// The manual page is made from the table of commands, in mdoc(7), which man and mandoc read.

#include "Manual.h"

#include <array>
#include <cstdio>

#include "chat/SlashCommands.h"
#include "chat/Text.h"

namespace {

/// Escapes text for mdoc: a backslash, or a dot or quote at the beginning of a line, has a meaning
/// there. mdoc is ASCII.
std::string plain(const std::string& text) {
    std::string safe;
    for (const wchar_t character : chat::wide(text)) {
        if (character > 0x7E) {
            std::array<char, 16> code{};
            std::snprintf(code.data(), code.size(), "\\[u%04X]", static_cast<unsigned>(character));
            safe += code.data();
            continue;
        }
        const char c = static_cast<char>(character);
        if ((c == '.' || c == '\'') && (safe.empty() || safe.back() == '\n')) safe += "\\&";
        if (c == '\\') safe += "\\e";
        if (c != '\\') safe += c;
    }
    return safe;
}

/// Escapes an argument of a macro: a short word might be the name of another macro.
std::string word(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : plain(text)) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string flagOf(const OptionSpec& option) {
    return word(option.name.substr(1)) + (option.value.empty() ? "" : " Ar " + word(option.value));
}

std::string itemsOf(const std::vector<OptionSpec>& options) {
    std::string text;
    for (const auto& option : options)
        text += ".It Fl " + flagOf(option) + "\n" + plain(option.help) + ".\n";
    return text;
}

/// Lines that keep their breaks.
std::string literal(const std::string& text) {
    return ".Bd -literal -offset indent -compact\n" + plain(text) + "\n.Ed\n";
}

std::string sectionOf(const CommandSpec& command) {
    std::string text = ".It Xo Nm " + word("vexim " + command.name) + "\n";
    for (const auto& option : command.options) text += ".Op Fl " + flagOf(option) + "\n";
    for (const auto& one : command.words) {
        const bool isNeeded = one.count == Count::One || one.count == Count::Some;
        const bool isMany = one.count == Count::Any || one.count == Count::Some;
        text += std::string(isNeeded ? ".Ar " : ".Op Ar ") + word(one.name) +
                (isMany ? " ..." : "") + "\n";
    }
    text += ".Xc\n" + plain(command.help) + ".\n";
    if (command.words.empty() && command.options.empty()) return text;
    text += ".Bl -tag -width Ds -compact\n";
    for (const auto& one : command.words)
        text += ".It Ar " + word(one.name) + "\n" + plain(one.help) + ".\n";
    return text + itemsOf(command.options) + ".El\n";
}

}  // namespace

std::string manualOf(const CommandTable& table) {
    std::string text =
        ".\\\" Made from the program's table of commands.\n"
        ".Dd November 22, 2026\n.Dt VEXIM 1\n.Os\n"
        ".Sh NAME\n.Nm vexim\n.Nd instant messaging in a terminal\n"
        ".Sh SYNOPSIS\n.Nm vexim\n.Ar command\n.Op Ar word ...\n.Op Ar option ...\n"
        ".Sh DESCRIPTION\n.Nm\n"
        "chats, sends messages and reads and changes the data of an instant messaging service.\n"
        "Results are tables for people, or JSON with\n.Fl \"-json\" .\n"
        ".Pp\nThe commands are:\n.Bl -tag -width Ds\n";
    for (const auto& command : table.commands) text += sectionOf(command);
    text += ".El\n.Sh OPTIONS\nEvery command takes these, in any place:\n.Bl -tag -width Ds\n" +
            itemsOf(commonOptions()) + ".El\n.Sh ENVIRONMENT\n.Bl -tag -width Ds\n";
    for (const auto& option : commonOptions()) {
        const auto bracket = option.help.find('[');
        if (option.isSetting || bracket != std::string::npos) {
            text += ".It Ev " + environmentName(option.name) + "\nStands for\n.Fl " +
                    word(option.name.substr(1)) + " .\n";
        }
    }
    text +=
        ".It Ev VEXIM_STORE\nStands for\n.Fl \"-store\" .\n"
        ".It Ev NO_COLOR\nWith any value, the chat uses no colours.\n.El\n"
        ".Sh FILES\n.Bl -tag -width Ds\n.It Pa ~/.config/vexim/config\n"
        "The options that can also be environment variables, a line for each.\n"
        "The command line and the environment override them.\n" +
        literal(
            "server = \"https://chat.example.org\"\nuser = \"alice\"\nstore = \"/var/tmp/alice.vexim\"") +
        ".El\n.Sh EXIT STATUS\n.Bl -tag -width Ds\n";
    for (const auto& [status, meaning] : exitStatuses())
        text += ".It " + std::to_string(status) + "\n" + plain(meaning) + "\n";
    text +=
        ".El\n.Sh EXAMPLES\n"
        "Send a text, and a file from a pipe as one text:\n" +
        literal(
            "vexim send --user alice --friend bob \"see you at eight\"\n"
            "uptime | vexim send --user alice --group admins") +
        "Read what was said, for a program:\n" +
        literal("vexim history --user alice --friend bob --json") +
        ".Sh THE CHAT\nWhat is typed in\n.Nm vexim chat :\n" + literal(chat::helpText()) +
        ".Sh SEE ALSO\n.Xr curl 1\n";
    return text;
}
