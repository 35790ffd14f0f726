#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/FailureListener.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/SocketIOClient.h"
#include "VexIMLib/VXIMClient.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/VXIMClientDelegate.h"
#include "VexIMLib/VXIMUser.h"
#include "VexIMLib/internal/Configuration/Meter.h"
#include "VexIMLib/internal/Foundation/Threads/SharedSlot.h"
#include "VexIMLib/internal/Platform/Facts/EventRecord.h"

struct VXIMClient::Impl {
    /// Makes the connection for each login.
    using SocketFactory = std::function<std::shared_ptr<vexim::SocketIOClient>(
        const std::optional<vexim::URL>& url, const vexim::Dictionary& options)>;
    /// A client whose connections come from `makeSocket`; an empty one makes real ones.
    static std::shared_ptr<VXIMClient> make(std::shared_ptr<VXIMClientConfiguration> configuration,
                                            SocketFactory makeSocket);

    // Constant after construction.
    std::weak_ptr<VXIMClient> owner;
    std::shared_ptr<VXIMClientConfiguration> config;
    SocketFactory makeSocket;

    // Any thread.
    const std::shared_ptr<vexim::EventRecord> record = std::make_shared<vexim::EventRecord>();
    std::atomic<VXIMClientStatus> status{VXIMClientStatusNone};
    // set on the main thread, and by a login on its caller's thread
    vexim::detail::SharedSlot<VXIMUser> currentUser;
    vexim::detail::SharedSlot<vexim::SocketIOClient> socketio;
    /// The connection has been down since the last logout. It may be up again.
    std::atomic<bool> offlineTemporally{false};
    /// A logout has removed the installation and is waiting for the connection to close.
    std::atomic<bool> tryLogout{false};

    // Main thread.
    std::weak_ptr<VXIMClientDelegate> delegate;
    std::shared_ptr<vexim::Meter> meter;  // the last login's; nullptr: nothing is counted
    // of the pending login; dropped when another login begins
    VXIMBooleanCompletion openCompletionBlock;
    // tells the async styles why the login cannot be answered; called at most once
    vexim::FailureListener::Tell tellWhyNotOpened;
    // the service has not answered this connection's first login yet
    bool isLoginPending = false;
    /// of the pending logouts; never called if no connection closes
    std::vector<VXIMBooleanCompletion> closeCompletionBlocks;
    // this client, while a logout waits for its connection to close
    std::shared_ptr<VXIMClient> keptUntilClosed;
    bool pauseAsked = false;  // `pause` was called, and neither `resume` nor a login since
    std::optional<vexim::Array> onlineFriends;
    std::optional<vexim::Dictionary> messages;

    /// The client. It lives while one of its functions runs.
    std::shared_ptr<VXIMClient> self() const { return owner.lock(); }
    void enter(VXIMClientStatus next);
    template <class Label>
    void count(vexim::Metric metric, Label label) const {
        if (meter) meter->add(metric, label);
    }

    // Steps of a session; main thread.
    void openConnection(const std::string& authText, VXIMBooleanCompletion completion,
                        vexim::FailureListener::Tell tellWhyNot);
    void setupEventHandlers(vexim::SocketIOClient& socket);
    void socketDidConnect();
    void socketDidDisconnect();
    void didReceiveLoginAnswer(const vexim::Value& answer);
    void loginDidCompleteWithSuccess(bool success, const vexim::ErrorPtr& error);
    /// The connection ended before the login was answered, and no reconnect will follow.
    void loginCannotBeAnswered(const vexim::ErrorPtr& cause);
    void didRemoveInstallation(const std::shared_ptr<vexim::SocketIOClient>& socket,
                               VXIMClientStatus remembered, const vexim::ErrorPtr& error,
                               const VXIMBooleanCompletion& completion);
    void didLogout();
    void resetFlags() noexcept;
    using PresenceCall = void (VXIMClientDelegate::*)(const std::shared_ptr<VXIMClient>&,
                                                      const std::shared_ptr<VXIMFriendInfo>&);
    void didReceivePresence(const char* notificationName, PresenceCall delegateCall,
                            const vexim::Value& friendId);
    void didReceivePeerMessage(const vexim::Value& payload);
    void didReceiveOwnMessage(const vexim::Value& payload);
    void didReceiveSystemMessage(const vexim::Value& payload);
    void didReceiveMessage(const std::shared_ptr<VXIMMessage>& message);

    /// Uploads the attachment first, if there is one. `block` gets the wire form, or nullopt and
    /// the error.
    template <class Block>
    static void uploadMessageAttachment(const std::shared_ptr<VXIMMessage>& message,
                                        VXIMProgress progress, Block block,
                                        std::shared_ptr<VXIMTransfer> transfer);
    /// Returns nullptr if the connection has accepted the message.
    vexim::ErrorPtr say(vexim::Dictionary payload) const;

    /// Calls the delegate, if there is one.
    template <class... Parameters, class... Arguments>
    void tellDelegate(void (VXIMClientDelegate::*call)(Parameters...),
                      const Arguments&... arguments) const {
        if (const auto listener = delegate.lock()) ((*listener).*call)(arguments...);
    }
    /// The same for a call about a friend, group or room, which `makePeer(id)` makes only if there
    /// is a delegate. Without an id it does nothing.
    template <class... Parameters, class MakePeer, class... Arguments>
    void tellDelegateAbout(const vexim::Value& peerId, MakePeer makePeer,
                           void (VXIMClientDelegate::*call)(Parameters...),
                           const Arguments&... arguments) const {
        if (peerId.isNilOrNull()) return;
        if (const auto listener = delegate.lock())
            ((*listener).*call)(arguments..., makePeer(peerId));
    }
};
