#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMCompletions.h"
#include "VexIMLib/VXIMDiagnosis.h"
#include "VexIMLib/VXIMTransfer.h"

class VXIMClientConfiguration;
class VXIMClientDelegate;
class VXIMFriendInfo;
class VXIMMessage;
class VXIMUser;

namespace vexim {
class SocketIOClient;
}

/// Where a client's session stands. docs/guide/login.md draws the ways between them.
enum VXIMClientStatus : std::int32_t {
    /// no login yet
    VXIMClientStatusNone = 0,
    /// a login has started the connection, or the service has refused it
    VXIMClientStatusOpening = 1,
    /// logged in, or connected again after a pause or a drop
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

/// One user's connection to the service: the way into the library.
///
///     auto client = VXIMClient::clientWithAppId("app", "key", "installation");
///     client->setDelegate(delegate);
///     client->loginWithUserId("u1", [](bool succeeded, vexim::ErrorPtr error) { … });
///     vexim::MainQueue::shared().run();
///
/// Completions, delegate calls and notifications arrive on the main queue. The operations may be
/// called from any thread and do their work there too; `status`, `socketio` and `currentUser` may
/// be read from any thread. Handlers of the connection do not keep the client alive; a running send
/// or logout does.
///
/// Besides the delegate, the default notification centre hears `VXIMUserDidLoginNotification`,
/// `VXIMClientDidReceiveMessageNotification`, `VXIMClientDidReceiveSystemMessageNotification`,
/// `VXIMFriendOnlineNotification`, `VXIMFriendOfflineNotification`, and
/// `VXIMClientConnectionErrorNotification` with the connection's troubles. The sender is the
/// client.
class VEXIM_EXPORT VXIMClient final : public vexim::Object {
public:
    explicit VXIMClient(vexim::Creation);
    ~VXIMClient() override;

    /// A client with the default configuration and these credentials; nullopt leaves one unset.
    static std::shared_ptr<VXIMClient> clientWithAppId(std::optional<std::string> appId,
                                                       std::optional<std::string> clientKey,
                                                       std::optional<std::string> installationId);
    // A client with this configuration, which also becomes `vxim_configuration`: the last client
    // made decides which credentials and which service all REST requests use. nullptr raises.
    static std::shared_ptr<VXIMClient> clientWithConfiguration(
        std::shared_ptr<VXIMClientConfiguration> configuration);
    static std::shared_ptr<VXIMClient> initWithConfiguration(
        std::shared_ptr<VXIMClientConfiguration> configuration);

    /// With the default configuration.
    static std::shared_ptr<VXIMClient> init();

    /// Where the session stands, now.
    VXIMClientStatus status() const noexcept;
    /// What has lately happened to this client, for a report of trouble, together with the REST
    /// requests of the process that failed; redacted. Callable from any thread.
    VXIMDiagnosis diagnose() const;
    /// Held weakly. Main thread only.
    std::shared_ptr<VXIMClientDelegate> delegate() const;
    void setDelegate(const std::shared_ptr<VXIMClientDelegate>& delegate);
    /// The user being logged in or logged in; nullptr before the first login and after a logout.
    std::shared_ptr<VXIMUser> currentUser() const;
    /// Never nullptr. What concerns the connection takes effect at the next login.
    std::shared_ptr<VXIMClientConfiguration> config() const;
    /// The live connection; nullptr before the first login and after a logout.
    std::shared_ptr<vexim::SocketIOClient> socketio() const;
    /// Whether the connection is, or has been since the last logout, down for another reason than a
    /// logout.
    bool offlineTemporally() const noexcept;
    /// Whether a logout waits for the connection to close.
    bool tryLogout() const noexcept;
    /// Clears these two flags.
    void resetFlags() noexcept;

