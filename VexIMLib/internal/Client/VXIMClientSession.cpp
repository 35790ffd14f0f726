// The session: login, the events of the connection, pause, resume, logout.

#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/NotificationCenter.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/VXIMClient.h"
#include "VexIMLib/VXIMConstants.h"
#include "VexIMLib/VXIMFriendInfo.h"
#include "VexIMLib/internal/Client/VXIMClientImpl.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Networking/VXIMUtils.h"
#include "VexIMLib/internal/Platform/Facts/EventNames.h"
#include "VexIMLib/internal/Resources/ResourceOperations.h"
#include "VexIMLib/internal/SocketIO/Protocol/Namespace.h"

using vexim::Array;
using vexim::Dictionary;
using vexim::ErrorPtr;
using vexim::MainQueue;
using vexim::NotificationCenter;
using vexim::Value;

namespace {

// Servers answer 431 above 12 KiB, and the rest of the URL needs a part of that.
constexpr std::size_t kMostAuthBytes = 12'000;

/// "app" and "sign", which every login needs, followed by its credentials. A nil value raises.
Dictionary authDictionary(const VXIMClientConfiguration& config, const Dictionary& credentials) {
    Dictionary auth{{"app", config.appId()},
                    {"sign", VXIMUtils::signatureForClientKey(config.clientKey())}};
    auth.addEntries(credentials);
    return auth;
}

ErrorPtr loginError(const Value& error) {
    std::int64_t code = 0;
    if (error.isNumber()) {
        code = error.longLongValue();
    } else if (error.isDictionary()) {
        code = error.get("errorCode").longLongValue();
    }
    return vexim::Error::make(VXIMErrorDomain, code, error);
}

/// Removes this device's installation from `user`; succeeds without a request when either id is
/// missing. Main thread.
void removeInstallation(const VXIMClientConfiguration& config,
                        const std::shared_ptr<VXIMUser>& user, VXIMBooleanCompletion completion) {
    const Value uid = user ? user->uid() : Value();
    const std::string installationId = config.installationId().value_or("");
    if (uid.isNilOrNull() || uid == "" || installationId.empty()) {
        MainQueue::shared().async([completion = std::move(completion)] {
            if (completion) completion(true, nullptr);
        });
        return;
    }
    VXIMHTTPRequest::deletePath("/ctx/" + uid.description() + "/installs",
                                Dictionary{{"installs", Array{installationId}}},
                                vexim::resources::endingWithSuccess(std::move(completion)));
}

void succeedAll(const std::vector<VXIMBooleanCompletion>& completions) {
    for (const auto& completion : completions) {
        if (completion) completion(true, nullptr);
    }
}

}  // namespace

void VXIMClient::loginWithUserId(std::optional<std::string> userId,
                                 VXIMBooleanCompletion completion) {
    const VXIMClientConfiguration& config = *impl_->config;
    loginWithAuthData(
        authDictionary(config, {{"client", userId}, {"install", config.installationId()}}),
        std::move(completion));
}

void VXIMClient::loginWithUsername(std::optional<std::string> username,
                                   std::optional<std::string> password,
                                   VXIMBooleanCompletion completion) {
    loginWithAuthData(
        authDictionary(*impl_->config, {{"username", username}, {"password", password}}),
        std::move(completion));
}

void VXIMClient::loginWithPhoneNumber(std::optional<std::string> phoneNumber,
                                      std::optional<std::string> smsCode,
                                      VXIMBooleanCompletion completion) {
    // The service expects the code under "password".
    loginWithAuthData(
        authDictionary(*impl_->config, {{"phone", phoneNumber}, {"password", smsCode}}),
        std::move(completion));
}

void VXIMClient::loginWithThirdPartyOAuth(std::optional<Dictionary> oauth,
                                          VXIMBooleanCompletion completion) {
    const Value data = oauth ? Value(*std::move(oauth)) : Value();
    loginWithAuthData(authDictionary(*impl_->config, {{"oauth", data}}), std::move(completion));
}

