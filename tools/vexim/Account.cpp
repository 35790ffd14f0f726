#include "Account.h"

#include <termios.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "VexIMLib/VexIMLib.h"

void Account::addOptions(CLI::App& command) {
    command.add_option("--server", server, "The service's URL")->required();
    command.add_option("--app", appId, "Application id")->capture_default_str();
    command.add_option("--key", clientKey, "Client key")
        ->envname("VEXIM_KEY")
        ->capture_default_str();
    command
        .add_option("--ca", authorityFile,
                    "Trust the certificate authorities in this PEM file, not the system's")
        ->check(CLI::ExistingFile);
    command
        .add_option(
            "--pin", pins,
            "Accept only a server with this key: the base64 of its SHA-256; may be repeated")
        ->allow_extra_args(false);  // what follows may be the command's own
    command.add_option("--install", installation, "Installation id of this device")
        ->capture_default_str();
}

std::shared_ptr<VXIMClient> Account::makeClient() const {
    const auto url = vexim::URL::parse(server);
    const auto isSpoken = [&](const char* scheme) { return url->scheme() == scheme; };
    constexpr std::array kSchemes{"http", "https", "ws", "wss"};
    if (!url || url->host().empty() || std::none_of(kSchemes.begin(), kSchemes.end(), isSpoken)) {
        throw std::invalid_argument("not a service's URL: \"" + server +
                                    "\"; one looks like https://chat.example.org:8443");
    }
    for (const auto& pin : pins) {
        if (VXIMClientConfiguration::isPin(pin)) continue;
        throw std::invalid_argument(
            "--pin takes the base64 of a key's SHA-256 digest, which has 44 characters");
    }
    auto configuration = VXIMClientConfiguration::defaultConfiguration();
    configuration->setSocketURL(*url);
    configuration->setAppId(appId);
    configuration->setClientKey(clientKey);
    configuration->setInstallationId(installation);
    configuration->setCaFile(authorityFile);
    configuration->setPinnedKeys(pins);
    // a network may let nothing but plain requests through
    configuration->setForceWebsockets(false);
    return VXIMClient::clientWithConfiguration(configuration);
}

void Credentials::addOptions(CLI::App& command) {
    auto* byId = command.add_option("--user", userId, "Log in with a user id");
    command.add_option("--username", username, "Log in with a user name …")->excludes(byId);
    command.add_option("--password", password, "… and its password; without it, it is asked for")
        ->envname("VEXIM_PASSWORD");
}

void Credentials::askForPassword() {
    if (!username || password) return;
    termios before{};
    if (tcgetattr(STDIN_FILENO, &before) != 0)
        throw std::invalid_argument("a --username needs a password: set VEXIM_PASSWORD");
    // Ctrl-C must not leave a silent terminal behind: it ends the line instead of the process.
    termios silent = before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
    silent.c_cc[VEOL] = before.c_cc[VINTR];
    std::fputs("Password: ", stderr);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    std::string typed;
    int last = std::getchar();
    for (; last != EOF && last != '\n' && last != before.c_cc[VINTR]; last = std::getchar())
        typed += static_cast<char>(last);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
    std::fputs("\n", stderr);
    if (last != '\n') throw std::invalid_argument("no password");
    password = typed;
}

void hideSecrets(int argc, char** argv) {
    for (int at = 1; at < argc; ++at) {
        for (const char* name : {"--password", "--key"}) {
            const std::size_t length = std::strlen(name);
            if (std::strncmp(argv[at], name, length) != 0) continue;
            if (argv[at][length] == '=')
                std::memset(argv[at] + length + 1, 'x', std::strlen(argv[at] + length + 1));
            if (argv[at][length] == '\0' && at + 1 < argc)
                std::memset(argv[at + 1], 'x', std::strlen(argv[at + 1]));
        }
    }
}

void Credentials::logIn(VXIMClient& client, VXIMBooleanCompletion completion) const {
    if (username) return client.loginWithUsername(username, password, std::move(completion));
    if (!userId)
        throw std::invalid_argument("say who you are with --user, or --username and --password");
    client.loginWithUserId(userId, std::move(completion));
}

void Peer::addOptions(CLI::App& command) {
    auto* toFriend = command.add_option("--friend", friendId, "Talk to this friend");
    auto* toGroup =
        command.add_option("--group", groupId, "Talk to this group")->excludes(toFriend);
    command.add_option("--room", roomId, "Talk to this room")
        ->excludes(toFriend)
        ->excludes(toGroup);
}
