// vexim: the library in a terminal.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>

#include "Account.h"
#include "Chat.h"
#include "Demo.h"
#include "Resources.h"
#include "Send.h"
#include "chat/Text.h"

int main(int argc, char** argv) {
    CLI::App app("Instant messaging in a terminal");
    app.require_subcommand(1);
    app.set_version_flag("--version", "vexim " VEXIM_VERSION);

    Account account;
    Credentials credentials;
    Peer peer;
    std::function<int()> chosen;  // the command that was given

    auto& demo = *app.add_subcommand("demo", "Let two users of the development service talk, and check every step");
    account.addOptions(demo);
    demo.callback([&] { chosen = [&] { return runDemo(account); }; });

    auto& chat = *app.add_subcommand("chat", "Chat from this terminal");
    account.addOptions(chat);
    credentials.addOptions(chat);
    peer.addOptions(chat);
    chat.footer(chatHelp);
    chat.callback([&] { chosen = [&] { return runChat(account, credentials, peer); }; });

    SendOptions message;
    auto& send = *app.add_subcommand("send", "Send one message");
    account.addOptions(send);
    credentials.addOptions(send);
    peer.addOptions(send);
    message.addOptions(send);
    send.callback([&] { chosen = [&] { return runSend(account, credentials, peer, message); }; });

    addResourceCommands(app, account, chosen);

    CLI11_PARSE(app, argc, argv);
    hideSecrets(argc, argv);
    chat::useUTF8();
    try {
        credentials.askForPassword();
        return chosen();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vexim: %s\n", chat::harmless(error.what()).c_str());
        return 2;
    }
}
