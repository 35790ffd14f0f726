#include "Echo.h"

#include "VexIMLib/VexIMLib.h"

namespace {

bool isSameContent(VXIMMessage& one, VXIMMessage& other) {
    if (one.mediaType() != other.mediaType()) return false;
    if (VXIMMessageMediaTypeIsAttachment(one.mediaType()))
        return one.attachmentUrl() == other.attachmentUrl();
    return one.text() == other.text();
}

}  // namespace

void Echo::compare(const VXIMClient& client, VXIMMessage& heard,
                   const std::optional<std::string>& wanted, const std::string& place) {
    if (!isExpected_ || wanted != place) return;
    const auto user = client.currentUser();
    const bool isOwn = user && heard.sender()->userId().description() == user->uid().description();
    hasCome_ = hasCome_ || (isOwn && isSameContent(heard, *message_));
}

void Echo::clientDidDisconnect(const std::shared_ptr<VXIMClient>&) {
    isLost_ = isLost_ || isExpected_;
}

void Echo::clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>& client,
                                             const std::shared_ptr<VXIMMessage>& message,
                                             const std::shared_ptr<VXIMFriendInfo>& from) {
    compare(*client, *message, peer_.friendId, from->uid().description());
}

void Echo::clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>& client,
                                            const std::shared_ptr<VXIMMessage>& message,
                                            const std::shared_ptr<VXIMGroup>& from) {
    compare(*client, *message, peer_.groupId, from->groupId().description());
}

void Echo::clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>& client,
                                           const std::shared_ptr<VXIMMessage>& message,
                                           const std::shared_ptr<VXIMRoom>& from) {
    compare(*client, *message, peer_.roomId, from->roomId().description());
}
