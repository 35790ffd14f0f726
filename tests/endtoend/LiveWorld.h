#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/VexIMLib.h"
#include "support/Completions.h"
#include "support/Eventually.h"
#include "support/LivePeer.h"

namespace vexim::testing {

/// A client with a record of all its calls: what an application would see of a live connection.
class LiveClient : public VXIMClientDelegate, public std::enable_shared_from_this<LiveClient> {
public:
    /// `options` are the connection's. It does not reconnect unless they say so.
    static std::shared_ptr<LiveClient> make(const std::string& origin,
                                            const Dictionary& options = {}) {
        auto ears = std::make_shared<LiveClient>();
        auto configuration = VXIMClientConfiguration::defaultConfiguration();
        configuration->setAppId("app");
        configuration->setClientKey("key");
        configuration->setInstallationId("install");
        configuration->setSocketURL(URL::parse(origin));
        configuration->setAutoReconnect(false);
        configuration->dictionary().addEntries(options);
        ears->client = VXIMClient::clientWithConfiguration(configuration);
        ears->client->setDelegate(ears);
        const auto listen = [&](const char* name, auto hear) {
            NotificationCenter::defaultCenter().addObserver(
                ears, name, ears->client.get(),
                [weak = std::weak_ptr(ears), hear](const Notification& notification) {
                    if (const auto self = weak.lock()) hear(*self, notification);
                });
        };
        listen(VXIMClientConnectionErrorNotification,
               [](LiveClient& self, const Notification&) { ++self.errors; });
        listen(VXIMClientDidReceiveMessageNotification,
               [](LiveClient& self, const Notification& notification) {
                   const auto message = notification.userInfo->get("msg").as<VXIMMessage>();
                   self.received.push_back(message->text().value_or("nil"));
               });
        listen(VXIMClientDidReceiveSystemMessageNotification,
               [](LiveClient& self, const Notification&) { ++self.systemMessages; });
        listen(VXIMFriendOnlineNotification,
               [](LiveClient& self, const Notification&) { ++self.presences; });
        listen(VXIMFriendOfflineNotification,
               [](LiveClient& self, const Notification&) { ++self.presences; });
        return ears;
    }

    void login() {
        client->loginWithUserId("u1", atMostOnce([this](bool succeeded, const ErrorPtr&) {
                                    logins.push_back(succeeded);
                                }));
    }
    void clientDidDisconnect(const std::shared_ptr<VXIMClient>&) override { ++disconnects; }

    std::shared_ptr<VXIMClient> client;
    std::vector<bool> logins;
    std::vector<std::string> received;  // texts, or "nil"
    int errors = 0;
    int disconnects = 0;
    int systemMessages = 0;
    int presences = 0;
};

}  // namespace vexim::testing
