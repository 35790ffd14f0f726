// Alice and Bob in one program: messages to a friend, a group and a room, and system messages.

#include <VexIMLib/VexIMLib.h>

#include <cstddef>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Waiting.h"

namespace {

// [inbox]
class Inbox final : public VXIMClientDelegate {
public:
    std::vector<std::string> lines;

    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>& client,
                                           const std::shared_ptr<VXIMMessage>& message,
                                           const std::shared_ptr<VXIMFriendInfo>& from) override {
        // The service also sends a user's own messages, so every device shows the whole
        // conversation.
        const bool mine =
            vexim::idsEqual(message->sender()->userId(), client->currentUser()->uid());
        lines.push_back((mine ? "me to " : "") + from->uid().description() + ": " +
                        message->text().value_or("(no text)"));
    }
    void clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>&,
                                          const std::shared_ptr<VXIMMessage>& message,
                                          const std::shared_ptr<VXIMGroup>& from) override {
        lines.push_back(message->sender()->userId().description() + " in " +
                        from->groupId().description() + ": " +
                        message->text().value_or("(no text)"));
    }
    void clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>&,
                                       const std::shared_ptr<VXIMMessage>& message) override {
        lines.push_back("system: " + message->text().value_or("(no text)"));
    }
    void clientFriendDidOnline(const std::shared_ptr<VXIMClient>&,
                               const std::shared_ptr<VXIMFriendInfo>& info) override {
        lines.push_back(info->uid().description() + " is there");
    }
};
// [/inbox]

bool sends(const std::shared_ptr<VXIMClient>& alice) {
    return succeeds([&](const VXIMBooleanCompletion& done) {
               // [send]
               alice->sendMessageToFriend(VXIMMessage::messageWithText("hello, bob"), "bob", done);
               // [/send]
           }) &&
           succeeds([&](const VXIMBooleanCompletion& done) {
               // [group]
               alice->sendMessageToGroup(VXIMMessage::messageWithText("hello, all"), "demo-group",
                                         done);
               // [/group]
           }) &&
           succeeds([&](const VXIMBooleanCompletion& done) {
               // [room]
               alice->sendMessageToRoom(VXIMMessage::messageWithText("who is here?"), "demo-room",
                                        done);
               // [/room]
           }) &&
           succeeds([&](const VXIMBooleanCompletion& done) {
               // [keys]
               auto message = VXIMMessage::messageWithText("as I said");
               message->payload().set("replyTo", "message-17");  // your own keys are sent as well
               alice->sendMessageToFriend(message, "bob", done);
               // [/keys]
           }) &&
           succeeds([&](const VXIMBooleanCompletion& done) {
               // [system]
               alice->sendSystemMessageToUser(VXIMMessage::messageWithText("maintenance at noon"),
                                              "bob", done);
               // [/system]
           });
}

std::size_t printHistory(const std::shared_ptr<VXIMClient>& client) {
    std::size_t count = 0;
    // [history]
    const double now = vexim::Date::now().timeIntervalSince1970() + 1;
    client->currentUser()->getLatestChatsWithFriend(
        "alice", now, 20, [&count](const auto& messages, vexim::ErrorPtr error) {
            if (error) return;
            for (const auto& message : *messages)
                std::cout << message->text().value_or("(no text)") << '\n';
            count = messages->size();
        });
    // [/history]
    becomesTrue([&] { return count > 0; });
    return count;
}

}  // namespace

int main(int, char** arguments) {
    const auto alice = demoClient(arguments[1]), bob = demoClient(arguments[1]);
    // [delegate]
    auto inbox = std::make_shared<Inbox>();
    bob->setDelegate(inbox);  // the client holds it weakly, so keep it
    // [/delegate]
    auto recent = std::make_shared<std::string>();
    // [notification]
    vexim::NotificationCenter::defaultCenter().addObserver(
        recent, VXIMClientDidReceiveMessageNotification, bob.get(),
        [recent = recent.get()](const vexim::Notification& received) {
            const auto message = received.userInfo->get("msg").as<VXIMMessage>();
            *recent = message->text().value_or("(no text)");
        });
    // [/notification]

    const bool talked =
        succeeds([&](auto done) { bob->loginWithUserId("bob", done); }) &&
        succeeds([&](auto done) { alice->loginWithUserId("alice", done); }) && sends(alice) &&
        becomesTrue([&] { return inbox->lines.size() >= 5 && *recent == "as I said"; });
    for (const auto& line : inbox->lines) std::cout << line << '\n';
    return talked && printHistory(bob) == 2 ? 0 : 1;
}
