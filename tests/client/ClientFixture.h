#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/VexIMLib.h"
#include "VexIMLib/internal/Client/VXIMClientImpl.h"
#include "client/FakeSocket.h"
#include "support/Completions.h"
#include "support/Describe.h"
#include "support/Eventually.h"
#include "support/RecordingService.h"

namespace vexim::testing {

/// Records, in order, a client's delegate calls, notifications and completions.
class Journal final : public VXIMClientDelegate, public std::enable_shared_from_this<Journal> {
public:
    static std::shared_ptr<Journal> make() {
        auto journal = std::make_shared<Journal>();
        auto& centre = NotificationCenter::defaultCenter();
        for (const char* name :
             {VXIMUserDidLoginNotification, VXIMClientDidReceiveMessageNotification,
              VXIMClientDidReceiveSystemMessageNotification, VXIMFriendOnlineNotification,
              VXIMFriendOfflineNotification, VXIMClientConnectionErrorNotification}) {
            centre.addObserver(
                journal, name, nullptr,
                [weak = std::weak_ptr(journal)](const Notification& notification) {
                    if (auto self = weak.lock())
                        self->write("posted " + notification.name + describeInfo(notification));
                });
        }
        return journal;
    }

    std::vector<std::string> take() { return std::exchange(lines_, {}); }
    std::size_t count() const { return lines_.size(); }
    void write(std::string line) { lines_.push_back(std::move(line)); }
    VXIMBooleanCompletion completion(std::string name) {
        return atMostOnce([this, name](bool succeeded, const ErrorPtr& error) {
            write(name + (succeeded ? " yes" : " no") + (error ? ", " + describe(error) : ""));
        });
    }

    void clientDidLogin(const std::shared_ptr<VXIMClient>& client) override {
        write("didLogin at " + at(client));
    }
    void clientDidFailToLoginAgain(const std::shared_ptr<VXIMClient>& client,
                                   const ErrorPtr& error) override {
        write("refused at " + at(client) + ", " + describe(error));
    }
    void clientDidLogout(const std::shared_ptr<VXIMClient>& client) override {
        write("didLogout at " + at(client));
    }
    void clientAttemptReconnect(const std::shared_ptr<VXIMClient>& client) override {
        write("reconnecting at " + at(client));
    }
    void clientDidDisconnect(const std::shared_ptr<VXIMClient>& client) override {
        write("didDisconnect at " + at(client));
    }
    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&,
                                           const std::shared_ptr<VXIMMessage>& message,
                                           const std::shared_ptr<VXIMFriendInfo>& from) override {
        write("friend " + from->uid().description() + ": " + message->text().value_or("nil"));
    }
    void clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>&,
                                          const std::shared_ptr<VXIMMessage>& message,
                                          const std::shared_ptr<VXIMGroup>& from) override {
        write("group " + from->groupId().description() + ": " + message->text().value_or("nil"));
    }
    void clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>&,
                                         const std::shared_ptr<VXIMMessage>& message,
                                         const std::shared_ptr<VXIMRoom>& from) override {
        write("room " + from->roomId().description() + ": " + message->text().value_or("nil"));
    }
    void clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>&,
                                       const std::shared_ptr<VXIMMessage>& message) override {
        write("system: " + describe(*message));
    }
    void clientFriendDidOnline(const std::shared_ptr<VXIMClient>&,
                               const std::shared_ptr<VXIMFriendInfo>& info) override {
        write("online " + info->uid().description());
    }
    void clientFriendDidOffline(const std::shared_ptr<VXIMClient>&,
                                const std::shared_ptr<VXIMFriendInfo>& info) override {
        write("offline " + info->uid().description());
    }

private:
    static std::string at(const std::shared_ptr<VXIMClient>& client) {
        return std::to_string(client->status());
    }
    static std::string describeInfo(const Notification& notification) {
        const Dictionary info = notification.userInfo.value_or(Dictionary());
        if (const auto message = info.get("msg").as<VXIMMessage>()) return " " + describe(*message);
        if (const auto user = info.get("user").as<VXIMUser>())
            return " " + user->uid().description();
        return " " + json(info);
    }

    std::vector<std::string> lines_;
};

using Lines = std::vector<std::string>;

/// A client over a fake connection and a recording REST service.
class ClientTest : public ::testing::Test {
protected:
    ClientTest() : client(newClient()) { client->setDelegate(journal); }

    std::shared_ptr<VXIMClient> newClient() {
        return VXIMClient::Impl::make(service.configuration(), [this](const std::optional<URL>& url,
                                                                      const Dictionary& options) {
            sockets.push_back(vexim::create<FakeSocket>(url, options));
            return sockets.back();
        });
    }

    /// Runs everything that is queued on the main queue.
    static void drainMainQueue() {
        while (MainQueue::shared().drain() > 0) continue;
    }
    FakeSocket& socket() { return *sockets.back(); }

    /// What the journal gets next, after anything that other threads have to do.
    Lines nextHeard() {
        EXPECT_TRUE(eventually([&] { return journal->count() > 0; }));
        return journal->take();
    }
    /// Logs in "u1" and clears the journal.
    void login() {
        client->loginWithUserId("u1", {});
        drainMainQueue();
        socket().acceptLogin("u1");
        drainMainQueue();
        journal->take();
    }
    /// "status, user's online, offlineTemporally, tryLogout" as one line.
    std::string state() const {
        const auto user = client->currentUser();
        return std::to_string(client->status()) +
               (user ? user->online() ? " online" : " offline" : " nobody") +
               (client->offlineTemporally() ? " offlineTemporally" : "") +
               (client->tryLogout() ? " tryLogout" : "") + (client->socketio() ? "" : " no socket");
    }
    /// What was emitted since the last call, as "event items".
    Lines takeEmitted() {
        Lines lines;
        for (const auto& [event, items] : std::exchange(socket().emitted, {}))
            lines.push_back(event + " " + json(items));
        return lines;
    }

    RecordingService service;
    std::vector<std::shared_ptr<FakeSocket>> sockets;
    std::shared_ptr<Journal> journal = Journal::make();
    std::shared_ptr<VXIMClient> client;
};

class Messages : public ClientTest {};
class Session : public ClientTest {};

}  // namespace vexim::testing