    // For the application's use: the library fills neither. nullopt at first. Main thread only.
    const std::optional<vexim::Array>& onlineFriends() const noexcept;
    void setOnlineFriends(std::optional<vexim::Array> friends);
    const std::optional<vexim::Dictionary>& messages() const noexcept;
    void setMessages(std::optional<vexim::Dictionary> messages);

    // Login. Each opens a new connection (an existing one is dropped without a word) and asks the
    // service to accept the user. `completion` runs when the service answers, and never when it
    // does not: the status then stays at Opening. It is also dropped unanswered when another login
    // begins or the client is released. Failures are in `VXIMErrorDomain`, with the service's code
    // and its own "error" value as user information, which need not be a dictionary.
    //
    // When the connection itself fails, `VXIMClientConnectionErrorNotification` tells why, at once;
    // `completion` does not run. The async styles (`vexim::call`) then fail with that error, as
    // soon as the connection has failed and will not try again.
    //
    // The connection logs in again after each drop. Should the service refuse that, the status goes
    // back to Opening, as after a first login that was refused, and the delegate hears
    // `clientDidFailToLoginAgain`.
    //
    // A nil value (appId and clientKey of the configuration included) raises
    // NSInvalidArgumentException at once, and so do credentials that take more than 12 000 bytes in
    // the URL, where they travel: servers take no more.

    /// Needs the configuration's installationId, too.
    void loginWithUserId(std::optional<std::string> userId, VXIMBooleanCompletion completion);
    void loginWithUsername(std::optional<std::string> username, std::optional<std::string> password,
                           VXIMBooleanCompletion completion);
    void loginWithPhoneNumber(std::optional<std::string> phoneNumber,
                              std::optional<std::string> smsCode, VXIMBooleanCompletion completion);
    /// `oauth` is what an outside identity provider gave, as it stands.
    void loginWithThirdPartyOAuth(std::optional<vexim::Dictionary> oauth,
                                  VXIMBooleanCompletion completion);
    /// Sends `authData` as it stands. Raises when it is no JSON.
    void loginWithAuthData(vexim::Dictionary authData, VXIMBooleanCompletion completion);

    /// Removes the device's installation from the user, then closes the connection. When the
    /// removal fails, everything stays as it was. Without a connection `completion` never runs, and
    /// the status stays at Closing until the next login. A login that begins before the logout has
    /// ended drops the connection in its place and goes on: `completion` then hears how the removal
    /// went, and no delegate call follows. Of two logouts at once both are answered.
    void logoutWithCompletion(VXIMBooleanCompletion completion);
    /// Removes the configuration's installation from the current user; succeeds without a request
    /// when either id is missing. Errors, of the logout, too: `VXErrorDomain` with the service's
    /// code, or 100 when no usable answer came.
    void deleteCurrentInstallIdCompletion(VXIMBooleanCompletion completion);
    /// Closes the connection until `resume`; the status becomes Paused when it has closed. A second
    /// one changes nothing.
    void pause();
    /// Connects again with the credentials of the last login, at once where the next attempt is
    /// being waited for. The status is Resuming until the connection stands: without a login
    /// before, for good. Where it stands already, nothing changes.
    void resume();

    // Chat messages. `completion` runs once. Sent twice at once, a message goes to the receiver
    // named last, twice: send a copy.
    //
    // "Sent" means that the connection has taken the message: it is valid, not too long, and the
    // link stood. It does not mean that the service has it, as the link may break before, nor that
    // the receiver may or will get it. What the service has accepted it sends back to the sender;
    // `clientDidReceiveMessage…` then hears it.
    //
    // What the connection does not take gives (false, `VXIMErrorDomain` code 1), a sentence that
    // names the reason, and the status Failed: there is no receiver or no connection, a text is not
    // valid UTF-8, the message is longer than the server takes, or too much is still waiting to be
    // sent (then `vexim::isTemporary`). A failed upload of the attachment gives (true, nullptr),
    // while the message's status says failed and its `error` why; the async styles fail with that
    // error. A receiver of nil, or a sender or receiver without its id, raises
    // NSInvalidArgumentException at once.

