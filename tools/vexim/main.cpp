// vexim: a terminal client for the library.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Demo.h"
#include "Manual.h"
#include "ResourceCommands.h"
#include "Send.h"
#include "ShellCompletion.h"
#include "StoreCommands.h"
#include "VexIMLib/VexIMLib.h"
#include "chat/Text.h"

namespace {

CommandTable makeTable() {
    CommandTable table;
    table.commands = {chatCommand(), sendCommand()};
    const auto add = [&](std::vector<CommandSpec> more) {
        table.commands.insert(table.commands.end(), more.begin(), more.end());
    };
    add(peopleCommands());
    add(lookupCommands());
    add(storeCommands());
    add({demoCommand()});
    table.topics = {{"friends", "Your friends"},
                    {"groups", "Groups"},
                    {"rooms", "Rooms"},
                    {"members", "Who belongs to a group or a room"},
                    {"attributes", "Custom attributes: yours, a group's or a room's"},
                    {"passengers", "Anonymous visitors"}};
    return table;
}

int complain(const std::string& words, int status, bool isJSON) {
    const auto text = chat::harmless(words);
    if (isJSON) {
        const vexim::Dictionary record{{"error", text}, {"status", status}};
        std::fprintf(stderr, "%s\n", vexim::writeJSON(record).text.c_str());
    } else {
        std::fprintf(stderr, "vexim: %s\n", text.c_str());
    }
    return status;
}

/// Throws if the output was not written, such as to a full disk.
void flushOutput() {
    errno = 0;
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return;
    throw std::runtime_error(std::string("cannot write the output: ") +
                             std::strerror(errno != 0 ? errno : EIO));
}

/// Prints a text for which no client is needed: help, completions, the manual.
int print(const std::string& text) {
    try {
        std::fputs(text.c_str(), stdout);
        flushOutput();
        return 0;
    } catch (const std::exception& error) {
        return complain(error.what(), 1, false);
    }
}

int run(const CommandSpec& command, Given& given) {
    try {
        given.credentials.askForPassword();
        const int status = command.run(given);
        flushOutput();
        return status;
    } catch (const std::invalid_argument& error) {
        return complain(error.what(), 2, given.isJSON);  // nothing was sent
    } catch (const vexim::Exception& exception) {
        return complain(exception.reason(), 2, given.isJSON);
    } catch (const std::exception& error) {
        return complain(error.what(), 1, given.isJSON);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const auto table = makeTable();
    const std::vector<std::string> arguments(argv + 1, argv + std::max(1, argc));
    chat::useUTF8();
    if (arguments == std::vector<std::string>{"--manual"}) return print(manualOf(table));
    if (!arguments.empty() && arguments.front() == "--complete") {
        return print(
            completionsOf(table, std::vector<std::string>(arguments.begin() + 1, arguments.end())));
    }
    auto parsed = parse(table, arguments);
    const bool isJSON = std::ranges::find(arguments, "--json") != arguments.end();
    if (parsed.command == nullptr && parsed.status == 0) return print(parsed.text);
    if (parsed.command == nullptr) return complain(parsed.text, parsed.status, isJSON);
    for (std::size_t i = 0; i < arguments.size(); ++i) {  // a file name may have any bytes
        const bool isText =
            !vexim::writeJSON(vexim::Value(arguments[i]), vexim::JSONFragments::Allow).error;
        if (!isText && ::access(arguments[i].c_str(), F_OK) != 0)
            return complain("argument " + std::to_string(i + 1) + " is not valid UTF-8", 2, isJSON);
    }
    hideSecrets(argc, argv);
    return run(*parsed.command, parsed.given);
}
