#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/VexIMLib.h"
#include "endtoend/ServiceUnderTest.h"
#include "support/Completions.h"
#include "support/Describe.h"
#include "support/Eventually.h"

namespace vexim::testing {

/// A user of the library: a client and what its delegate heard.
class Person final : public VXIMClientDelegate {
public:
    static std::shared_ptr<Person> make(
        const std::string& origin, const std::function<void(VXIMClientConfiguration&)>& configure) {
        auto configuration = VXIMClientConfiguration::defaultConfiguration();
        configuration->setAppId("demo-app");
        configuration->setClientKey("demo-key");
        configuration->setInstallationId("installation");
        configuration->setSocketURL(URL::parse(origin));
        if (configure) configure(*configuration);
        auto person = std::make_shared<Person>();
        person->client = VXIMClient::clientWithConfiguration(configuration);
        person->client->setDelegate(person);
        return person;
    }

    /// Runs the main queue until `line` was heard, and takes it out.
    bool hears(const std::string& line) {
        return eventually([&] {
            const auto place = std::find(heard.begin(), heard.end(), line);
            if (place == heard.end()) return false;
            heard.erase(place);
            return true;
        });
    }
    bool reaches(VXIMClientStatus status) {
        return eventually([&] { return client->status() == status; });
    }

    std::shared_ptr<VXIMClient> client;
    std::vector<std::string> heard;
    std::shared_ptr<VXIMMessage> lastMessage;

    void clientDidLogin(const std::shared_ptr<VXIMClient>&) override {
        heard.emplace_back("didLogin");
    }
    void clientDidLogout(const std::shared_ptr<VXIMClient>&) override {
        heard.emplace_back("didLogout");
    }
    void clientDidDisconnect(const std::shared_ptr<VXIMClient>&) override {
        heard.emplace_back("didDisconnect");
    }
    void clientAttemptReconnect(const std::shared_ptr<VXIMClient>&) override {
        heard.emplace_back("reconnecting");
    }
    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&,
                                           const std::shared_ptr<VXIMMessage>& message,
                                           const std::shared_ptr<VXIMFriendInfo>& from) override {
        hear("friend", from->uid(), message);
    }
    void clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>&,
                                          const std::shared_ptr<VXIMMessage>& message,
                                          const std::shared_ptr<VXIMGroup>& from) override {
        hear("group", from->groupId(), message);
    }
    void clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>&,
                                         const std::shared_ptr<VXIMMessage>& message,
                                         const std::shared_ptr<VXIMRoom>& from) override {
        hear("room", from->roomId(), message);
    }
    void clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>&,
                                       const std::shared_ptr<VXIMMessage>& message) override {
        heard.push_back("system: " + message->text().value_or("nil"));
    }
    void clientFriendDidOnline(const std::shared_ptr<VXIMClient>&,
                               const std::shared_ptr<VXIMFriendInfo>& info) override {
        heard.push_back("online " + info->uid().description());
    }
    void clientFriendDidOffline(const std::shared_ptr<VXIMClient>&,
                                const std::shared_ptr<VXIMFriendInfo>& info) override {
        heard.push_back("offline " + info->uid().description());
    }

private:
    void hear(const std::string& kind, const Value& id,
              const std::shared_ptr<VXIMMessage>& message) {
        heard.push_back(kind + " " + id.description() + ": " + message->text().value_or("nil"));
        lastMessage = message;
    }
};

/// The library against a service, once for each kind and each line of Socket.IO servers.
class EndToEnd : public ::testing::TestWithParam<const char*> {
protected:
    EndToEnd() : service(ServiceUnderTest::shared(GetParam())) { service.reset(); }
    ~EndToEnd() override { vxim_configuration = nullptr; }

    std::shared_ptr<Person> newPerson(
        const std::function<void(VXIMClientConfiguration&)>& configure = {}) {
        return Person::make(service.origin(), configure);
    }
    std::shared_ptr<Person> loggedIn(
        const std::string& user,
        const std::function<void(VXIMClientConfiguration&)>& configure = {}) {
        auto person = newPerson(configure);
        EXPECT_EQ(run([&](auto done) { person->client->loginWithUserId(user, done); }), "yes");
        EXPECT_TRUE(person->hears("didLogin"));
        return person;
    }

    /// Starts an operation with a boolean completion and runs it to its end: "yes", or "no" with
    /// the error.
    static std::string run(const std::function<void(VXIMBooleanCompletion)>& start) {
        std::string outcome;
        start(once([&](bool succeeded, const ErrorPtr& error) {
            outcome = (succeeded ? "yes" : "no") + (error ? " " + describe(error) : std::string());
        }));
        EXPECT_TRUE(eventually([&] { return !outcome.empty(); }));
        return outcome;
    }
    /// The same for an operation with another result, which `read` turns into text.
    template <class T>
    static std::string run(const std::function<void(std::function<void(T, ErrorPtr)>)>& start,
                           const std::function<std::string(const T&)>& read) {
        std::string outcome;
        start(once([&](const T& result, const ErrorPtr& error) {
            outcome = error ? "error " + describe(error) : read(result);
        }));
        EXPECT_TRUE(eventually([&] { return !outcome.empty(); }));
        return outcome;
    }

    ServiceUnderTest& service;
};

inline const auto kServices =
    ::testing::Values("Node2", "Node3", "Node4", "Fake2", "Fake3", "Fake4");

inline std::string serviceName(const ::testing::TestParamInfo<const char*>& info) {
    return info.param;
}

}  // namespace vexim::testing
