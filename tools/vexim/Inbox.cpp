#include "Inbox.h"

#include "Attachment.h"
#include "Explain.h"
#include "VexIMLib/VexIMLib.h"

std::string Inbox::text() const {
    std::string all;
    for (const auto& line : lines_) all += (all.empty() ? "" : " | ") + line;
    return all.empty() ? "nothing" : all;
}

void Inbox::wrote(const std::string&, const vexim::Dictionary&) {}

void Inbox::write(std::string line, vexim::Dictionary event) {
    lines_.push_back(std::move(line));
    wrote(lines_.back(), event);
}

void Inbox::writeMessage(const std::string& kind, const vexim::Value& id, VXIMMessage& message) {
    write(lineOf(kind + " " + id.description(), message),
          {{"event", "message"}, {"kind", kind}, {"id", id}, {"message", message.payload()}});
}

std::string Inbox::lineOf(const std::string& conversation, VXIMMessage& message) {
    return conversation + ", " + message.sender()->userId().description() + ": " +
           contentsOf(message);
}

void Inbox::clientDidLogin(const std::shared_ptr<VXIMClient>&) {
    write("login", {{"event", "login"}});
}
void Inbox::clientDidFailToLoginAgain(const std::shared_ptr<VXIMClient>&,
                                      const vexim::ErrorPtr& error) {
    write("login refused: " + explain(error),
          {{"event", "login refused"}, {"reason", explain(error)}});
}
void Inbox::clientDidLogout(const std::shared_ptr<VXIMClient>&) {
    write("logout", {{"event", "logout"}});
}
void Inbox::clientAttemptReconnect(const std::shared_ptr<VXIMClient>&) {
    write("reconnecting", {{"event", "reconnecting"}});
}
void Inbox::clientDidDisconnect(const std::shared_ptr<VXIMClient>&) {
    write("disconnect", {{"event", "disconnect"}});
}

void Inbox::clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&,
                                              const std::shared_ptr<VXIMMessage>& message,
                                              const std::shared_ptr<VXIMFriendInfo>& from) {
    writeMessage("friend", from->uid(), *message);
}

void Inbox::clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>&,
                                             const std::shared_ptr<VXIMMessage>& message,
                                             const std::shared_ptr<VXIMGroup>& from) {
    writeMessage("group", from->groupId(), *message);
}

void Inbox::clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>&,
                                            const std::shared_ptr<VXIMMessage>& message,
                                            const std::shared_ptr<VXIMRoom>& from) {
    writeMessage("room", from->roomId(), *message);
}

void Inbox::clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>&,
                                          const std::shared_ptr<VXIMMessage>& message) {
    write("system: " + contentsOf(*message),
          {{"event", "message"}, {"kind", "system"}, {"message", message->payload()}});
}

void Inbox::clientFriendDidOnline(const std::shared_ptr<VXIMClient>&,
                                  const std::shared_ptr<VXIMFriendInfo>& info) {
    write("online " + info->uid().description(), {{"event", "online"}, {"id", info->uid()}});
}

void Inbox::clientFriendDidOffline(const std::shared_ptr<VXIMClient>&,
                                   const std::shared_ptr<VXIMFriendInfo>& info) {
    write("offline " + info->uid().description(), {{"event", "offline"}, {"id", info->uid()}});
}