void VXIMClient::loginWithAuthData(Dictionary authData, VXIMBooleanCompletion completion) {
    vexim::JSONText authText = vexim::writeJSON(authData);
    if (authText.error)
        throw vexim::Exception(vexim::kInvalidArgumentException,
                               authText.error->localizedDescription());
    if (const auto size = vexim::percentEncode(authText.text).size(); size > kMostAuthBytes) {
        throw vexim::Exception(vexim::kInvalidArgumentException,
                               "The login's credentials take " + std::to_string(size) +
                                   " bytes in the URL; at most " + std::to_string(kMostAuthBytes) +
                                   " are allowed.");
    }

    const Value* client = authData.find("client");
    auto user = VXIMUser::userWithId(client ? *client : Value(""));
    user->setUsername(authData.get("username"));
    user->setPhoneNumber(authData.get("phone"));
    impl_->currentUser.set(user);

    MainQueue::shared().async([self = self(), user = std::move(user),
                               authText = std::move(authText.text),
                               completion = std::move(completion),
                               tellWhyNot = vexim::FailureListener::current()]() mutable {
        // set it again, because a logout may have ended meanwhile and reset it
        self->impl_->currentUser.set(std::move(user));
        self->impl_->openConnection(authText, std::move(completion), std::move(tellWhyNot));
    });
}

void VXIMClient::Impl::openConnection(const std::string& authText, VXIMBooleanCompletion completion,
                                      vexim::FailureListener::Tell tellWhyNot) {
    // A logout that is waiting for the old connection to close ends now. A logout without a
    // connection never ends.
    auto overtakenLogouts = std::exchange(closeCompletionBlocks, {});
    if (!socketio.get()) overtakenLogouts.clear();
    tryLogout = false;
    if (const auto former = socketio.get()) {
        former->removeAllHandlers();
        former->disconnect();
        socketio.set(nullptr);
        // without handlers, its "disconnect" event never comes; the login keeps the client alive
        // for now
        keptUntilClosed = nullptr;
    }
    pauseAsked = false;
    openCompletionBlock = std::move(completion);
    tellWhyNotOpened = std::move(tellWhyNot);
    isLoginPending = true;

    Dictionary options = config->dictionary();
    options.set("connectParams", Dictionary{{"auth", authText}});
    meter = vexim::Meter::of(options);
    const auto socket = makeSocket(config->socketURL(), options);
    socketio.set(socket);
    socket->joinNamespace(config->nsp().value_or(""));

    setupEventHandlers(*socket);
    socket->connect();
    enter(VXIMClientStatusOpening);
    succeedAll(overtakenLogouts);
}

void VXIMClient::Impl::loginCannotBeAnswered(const ErrorPtr& cause) {
    const auto socket = socketio.get();
    // If the connection tries again, the answer may still come.
    if (!isLoginPending || !socket || socket->status() != vexim::SocketIOStatusDisconnected) return;
    if (const auto tell = std::exchange(tellWhyNotOpened, nullptr)) tell(cause);
}

