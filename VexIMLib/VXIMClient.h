#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMCompletions.h"
#include "VexIMLib/VXIMDiagnosis.h"
#include "VexIMLib/VXIMTransfer.h"

class VXIMClientConfiguration;
class VXIMClientDelegate;
class VXIMMessage;
class VXIMUser;

namespace vexim {
class SocketIOClient;
}

/// The state of a client's session. docs/guide/login.md shows the transitions.
enum VXIMClientStatus : std::int32_t {
    /// no login yet
    VXIMClientStatusNone = 0,
    /// a login has started the connection, or the service has refused the login
    VXIMClientStatusOpening = 1,
    /// logged in, or connected again after a pause or a lost connection
    VXIMClientStatusOpened = 2,
    /// the connection closed without a logout
    VXIMClientStatusPaused = 3,
    /// `resume` was called, or a reconnect is being attempted
    VXIMClientStatusResuming = 4,
    /// a logout has started
    VXIMClientStatusClosing = 5,
    /// logged out
    VXIMClientStatusClosed = 6,
};

/// One user's connection to the service. Start here.
///
///     auto client = VXIMClient::clientWithAppId("app", "key", "installation");
///     client->setDelegate(delegate);
///     client->loginWithUserId("u1", [](bool succeeded, vexim::ErrorPtr error) { … });
///     vexim::MainQueue::shared().run();
///
/// Completions, delegate calls and notifications arrive on the main queue. The operations may be
/// called from any thread. `status`, `socketio` and `currentUser` may be read from any thread. A
/// running send or logout keeps the client alive; an open connection does not.
///
/// Besides calling the delegate, the client posts these notifications to the default notification
/// centre, with itself as the sender: `VXIMUserDidLoginNotification`,
/// `VXIMClientDidReceiveMessageNotification`, `VXIMClientDidReceiveSystemMessageNotification`,
/// `VXIMFriendOnlineNotification`, `VXIMFriendOfflineNotification`, and
/// `VXIMClientConnectionErrorNotification` when something is wrong with the connection.
class VEXIM_EXPORT VXIMClient final : public vexim::Object {
public:
    explicit VXIMClient(vexim::Creation);
    ~VXIMClient() override;

    /// Makes a client with the default configuration and these credentials. nullopt leaves one
    /// unset.
    static std::shared_ptr<VXIMClient> clientWithAppId(std::optional<std::string> appId,
                                                       std::optional<std::string> clientKey,
                                                       std::optional<std::string> installationId);
    // Makes a client with this configuration, which also becomes `vxim_configuration`. So all REST
    // requests use the credentials and the service of the client that was made last. nullptr raises
    // NSInvalidArgumentException.
    static std::shared_ptr<VXIMClient> clientWithConfiguration(
        std::shared_ptr<VXIMClientConfiguration> configuration);
    static std::shared_ptr<VXIMClient> initWithConfiguration(
        std::shared_ptr<VXIMClientConfiguration> configuration);

    /// Makes a client with the default configuration.
    static std::shared_ptr<VXIMClient> init();

    /// The current state of the session.
    VXIMClientStatus status() const noexcept;
    /// What has happened to this client lately, for a bug report, and which REST requests of the
    /// process have failed. It holds no secrets. Call from any thread.
    VXIMDiagnosis diagnose() const;
    /// The delegate, held weakly; nullptr for none. Main thread only.
    std::shared_ptr<VXIMClientDelegate> delegate() const;
    void setDelegate(const std::shared_ptr<VXIMClientDelegate>& delegate);
    /// The user who is logged in or logging in. nullptr before the first login and after a logout.
    std::shared_ptr<VXIMUser> currentUser() const;
    /// The configuration, never nullptr. Changes to connection options take effect at the next
    /// login.
    std::shared_ptr<VXIMClientConfiguration> config() const;
    /// The live connection. nullptr before the first login and after a logout.
    std::shared_ptr<vexim::SocketIOClient> socketio() const;
    /// Whether the connection has been down since the last logout, even if it is up again by now.
    bool offlineTemporally() const noexcept;
    /// Whether a logout is waiting for the connection to close.
    bool tryLogout() const noexcept;
    /// Clears these two flags.
    void resetFlags() noexcept;

    // For the application's own use; the library does not fill them. nullopt at first. Main thread
    // only.
    const std::optional<vexim::Array>& onlineFriends() const noexcept;
    void setOnlineFriends(std::optional<vexim::Array> friends);
    const std::optional<vexim::Dictionary>& messages() const noexcept;
    void setMessages(std::optional<vexim::Dictionary> messages);

    // Login. Each login opens a new connection and asks the service to accept the user. An existing
    // connection is dropped without any delegate call. `completion` runs on the main queue when the
    // service answers. If the service never answers, it never runs, and the status stays Opening.
    // It does not run either if another login begins or the client is released first. A refused
    // login gives an error in `VXIMErrorDomain` with the service's code. Its user information is
    // the service's "error" value, which need not be a dictionary.
    //
    // If the connection itself fails, `VXIMClientConnectionErrorNotification` gives the reason at
    // once, and `completion` does not run. The async styles (`vexim::call`) fail with that error,
    // as soon as no further attempt will follow.
    //
    // After each reconnect the client logs in again. If the service refuses that login, the status
    // goes back to Opening, as after a refused first login, and the delegate gets
    // `clientDidFailToLoginAgain`.
    //
    // A nil value raises NSInvalidArgumentException at once. That includes the configuration's
    // appId and clientKey. So do credentials of more than 12 000 bytes: they travel in the URL, and
    // servers accept no longer URLs.

