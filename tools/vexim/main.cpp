// vexim: the library in a terminal.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>

#include "Account.h"
#include "Demo.h"
#include "Resources.h"
#include "Send.h"
#include "StoreCommands.h"
#include "VexIMLib/VexIMLib.h"
#include "chat/Text.h"

namespace {

int complain(const std::string& words, int status) {
    std::fprintf(stderr, "vexim: %s\n", chat::harmless(words).c_str());
    return status;
}

/// The word that stands where a command should, and is none; empty when there is no such.
std::string misspelt(const CLI::App& app, int argc, char** argv) {
    const CLI::App* command = &app;
    int at = 1;
    for (; !command->get_subcommands().empty(); ++at) command = command->get_subcommands().front();
    const bool takesCommand =
        !command->get_subcommands([](const CLI::App*) { return true; }).empty();
    return takesCommand && at < argc && argv[at][0] != '-' ? argv[at] : "";
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Instant messaging in a terminal");
    app.require_subcommand(1);
    app.set_version_flag("--version", "vexim " VEXIM_VERSION);

    Account account;
    Credentials credentials;
    Peer peer;
    std::function<int()> chosen;  // the command that was given

    auto& demo = *app.add_subcommand(
        "demo", "Let two users of the development service talk, and check every step");
    account.addOptions(demo);
    demo.callback([&] { chosen = [&] { return runDemo(account); }; });

    addStoreCommands(app, account, credentials, peer, chosen);

    SendOptions message;
    auto& send = *app.add_subcommand("send", "Send one message");
    account.addOptions(send);
    credentials.addOptions(send);
    peer.addOptions(send);
    message.addOptions(send);
    send.callback([&] { chosen = [&] { return runSend(account, credentials, peer, message); }; });

    addResourceCommands(app, account, chosen);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const auto word = misspelt(app, argc, argv);
        if (error.get_exit_code() != 0 && !word.empty())
            return complain("no such command: " + word + "; --help lists them", 2);
        return app.exit(error) == 0 ? 0 : 2;
    }
    for (int i = 1; i < argc; ++i) {  // a file's name may have any bytes
        const bool isText =
            !vexim::writeJSON(vexim::Value(argv[i]), vexim::JSONFragments::Allow).error;
        if (!isText && ::access(argv[i], F_OK) != 0)
            return complain("argument " + std::to_string(i) + " is not valid UTF-8", 2);
    }
    hideSecrets(argc, argv);
    chat::useUTF8();
    try {
        credentials.askForPassword();
        const int status = chosen();
        errno = 0;
        if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
        throw std::runtime_error(std::string("cannot write the output: ") +
                                 std::strerror(errno != 0 ? errno : EIO));
    } catch (const std::invalid_argument& error) {
        return complain(error.what(), 2);  // nothing was tried
    } catch (const CLI::ParseError& error) {
        return complain(error.what(), 2);
    } catch (const vexim::Exception& exception) {
        return complain(exception.reason(), 2);
    } catch (const std::exception& error) {
        return complain(error.what(), 1);
    }
}
