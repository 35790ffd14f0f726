#include "Login.h"

#include <chrono>
#include <stdexcept>
#include <utility>

#include "Explain.h"
#include "VexIMLib/VexIMLib.h"

namespace {

constexpr std::chrono::seconds kTimeout{30};  // if the service hangs

struct Attempt {
    std::string where;
    std::function<void(const std::string&)> ended;

    void end(const std::string& reason) {
        if (const auto call = std::exchange(ended, nullptr)) {
            call(reason.empty() ? "" : "login failed at " + where + ": " + reason);
        }
    }
};

std::string addressOf(const VXIMClient& client) {
    const auto url = client.config()->socketURL();
    if (!url) return "?";
    return url->scheme() + "://" + url->host() +
           (url->port() ? ":" + std::to_string(*url->port()) : "");
}

}  // namespace

void logInOnce(const std::shared_ptr<VXIMClient>& client, const Credentials& credentials,
               std::function<void(const std::string&)> ended) {
    const auto attempt = std::make_shared<Attempt>(Attempt{addressOf(*client), std::move(ended)});
    vexim::NotificationCenter::defaultCenter().addObserver(
        attempt, VXIMClientConnectionErrorNotification, client.get(),
        [seen = attempt.get()](const vexim::Notification& notification) {
            const auto error = vexim::connectionError(notification);
            // After this error the connection stays open, and the answer may still come.
            if (!error->is(VXIMConnectionErrorDomain, VXIMConnectionErrorServerReported))
                seen->end(explain(error));
        });
    credentials.logIn(*client, [attempt](bool accepted, const vexim::ErrorPtr& error) {
        attempt->end(accepted ? "" : explain(error));
    });
    vexim::MainQueue::shared().after(kTimeout,
                                     [attempt] { attempt->end("The service does not answer."); });
}

void logIn(const std::shared_ptr<VXIMClient>& client, const Credentials& credentials) {
    const auto answer = std::make_shared<std::optional<std::string>>();
    logInOnce(client, credentials, [answer](const std::string& complaint) { *answer = complaint; });
    vexim::MainQueue::shared().runUntil([&] { return answer->has_value(); }, 2 * kTimeout);
    if (!answer->value_or("").empty()) throw std::runtime_error(**answer);
}

std::string userIdOf(const std::shared_ptr<VXIMClient>& client, const Credentials& credentials) {
    if (credentials.userId) return *credentials.userId;
    logIn(client, credentials);
    return client->currentUser()->uid().description();
}