    /// Also needs the configuration's installationId; nil raises NSInvalidArgumentException.
    void loginWithUserId(std::optional<std::string> userId, VXIMBooleanCompletion completion);
    void loginWithUsername(std::optional<std::string> username, std::optional<std::string> password,
                           VXIMBooleanCompletion completion);
    void loginWithPhoneNumber(std::optional<std::string> phoneNumber,
                              std::optional<std::string> smsCode, VXIMBooleanCompletion completion);
    /// `oauth` is what an outside identity provider returned; it is passed on unchanged.
    void loginWithThirdPartyOAuth(std::optional<vexim::Dictionary> oauth,
                                  VXIMBooleanCompletion completion);
    /// Sends `authData` unchanged. Raises NSInvalidArgumentException if it cannot be written as
    /// JSON.
    void loginWithAuthData(vexim::Dictionary authData, VXIMBooleanCompletion completion);

    /// Removes the device's installation from the user, then closes the connection. If the removal
    /// fails, nothing changes, and `completion` gets the error. Without a connection `completion`
    /// never runs, and the status stays Closing until the next login. If a login begins before the
    /// logout has ended, that login drops the connection: `completion` then gets the result of the
    /// removal, and no delegate call follows. If two logouts run at once, both completions run.
    void logoutWithCompletion(VXIMBooleanCompletion completion);
    /// Removes the configuration's installation from the current user. Succeeds without a request
    /// if either id is missing. Errors (also those of a logout): `VXErrorDomain` with the service's
    /// code, or with 100 if no usable answer came.
    void deleteCurrentInstallIdCompletion(VXIMBooleanCompletion completion);
    /// Closes the connection until `resume`. The status becomes Paused once it has closed. A second
    /// call does nothing.
    void pause();
    /// Connects again with the credentials of the last login. If a reconnect attempt is scheduled,
    /// it starts now. The status is Resuming until the connection is up; if there was no login
    /// before, it stays Resuming. Does nothing if the connection is up.
    void resume();

    // Chat messages. `completion` runs once, on the main queue. Do not send one message object
    // twice at the same time: both sends go to the receiver set last. Send a copy instead.
    //
    // "Sent" means that the connection has accepted the message: it is valid, not too long, and the
    // link was up. It does not mean that the service has it (the link may break first), nor that
    // the receiver will get it. The service sends each message it accepts back to the sender, who
    // then gets `clientDidReceiveMessage…`.
    //
    // If the connection does not accept a message, `completion` gets false and `VXIMErrorDomain`
    // code 1 (`VXIMErrorCannotSend`), whose description gives the reason, and the message's status
    // is Failed. Reasons: there is no receiver or no connection, a text is not valid UTF-8, the
    // message is longer than the server accepts, or the send queue is full (this one is
    // `vexim::isTemporary`). If the upload of the attachment fails, `completion` gets (true,
    // nullptr), but the message's status is Failed and its `error` gives the reason. The async
    // styles fail with that error. A nil receiver, or a sender or receiver without its id, raises
    // NSInvalidArgumentException at once.

    void sendMessageToFriend(std::shared_ptr<VXIMMessage> message, vexim::Value friendId,
                             VXIMBooleanCompletion completion);
    void sendMessageToGroup(std::shared_ptr<VXIMMessage> message, vexim::Value groupId,
                            VXIMBooleanCompletion completion);
    void sendMessageToRoom(std::shared_ptr<VXIMMessage> message, vexim::Value roomId,
                           VXIMBooleanCompletion completion);
    /// Sends to the receiver that is set in the message.
    void sendMessage(std::shared_ptr<VXIMMessage> message, VXIMBooleanCompletion completion);
    /// `progress` reports the upload of the attachment. With a `transfer` the upload can be
    /// cancelled; `completion` then gets false and "NSURLErrorDomain" -999.
    void sendMessage(std::shared_ptr<VXIMMessage> message, VXIMProgress progress,
                     VXIMBooleanCompletion completion,
                     std::shared_ptr<VXIMTransfer> transfer = nullptr);

    // System messages are posted to the service over REST, so they need no connection. `completion`
    // runs on the main queue. If the upload or the post fails, it gets false and an error in
    // `VXErrorDomain`: the service's code, or 100. If the message cannot be written as JSON, it
    // gets false and `VXIMErrorDomain` code 1. A message with a receiver of another type is not
    // sent, and `completion` never runs; the message's status is Failed.

    void sendSystemMessageToAllUsers(std::shared_ptr<VXIMMessage> message,
                                     VXIMBooleanCompletion completion);
    /// Works only if the receiver's type is not set yet: a type that is set is kept.
    void sendSystemMessageToUser(std::shared_ptr<VXIMMessage> message, vexim::Value userId,
                                 VXIMBooleanCompletion completion);
    void sendSystemMessageToGroup(std::shared_ptr<VXIMMessage> message, vexim::Value groupId,
                                  VXIMBooleanCompletion completion);
    void sendSystemMessageToRoom(std::shared_ptr<VXIMMessage> message, vexim::Value roomId,
                                 VXIMBooleanCompletion completion);
    void sendSystemMessage(std::shared_ptr<VXIMMessage> message, VXIMProgress progress,
                           VXIMBooleanCompletion completion,
                           std::shared_ptr<VXIMTransfer> transfer = nullptr);

    const vexim::Class& runtimeClass() const override;

    struct Impl;  // not for applications

private:
    std::shared_ptr<VXIMClient> self() { return sharedAs<VXIMClient>(); }

    std::unique_ptr<Impl> impl_;
};
