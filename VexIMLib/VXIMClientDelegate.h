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

/// Receives a client's events. Override what you need. Every call arrives on the main queue, and
/// the arguments are never nullptr unless a function says so. The client holds its delegate weakly,
/// so keep it alive yourself.
///
///     class Printer : public VXIMClientDelegate {
///         void clientDidReceiveMessageFromFriend(
///             const std::shared_ptr<VXIMClient>&, const std::shared_ptr<VXIMMessage>& message,
///             const std::shared_ptr<VXIMFriendInfo>&) override {
///             std::cout << message->text().value_or("") << '\n';
///         }
///     };
class VEXIM_EXPORT VXIMClientDelegate {
public:
    virtual ~VXIMClientDelegate();

    /// The service accepted the login: the first one, or one after a reconnect.
    virtual void clientDidLogin(const std::shared_ptr<VXIMClient>& client);
    /// After a reconnect or a pause, the service refused to log the user in again. The connection
    /// is open, but no messages arrive. Log in again, after fixing what the error reports. The
    /// error is in `VXIMErrorDomain`, with the service's code.
    virtual void clientDidFailToLoginAgain(const std::shared_ptr<VXIMClient>& client,
                                           const std::shared_ptr<vexim::Error>& error);
    /// The logout is complete. `clientDidDisconnect` follows.
    virtual void clientDidLogout(const std::shared_ptr<VXIMClient>& client);
    /// The client is about to try to reconnect. Called before each attempt. Attempts continue until
    /// one succeeds or the configuration's `reconnectAttempts` is reached.
    virtual void clientAttemptReconnect(const std::shared_ptr<VXIMClient>& client);
    /// The connection has closed, after a pause, a logout or a loss. Also called when the client
    /// gives up reconnecting.
    virtual void clientDidDisconnect(const std::shared_ptr<VXIMClient>& client);

    // In the functions below, `from` knows its id only. Fetch what else you need.
    /// A message between the current user and a friend. `from` is always the friend, even if the
    /// current user sent the message, from this device or another one.
    virtual void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>& client,
                                                   const std::shared_ptr<VXIMMessage>& message,
                                                   const std::shared_ptr<VXIMFriendInfo>& from);
    /// A message to a group that the current user is in, the user's own messages included.
    virtual void clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>& client,
                                                  const std::shared_ptr<VXIMMessage>& message,
                                                  const std::shared_ptr<VXIMGroup>& from);
    /// A message to a room that the current user is in, the user's own messages included.
    virtual void clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>& client,
                                                 const std::shared_ptr<VXIMMessage>& message,
                                                 const std::shared_ptr<VXIMRoom>& from);

    /// A message from the operators of the service. Its receiver has the type Unknown.
    virtual void clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>& client,
                                               const std::shared_ptr<VXIMMessage>& message);

    // A friend has come online (with a first connection) or gone offline (with the last one).
    // `info` knows its id only, so its `online` is false in both functions. The infos in
    // `VXIMUser::friends` are up to date by then.
    virtual void clientFriendDidOnline(const std::shared_ptr<VXIMClient>& client,
                                       const std::shared_ptr<VXIMFriendInfo>& info);
    virtual void clientFriendDidOffline(const std::shared_ptr<VXIMClient>& client,
                                        const std::shared_ptr<VXIMFriendInfo>& info);
};
