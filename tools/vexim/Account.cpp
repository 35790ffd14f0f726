#include "Account.h"

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "VexIMLib/VexIMLib.h"

std::shared_ptr<VXIMClient> Account::makeClient() const {
    if (server.empty()) {
        throw std::invalid_argument(
            "say which service: with --server URL, with VEXIM_SERVER, or with a line \"server = URL\" in the configuration file");
    }
    const auto url = vexim::URL::parse(server);
    const auto isSpoken = [&](const char* scheme) { return url->scheme() == scheme; };
    constexpr std::array kSchemes{"http", "https", "ws", "wss"};
    if (!url || url->host().empty() || std::none_of(kSchemes.begin(), kSchemes.end(), isSpoken)) {
        const bool isBare = server.find('/') == std::string::npos;
        throw std::invalid_argument(
            "not a service's URL: \"" + server + "\"; " +
            (isBare ? "did you mean http://" + server + " or https://" + server + "?"
                    : "one looks like https://chat.example.org:8443"));
    }
    if (const auto path = url->path(); !path.empty() && path != "/")
        throw std::invalid_argument("the service's URL ends after its host and port: leave out \"" +
                                    std::string(path) + "\"");
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
    // Some networks let only plain HTTP requests through.
    configuration->setForceWebsockets(false);
    return VXIMClient::clientWithConfiguration(configuration);
}

void Credentials::askForPassword() {
    if (!username || password) return;
    termios before{};
    if (tcgetattr(STDIN_FILENO, &before) != 0)
        throw std::invalid_argument("a --username needs a password: set VEXIM_PASSWORD");
    // While the terminal shows no input, Ctrl-C ends the line and not the process. Otherwise the
    // terminal would stay silent.
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
        throw std::invalid_argument(
            "say who you are with --user, or with --username and --password; VEXIM_USER or the configuration file can do so, too");
    client.loginWithUserId(userId, std::move(completion));
}