    void sendMessageToFriend(std::shared_ptr<VXIMMessage> message, vexim::Value friendId,
                             VXIMBooleanCompletion completion);
    void sendMessageToGroup(std::shared_ptr<VXIMMessage> message, vexim::Value groupId,
                            VXIMBooleanCompletion completion);
    void sendMessageToRoom(std::shared_ptr<VXIMMessage> message, vexim::Value roomId,
                           VXIMBooleanCompletion completion);
    /// Sends to the receiver that the message holds.
    void sendMessage(std::shared_ptr<VXIMMessage> message, VXIMBooleanCompletion completion);
    /// `progress` hears the upload of the attachment. With a `transfer` the upload can be
    /// cancelled: `completion` then gets (false, "NSURLErrorDomain" -999).
    void sendMessage(std::shared_ptr<VXIMMessage> message, VXIMProgress progress,
                     VXIMBooleanCompletion completion,
                     std::shared_ptr<VXIMTransfer> transfer = nullptr);

    // System messages: posted to the service over REST, so no connection is needed. A failed upload
    // or post gives (false, error in `VXErrorDomain`: the service's code, or 100), a message that
    // is no JSON by then (false, `VXIMErrorDomain` code 1). A message whose receiver is of another
    // type is not sent and `completion` never runs; its status says failed.

    void sendSystemMessageToAllUsers(std::shared_ptr<VXIMMessage> message,
                                     VXIMBooleanCompletion completion);
    /// The message goes to a user only if its receiver had no kind yet.
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

    /// Gives the connection of each login.
    using SocketFactory = std::function<std::shared_ptr<vexim::SocketIOClient>(
        const std::optional<vexim::URL>& url, const vexim::Dictionary& options)>;
    /// For the factories.
    bool initialise(std::shared_ptr<VXIMClientConfiguration> configuration,
                    SocketFactory makeSocket);

private:
    struct Impl;
    std::shared_ptr<VXIMClient> self() { return sharedAs<VXIMClient>(); }

    // Steps of a session; main thread.
    void openConnection(const std::string& authText, VXIMBooleanCompletion completion,
                        std::function<void(const std::shared_ptr<vexim::Error>&)> tellWhyNot);
    void setupEventHandlers();
    void socketDidConnect();
    void socketDidDisconnect();
    void didReceiveLoginAnswer(const vexim::Value& answer);
    void loginDidCompleteWithSuccess(bool success, const std::shared_ptr<vexim::Error>& error);
    void didRemoveInstallation(const std::shared_ptr<vexim::SocketIOClient>& socket,
                               VXIMClientStatus remembered,
                               const std::shared_ptr<vexim::Error>& error,
                               const VXIMBooleanCompletion& completion);
    void didLogout();
    using PresenceCall = void (VXIMClientDelegate::*)(const std::shared_ptr<VXIMClient>&,
                                                      const std::shared_ptr<VXIMFriendInfo>&);
    void didReceivePresence(const char* notificationName, PresenceCall delegateCall,
                            const vexim::Value& friendId);
    void didReceivePeerMessage(const vexim::Value& payload);
    void didReceiveOwnMessage(const vexim::Value& payload);
    void didReceiveSystemMessage(const vexim::Value& payload);
    void didReceiveMessage(const std::shared_ptr<VXIMMessage>& message);

    /// Uploads first what is to be uploaded. `block` gets the wire form, or nullopt and the error.
    template <class Block>
    void uploadMessageAttachment(const std::shared_ptr<VXIMMessage>& message, VXIMProgress progress,
                                 Block block, std::shared_ptr<VXIMTransfer> transfer);

    /// nullptr when the connection has taken it.
    std::shared_ptr<vexim::Error> say(vexim::Dictionary payload);

    std::unique_ptr<Impl> impl_;
};
