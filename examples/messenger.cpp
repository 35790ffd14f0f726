// A messenger that loses nothing: text typed offline is sent later, even in the next run.
//   messenger URL USER FOLDER
//   /friend ID, /group ID, /room ID: where the next lines go     /list     /image FILE
#include <VexIMLib/Store/VXIMConversations.h>
#include <VexIMLib/VexIMLib.h>

#include <iostream>
#include <thread>

using vexim::MainQueue;

class Messenger {
    std::shared_ptr<VXIMConversations> conversations_;
    std::shared_ptr<VXIMStoreObservation> shown_;
    VXIMConversationId peer_;

public:
    // [open]
    Messenger(std::shared_ptr<VXIMClient> client, const std::string& user, const char* path) {
        conversations_ = VXIMConversations::conversationsWithClient(client, {path, user});
        conversations_->setCaughtUpHandler([](const VXIMCaughtUp& caughtUp) {
            std::cout << "-- while you were away: " << caughtUp.missedCount << std::endl;
        });
        conversations_->open([this](bool opened, const vexim::ErrorPtr& error) {
            if (opened) return read();
            std::cout << "-- no store: " << error->localizedDescription() << std::endl;
            MainQueue::shared().quit();
        });
        logIn(client, user);
    }

    /// Tries until the first login succeeds. After that the client reconnects by itself.
    static void logIn(const std::shared_ptr<VXIMClient>& client, const std::string& user) {
        if (client->status() <= VXIMClientStatusOpening) client->loginWithUserId(user, nullptr);
        MainQueue::shared().after(std::chrono::seconds(5), [client, user] { logIn(client, user); });
    }
    // [/open]
    // [observe]
    void talkTo(VXIMConversationId peer) {
        peer_ = std::move(peer);
        shown_ = conversations_->store()->observeMessages(
            peer_, 20, [this](const VXIMListChange<VXIMStoredMessage>& change) {
                for (const auto position : change.inserted) show(change.list[position]);
                for (const auto position : change.changed) show(change.list[position]);
                conversations_->store()->markRead(peer_, std::nullopt, nullptr);
            });
    }

    static void show(const VXIMStoredMessage& message) {
        const bool isOwn = message.direction == VXIMStoredMessageOutgoing;
        const bool isText = message.mediaType == VXIMMessageMediaTypeText;
        std::cout << (isOwn ? VXIMStoredMessageStateName(message.state) : message.sender) << ": "
                  << (isText ? message.text() : "(a file)") << std::endl;
    }

    void list() {
        conversations_->store()->conversations([](const auto& found, const vexim::ErrorPtr&) {
            for (const auto& each : found.value_or(std::vector<VXIMConversation>()))
                std::cout << "   " << each.id.id << ", unread: " << each.unreadCount << std::endl;
        });
    }
    // [/observe]
    void didType(const std::string& line) {
        const std::string rest = line.substr(std::min(line.find(' ') + 1, line.size()));
        if (line.starts_with("/friend ")) return talkTo({VXIMConversationKindFriend, rest});
        if (line.starts_with("/group ")) return talkTo({VXIMConversationKindGroup, rest});
        if (line.starts_with("/room ")) return talkTo({VXIMConversationKindRoom, rest});
        if (line == "/list") return list();
        if (line.starts_with("/image ")) return send(VXIMMessage::messageWithImageFileAtPath(rest));
        if (!line.empty()) send(VXIMMessage::messageWithText(line));
    }

    // [send]
    void send(const std::shared_ptr<VXIMMessage>& message) {
        conversations_->send(
            message, peer_, nullptr, [](const auto&, const vexim::ErrorPtr& error) {
                if (error)
                    std::cout << "-- not queued: " << error->localizedDescription() << std::endl;
            });
    }
    // [/send]
    void read() {
        talkTo({VXIMConversationKindFriend, "bob"});
        std::thread([this] {
            for (std::string line; std::getline(std::cin, line);)
                MainQueue::shared().async([this, line] { didType(line); });
            MainQueue::shared().async([this] {
                conversations_->store()->close([](auto...) { MainQueue::shared().quit(); });
            });
        }).detach();
    }
};

int main(int count, char** arguments) {
    if (count != 4) return 2;
    auto client = VXIMClient::clientWithAppId("demo-app", "demo-key", "messenger");
    client->config()->setSocketURL(vexim::URL::parse(arguments[1]));
    const Messenger messenger(client, arguments[2], arguments[3]);
    MainQueue::shared().run();
}
