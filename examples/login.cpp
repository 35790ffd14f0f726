// All kinds of login, a refusal, a pause, and a logout.

#include <VexIMLib/VexIMLib.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <string>

#include "Waiting.h"

using namespace std::chrono_literals;

namespace {

// [configuration]
std::shared_ptr<VXIMClient> makeClient(const std::string& url) {
    auto configuration = VXIMClientConfiguration::defaultConfiguration();
    configuration->setAppId("demo-app");
    configuration->setClientKey("demo-key");         // signs requests and logins; never sent itself
    configuration->setInstallationId("bobs-phone");  // names this device's copy of the application
    configuration->setSocketURL(vexim::URL::parse(url));
    return VXIMClient::clientWithConfiguration(configuration);
}
// [/configuration]

void allowPolling(const std::shared_ptr<VXIMClientConfiguration>& configuration) {
    // [fallback]
    // WebSocket first; if it is refused, HTTP polling
    configuration->setForceWebsockets(false);
    // [/fallback]
}

// [trust]
void trustOnly(VXIMClientConfiguration& configuration, const std::string& authorityFile,
               const std::string& pin) {
    configuration.setCaFile(authorityFile);  // instead of the system's authorities
    configuration.setPinnedKeys({pin});      // and only a server with this key
}
// [/trust]

bool logsInByEveryWay(const std::shared_ptr<VXIMClient>& client) {
    return succeeds([&](const VXIMBooleanCompletion& done) {
               // [user_id]
               client->loginWithUserId("bob", done);  // the client key alone vouches for the user
               // [/user_id]
           }) &&
           succeeds([&](const VXIMBooleanCompletion& done) {
               // [username]
               client->loginWithUsername("bob", "bob-secret", done);
               // [/username]
           }) &&
           succeeds([&](const VXIMBooleanCompletion& done) {
               // [phone]
               // the code that came by SMS
               client->loginWithPhoneNumber("+15550100002", "100002", done);
               // [/phone]
           }) &&
           succeeds([&](const VXIMBooleanCompletion& done) {
               // [oauth]
               client->loginWithThirdPartyOAuth(
                   vexim::Dictionary{
                       {"provider", "example"}, {"uid", "bob@example"}, {"token", "bob-token"}},
                   done);
               // [/oauth]
           });
}

bool isRefused(const std::shared_ptr<VXIMClient>& client) {
    bool refused = false;
    // [refused]
    client->loginWithUsername(
        "bob", "not-his-password", [&refused](bool loggedIn, vexim::ErrorPtr error) {
            if (loggedIn) return;
            refused = error->is(VXIMErrorDomain, 1105);  // a code of the service
            std::cout << error->localizedDescription();  // and its own text
        });
    // [/refused]
    return becomesTrue([&] { return refused; });
}

void giveItAMinute(const std::shared_ptr<VXIMClient>& client) {
    // [deadline]
    vexim::MainQueue::shared().after(1min, [weak = std::weak_ptr<VXIMClient>(client)] {
        const auto self = weak.lock();
        if (self && self->status() == VXIMClientStatusOpening)
            std::cerr << "The service does not answer.\n";
    });
    // [/deadline]
}

bool pausesAndResumes(const std::shared_ptr<VXIMClient>& client) {
    // [pause]
    client->pause();  // closes the connection; sending fails until it resumes
    // [/pause]
    if (!becomesTrue([&] { return client->status() == VXIMClientStatusPaused; })) return false;
    // [resume]
    client->resume();  // connects again with the same credentials
    // [/resume]
    return becomesTrue([&] { return client->status() == VXIMClientStatusOpened; });
}

bool logsOut(const std::shared_ptr<VXIMClient>& client) {
    return succeeds([&](const VXIMBooleanCompletion& done) {
        // [logout]
        // removes this installation from the user, then closes the connection
        client->logoutWithCompletion(done);
        // [/logout]
    });
}

}  // namespace

// login URL [AUTHORITIES.pem PIN]
int main(int count, char** arguments) {
    // [application]
    vexim::setApplicationInfo(
        {.bundleIdentifier = "org.example.chat", .bundleVersion = "142", .systemVersion = {}});
    // [/application]
    const auto client = makeClient(arguments[1]);
    allowPolling(client->config());
    if (count == 4) trustOnly(*client->config(), arguments[2], arguments[3]);
    if (!isRefused(client)) return 1;
    giveItAMinute(client);
    return logsInByEveryWay(client) && pausesAndResumes(client) && logsOut(client) ? 0 : 1;
}
