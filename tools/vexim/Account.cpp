#include "Account.h"

#include <CLI/CLI.hpp>
#include <stdexcept>

#include "VexIMLib/VexIMLib.h"

void Account::addOptions(CLI::App& command) {
    command.add_option("--server", server, "The service's URL")->required();
    command.add_option("--app", appId, "Application id")->capture_default_str();
    command.add_option("--key", clientKey, "Client key")->capture_default_str();
    command.add_option("--install", installation, "Installation id of this device")->capture_default_str();
}

std::shared_ptr<VXIMClient> Account::makeClient() const {
    const auto url = vexim::URL::parse(server);
    if (!url || url->host().empty()) throw std::invalid_argument("not a service's URL: " + server);
    auto configuration = VXIMClientConfiguration::defaultConfiguration();
    configuration->setSocketURL(*url);
    configuration->setAppId(appId);
    configuration->setClientKey(clientKey);
    configuration->setInstallationId(installation);
    return VXIMClient::clientWithConfiguration(configuration);
}

void Credentials::addOptions(CLI::App& command) {
    auto* byId = command.add_option("--user", userId, "Log in with a user id");
    auto* byName = command.add_option("--username", username, "Log in with a user name …")->excludes(byId);
    byName->needs(command.add_option("--password", password, "… and its password")->needs(byName));
}

void Credentials::logIn(VXIMClient& client, VXIMBooleanCompletion completion) const {
    if (username) return client.loginWithUsername(username, password, std::move(completion));
    if (!userId) throw std::invalid_argument("say who you are with --user, or --username and --password");
    client.loginWithUserId(userId, std::move(completion));
}

void Peer::addOptions(CLI::App& command) {
    auto* toFriend = command.add_option("--friend", friendId, "Talk to this friend");
    auto* toGroup = command.add_option("--group", groupId, "Talk to this group")->excludes(toFriend);
    command.add_option("--room", roomId, "Talk to this room")->excludes(toFriend)->excludes(toGroup);
}
