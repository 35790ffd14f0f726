#pragma once

#include <memory>
#include <string>

#include "Account.h"
#include "VexIMLib/VXIMClientDelegate.h"

class VXIMMessage;

/// A delegate that waits until a message comes back. The service sends a user's own messages back,
/// and only then do we know that they were delivered. They have no id, so the first own message
/// with the same content in the same conversation counts.
class Echo : public VXIMClientDelegate {
public:
    Echo(std::shared_ptr<VXIMMessage> message, Peer peer)
        : message_(std::move(message)),
          peer_(std::move(peer)) {}

    /// The connection has accepted the message. From now on an arriving message may be its echo,
    /// and if the connection breaks, the message may be lost.
    void expect() noexcept { isExpected_ = true; }
    bool hasCome() const noexcept { return hasCome_; }
    bool isLost() const noexcept { return isLost_; }

    void clientDidDisconnect(const std::shared_ptr<VXIMClient>& client) override;
    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>& client,
                                           const std::shared_ptr<VXIMMessage>& message,
                                           const std::shared_ptr<VXIMFriendInfo>& from) override;
    void clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>& client,
                                          const std::shared_ptr<VXIMMessage>& message,
                                          const std::shared_ptr<VXIMGroup>& from) override;
    void clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>& client,
                                         const std::shared_ptr<VXIMMessage>& message,
                                         const std::shared_ptr<VXIMRoom>& from) override;

private:
    void compare(const VXIMClient& client, VXIMMessage& heard,
                 const std::optional<std::string>& wanted, const std::string& place);

    const std::shared_ptr<VXIMMessage> message_;
    const Peer peer_;
    bool isExpected_ = false;
    bool hasCome_ = false;
    bool isLost_ = false;
};
