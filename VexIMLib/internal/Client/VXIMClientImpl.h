#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/FailureListener.h"
#include "VexIMLib/SocketIOClient.h"
#include "VexIMLib/VXIMClient.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/VXIMClientDelegate.h"
#include "VexIMLib/VXIMUser.h"
#include "VexIMLib/internal/Configuration/Meter.h"
#include "VexIMLib/internal/Foundation/Threads/SharedSlot.h"
#include "VexIMLib/internal/Platform/Facts/EventRecord.h"

struct VXIMClient::Impl {
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
    /// The connection has been down since the last logout, for another reason than a logout.
    std::atomic<bool> offlineTemporally{false};
    /// A logout has removed the installation and is waiting for the connection to close.
    std::atomic<bool> tryLogout{false};

    // Main thread.
    std::weak_ptr<VXIMClientDelegate> delegate;
    std::shared_ptr<vexim::Meter> meter;  // the last login's; nullptr: nothing is counted
    // the pending login's; dropped when another login begins
    VXIMBooleanCompletion openCompletionBlock;
    // the same, for whoever waits for the login; called at most once
    vexim::FailureListener::Tell tellWhyNotOpened;
    // the service has not answered this connection's first login yet
    bool isLoginPending = false;
    /// of the pending logouts; never called if no connection closes
    std::vector<VXIMBooleanCompletion> closeCompletionBlocks;
    // this client, while a logout waits for its connection to close
    std::shared_ptr<VXIMClient> keptUntilClosed;
    bool pauseAsked = false;  // and neither a resume nor a login since
    std::optional<vexim::Array> onlineFriends;
    std::optional<vexim::Dictionary> messages;

    void enter(VXIMClientStatus next);
    template <class Label>
    void count(vexim::Metric metric, Label label) const {
        if (meter) meter->add(metric, label);
    }
    /// The connection ended before the login was answered, and no reconnect will follow.
    void loginCannotBeAnswered(const vexim::ErrorPtr& cause);

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