void VXIMClient::Impl::setupEventHandlers(vexim::SocketIOClient& socket) {
    const auto on = [&](const char* event, auto handler) {
        socket.on(event, [weak = owner, handler](const Array& arguments, const vexim::AckEmitter&) {
            if (const auto client = weak.lock()) handler(*client->impl_, arguments);
        });
    };
    on("connect", [](Impl& client, const Array&) { client.socketDidConnect(); });
    on("reconnect", [](Impl& client, const Array&) {
        client.enter(VXIMClientStatusResuming);
        client.tellDelegate(&VXIMClientDelegate::clientAttemptReconnect, client.self());
    });
    on("disconnect", [](Impl& client, const Array& arguments) {
        const bool isLost = !client.pauseAsked && !client.tryLogout;
        client.socketDidDisconnect();
        if (isLost) client.loginCannotBeAnswered(vexim::errors::connectionLost(arguments.get(0)));
    });
    on("error", [](Impl& client, const Array& arguments) {
        const auto self = client.self();
        const vexim::Notification trouble{VXIMClientConnectionErrorNotification, self,
                                          Dictionary{{"data", arguments}}};
        NotificationCenter::defaultCenter().post(trouble.name, trouble.object, *trouble.userInfo);
        if (const auto error = vexim::connectionError(trouble);
            error->domain() == VXIMConnectionErrorDomain) {
            client.loginCannotBeAnswered(error);
        }
    });
    on("login", [](Impl& client, const Array& arguments) {
        client.didReceiveLoginAnswer(arguments.get(0));
    });
    on("message", [](Impl& client, const Array& arguments) {
        client.didReceivePeerMessage(arguments.get(0));
    });
    on("yourself",
       [](Impl& client, const Array& arguments) { client.didReceiveOwnMessage(arguments.get(0)); });
    on("online", [](Impl& client, const Array& arguments) {
        client.didReceivePresence(VXIMFriendOnlineNotification,
                                  &VXIMClientDelegate::clientFriendDidOnline, arguments.get(0));
    });
    on("offline", [](Impl& client, const Array& arguments) {
        client.didReceivePresence(VXIMFriendOfflineNotification,
                                  &VXIMClientDelegate::clientFriendDidOffline, arguments.get(0));
    });
    on("sys", [](Impl& client, const Array& arguments) {
        client.didReceiveSystemMessage(arguments.get(0));
    });
}

void VXIMClient::Impl::socketDidConnect() {
    // The first connect after a login does not change the status: the "login" event does.
    const auto socket = socketio.get();
    const auto wanted = vexim::parseNamespace(config->nsp().value_or("")).name;
    if (!socket || socket->nsp() != wanted || !offlineTemporally) return;
    if (const auto user = currentUser.get()) user->setOnline(true);
    enter(VXIMClientStatusOpened);
}

void VXIMClient::Impl::socketDidDisconnect() {
    // The connection has closed, even if `resetFlags` has cleared the logout's flag.
    const auto kept = std::exchange(keptUntilClosed, nullptr);
    if (const auto user = currentUser.get()) user->setOnline(false);
    offlineTemporally = !tryLogout;
    if (tryLogout) {
        didLogout();
    } else {
        enter(VXIMClientStatusPaused);
    }
    tellDelegate(&VXIMClientDelegate::clientDidDisconnect, self());
}

void VXIMClient::Impl::didReceiveLoginAnswer(const Value& answer) {
    if (!answer.get("success").boolValue())
        return loginDidCompleteWithSuccess(false, loginError(answer.get("error")));
    if (const auto user = currentUser.get()) {
        user->setUid(answer.get("id"));
        user->setOnline(true);
    }
    loginDidCompleteWithSuccess(true, nullptr);
}

void VXIMClient::Impl::loginDidCompleteWithSuccess(bool success, const ErrorPtr& error) {
    const auto socket = socketio.get();
    record->add(vexim::events::kLoginAnswered,
                error ? Dictionary{{"accepted", success}, {"code", error->code()}}
                      : Dictionary{{"accepted", success}});
    count(vexim::Metric::Logins,
          success ? vexim::LoginOutcome::Accepted : vexim::LoginOutcome::Refused);
    const bool isFirst = std::exchange(isLoginPending, false);
    tellWhyNotOpened = nullptr;
    if (!success) {  // a reconnect or a resume may have changed the status
        if (const auto user = currentUser.get()) user->setOnline(false);
        enter(VXIMClientStatusOpening);
    }
    if (const auto completion = std::exchange(openCompletionBlock, nullptr))
        completion(success, error);
    if (!success) {  // the connection stays open
        if (!isFirst) tellDelegate(&VXIMClientDelegate::clientDidFailToLoginAgain, self(), error);
        return;
    }
    // a completion may run the main queue, and a logout on it
    if (socketio.get() != socket) return;

    enter(VXIMClientStatusOpened);
    Dictionary userInfo;
    userInfo.setOrRemove("user", currentUser.get());
    NotificationCenter::defaultCenter().post(VXIMUserDidLoginNotification, self(),
                                             std::move(userInfo));
    tellDelegate(&VXIMClientDelegate::clientDidLogin, self());
}

