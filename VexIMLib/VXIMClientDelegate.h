#pragma once

#include <memory>

#include "VexIMLib/Foundation/Export.h"

class VXIMClient;
class VXIMFriendInfo;
class VXIMGroup;
class VXIMMessage;
class VXIMRoom;

namespace vexim {
class Error;
}

/// Hears what happens to a client. Override what matters; everything runs on the main queue.
class VEXIM_EXPORT VXIMClientDelegate {
public:
    virtual ~VXIMClientDelegate();

    /// The service accepted the login, also after a reconnect for which it asked again.
    virtual void clientDidLogin(const std::shared_ptr<VXIMClient>& client);
    /// The service refused the login with which the connection came back after a drop or a pause.
    /// The connection stands, but nothing arrives: log in anew, with what the error asks for. It is
    /// in `VXIMErrorDomain` with the service's code.
    virtual void clientDidFailToLoginAgain(const std::shared_ptr<VXIMClient>& client,
                                           const std::shared_ptr<vexim::Error>& error);
    /// A logout has ended. Followed by `clientDidDisconnect`.
    virtual void clientDidLogout(const std::shared_ptr<VXIMClient>& client);
    /// Before each attempt to connect again after a drop.
    virtual void clientAttemptReconnect(const std::shared_ptr<VXIMClient>& client);
    /// The connection closed: after a pause, a drop or a logout; or no attempt to reconnect follows
    /// any more.
    virtual void clientDidDisconnect(const std::shared_ptr<VXIMClient>& client);

    // The sender's side is built from the id alone: fetch what else you need.
    /// A message between the current user and a friend; `from` is always the other one, also when
    /// the message is the user's own, sent from this or another device.
    virtual void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>& client,
                                                   const std::shared_ptr<VXIMMessage>& message,
                                                   const std::shared_ptr<VXIMFriendInfo>& from);
    virtual void clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>& client,
                                                  const std::shared_ptr<VXIMMessage>& message,
                                                  const std::shared_ptr<VXIMGroup>& from);
    virtual void clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>& client,
                                                 const std::shared_ptr<VXIMMessage>& message,
                                                 const std::shared_ptr<VXIMRoom>& from);

    /// A message from the service's operators; its receiver is of unknown type.
    virtual void clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>& client,
                                               const std::shared_ptr<VXIMMessage>& message);

    // A friend's first connection has come, or the last one has gone. `info` is built from the id
    // alone after the event: its `online` says false in both.
    virtual void clientFriendDidOnline(const std::shared_ptr<VXIMClient>& client,
                                       const std::shared_ptr<VXIMFriendInfo>& info);
    virtual void clientFriendDidOffline(const std::shared_ptr<VXIMClient>& client,
                                        const std::shared_ptr<VXIMFriendInfo>& info);
};
