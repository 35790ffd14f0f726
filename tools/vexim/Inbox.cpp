#include "Inbox.h"

#include "Explain.h"
#include "VexIMLib/VexIMLib.h"

namespace {

/// A text as it is, another medium by its kind and where it lies.
std::string contents(VXIMMessage& message) {
    switch (message.mediaType()) {
        case VXIMMessageMediaTypeText: return message.text().value_or("");
        case VXIMMessageMediaTypeImage: return "[image] " + message.attachmentUrl().value_or("");
        case VXIMMessageMediaTypeAudio: return "[audio] " + message.attachmentUrl().value_or("");
        case VXIMMessageMediaTypeVideo: return "[video] " + message.attachmentUrl().value_or("");
    }
    return "[media " + std::to_string(message.mediaType()) + "]";
}

}  // namespace

std::string Inbox::text() const {
    std::string all;
    for (const auto& line : lines_) all += (all.empty() ? "" : " | ") + line;
    return all.empty() ? "nothing" : all;
}

void Inbox::wrote(const std::string&) {}

void Inbox::write(std::string line) {
    lines_.push_back(std::move(line));
    wrote(lines_.back());
}

std::string Inbox::lineOf(const std::string& conversation, VXIMMessage& message) {
    return conversation + ", " + message.sender()->userId().description() + ": " +
           contents(message);
}

void Inbox::clientDidLogin(const std::shared_ptr<VXIMClient>&) { write("login"); }
void Inbox::clientDidFailToLoginAgain(const std::shared_ptr<VXIMClient>&,
                                      const vexim::ErrorPtr& error) {
    write("login refused: " + explain(error));
}
void Inbox::clientDidLogout(const std::shared_ptr<VXIMClient>&) { write("logout"); }
void Inbox::clientAttemptReconnect(const std::shared_ptr<VXIMClient>&) { write("reconnecting"); }
void Inbox::clientDidDisconnect(const std::shared_ptr<VXIMClient>&) { write("disconnect"); }

void Inbox::clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&,
                                              const std::shared_ptr<VXIMMessage>& message,
                                              const std::shared_ptr<VXIMFriendInfo>& from) {
    write(lineOf("friend " + from->uid().description(), *message));
}

void Inbox::clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>&,
                                             const std::shared_ptr<VXIMMessage>& message,
                                             const std::shared_ptr<VXIMGroup>& from) {
    write(lineOf("group " + from->groupId().description(), *message));
}

void Inbox::clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>&,
                                            const std::shared_ptr<VXIMMessage>& message,
                                            const std::shared_ptr<VXIMRoom>& from) {
    write(lineOf("room " + from->roomId().description(), *message));
}

void Inbox::clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>&,
                                          const std::shared_ptr<VXIMMessage>& message) {
    write("system: " + contents(*message));
}

void Inbox::clientFriendDidOnline(const std::shared_ptr<VXIMClient>&,
                                  const std::shared_ptr<VXIMFriendInfo>& info) {
    write("online " + info->uid().description());
}

void Inbox::clientFriendDidOffline(const std::shared_ptr<VXIMClient>&,
                                   const std::shared_ptr<VXIMFriendInfo>& info) {
    write("offline " + info->uid().description());
}