void VXIMClient::Impl::didReceivePresence(const char* notificationName, PresenceCall delegateCall,
                                          const Value& friendId) {
    NotificationCenter::defaultCenter().post(
        notificationName, self(),
        Dictionary{{"id", friendId.isNilOrNull() ? Value("") : friendId}});
    tellDelegateAbout(friendId, &VXIMFriendInfo::infoWithId, delegateCall, self());
}

void VXIMClient::logoutWithCompletion(VXIMBooleanCompletion completion) {
    // Take the present user now: a login that is called right after this sets another one at once.
    MainQueue::shared().async(
        [self = self(), user = currentUser(), completion = std::move(completion)]() mutable {
            const VXIMClientStatus remembered = self->status();
            self->impl_->enter(VXIMClientStatusClosing);
            removeInstallation(
                *self->impl_->config, user,
                [self, remembered, socket = self->socketio(), completion = std::move(completion)](
                    bool succeeded, const ErrorPtr& error) {
                    self->impl_->didRemoveInstallation(socket, remembered,
                                                       succeeded ? nullptr : error, completion);
                });
        });
}

void VXIMClient::Impl::didRemoveInstallation(const std::shared_ptr<vexim::SocketIOClient>& socket,
                                             VXIMClientStatus remembered, const ErrorPtr& error,
                                             const VXIMBooleanCompletion& completion) {
    // A login or another logout may have ended this logout's session. Then there is nothing to
    // close.
    const bool isOver = socketio.get() != socket;
    if (error || (isOver && socket)) {
        if (!isOver && !tryLogout && status == VXIMClientStatusClosing) enter(remembered);
        if (completion) completion(!error, error);
        return;
    }
    if (isOver) return;  // it began without a connection
    tryLogout = true;
    closeCompletionBlocks.push_back(completion);
    // The "disconnect" event continues the logout. Without a connection there is none, and the
    // logout never ends.
    if (!socket) return;
    keptUntilClosed = self();
    socket->disconnect();
}

void VXIMClient::deleteCurrentInstallIdCompletion(VXIMBooleanCompletion completion) {
    // Read the user's id and the configuration on the main thread only.
    if (!MainQueue::shared().isMainThread()) {
        return MainQueue::shared().async(
            [self = self(), completion = std::move(completion)]() mutable {
                self->deleteCurrentInstallIdCompletion(std::move(completion));
            });
    }
    removeInstallation(*impl_->config, currentUser(), std::move(completion));
}

void VXIMClient::Impl::didLogout() {
    enter(VXIMClientStatusClosed);
    resetFlags();
    if (const auto socket = socketio.get()) socket->removeAllHandlers();
    currentUser.set(nullptr);
    socketio.set(nullptr);
    succeedAll(std::exchange(closeCompletionBlocks, {}));
    tellDelegate(&VXIMClientDelegate::clientDidLogout, self());
}

void VXIMClient::pause() {
    MainQueue::shared().async([self = self()] {
        self->impl_->offlineTemporally = true;
        const auto socket = self->socketio();
        if (!socket) return;
        // Each disconnect causes an event, so a second pause must not disconnect again.
        const bool wasPaused = std::exchange(self->impl_->pauseAsked, true);
        if (!wasPaused || socket->status() != vexim::SocketIOStatusDisconnected)
            socket->disconnect();
    });
}

void VXIMClient::resume() {
    MainQueue::shared().async([self = self()] {
        self->impl_->pauseAsked = false;
        const auto socket = self->socketio();
        // If the connection is open, its "connect" has come or is still queued, and no second one
        // follows. So the status is right or will be.
        const bool stands = socket && socket->status() == vexim::SocketIOStatusConnected;
        if (!stands) self->impl_->enter(VXIMClientStatusResuming);
        // Connect even if it is open, since it may be closing right now.
        if (socket) socket->connect();
    });
}
