// The connection: login, losses, pauses, attempts. For what it delivers, see SessionContents.cpp.

#include "Session.h"

#include <algorithm>
#include <chrono>

#include "../Explain.h"
#include "Text.h"

namespace chat {
namespace {

using namespace std::chrono_literals;

// The longest wait between attempts. The library's 30 seconds are too long if a person is watching.
constexpr int kLongestWait = 10;
// If nothing happens for this many seconds, the next step is started from here.
constexpr double kTooLong = 15;
constexpr double kLoginTimeout = 30;
// How often to look for new names and members of groups and rooms. New friends, groups and rooms
// are found at every tick.
constexpr double kRefreshInterval = 30;

std::string hostOf(VXIMClient& client) {
    const auto url = client.config()->socketURL();
    if (!url) return "?";
    return url->host() + (url->port() ? ":" + std::to_string(*url->port()) : "");
}

}  // namespace

Session::Session(std::shared_ptr<VXIMConversations> conversations, Credentials credentials,
                 Roster& roster, std::function<void(const std::string&)> failed)
    : conversations_(std::move(conversations)),
      client_(conversations_->client()),
      credentials_(std::move(credentials)),
      roster_(roster),
      failed_(std::move(failed)),
      state_(hostOf(*client_), kLongestWait),
      me_(credentials_.userId.value_or("")) {}

double Session::now() { return vexim::Clock::shared()->wallTime(); }

void Session::start() {
    client_->config()->dictionary().set("reconnectWaitMax", kLongestWait);
    client_->setDelegate(shared_from_this());
    vexim::NotificationCenter::defaultCenter().addObserver(
        shared_from_this(), VXIMClientConnectionErrorNotification, client_.get(),
        [this](const vexim::Notification& notification) {
            didFail(harmlessLine(notification.userInfo.value_or(vexim::Dictionary())
                                     .get("data")
                                     .get(0)
                                     .description()));
        });
    conversations_->setCaughtUpHandler(
        [this](const VXIMCaughtUp& caughtUp) { didCatchUp(caughtUp); });
    conversations_->setTroubleHandler(
        [this](const vexim::ErrorPtr& error) { complain("the store has a problem", error); });
    conversations_->open([this](bool opened, const vexim::ErrorPtr& error) {
        if (!opened) return failed_("no store: " + harmlessLine(explain(error)));
        didOpenStore();
        begin();
    });
    logIn();
}

void Session::logIn() {
    attempt_ = &Session::logIn;
    ++attemptNumber_;
    state_.connecting(now());
    credentials_.logIn(*client_, [this](bool accepted, const vexim::ErrorPtr& error) {
        if (accepted) return;
        const std::string reason = harmlessLine(explain(error));
        state_.refused(reason, now());
        if (!hasLoggedIn_) failed_("login failed: " + reason);
    });
}

void Session::connectAgain() {
    attempt_ = &Session::connectAgain;
    ++attemptNumber_;
    state_.connecting(now());
    client_->resume();
}

void Session::tryAgainLater(const std::string& reason) {
    const int wait = std::min(kLongestWait, 1 << std::min(state_.attempts() - 1, 4));
    state_.connectFailed(reason, now() + wait, now());
    vexim::MainQueue::shared().after(std::chrono::seconds(wait), [this, number = attemptNumber_] {
        if (number == attemptNumber_ && state_.phase() == SessionState::Phase::Waiting)
            (this->*attempt_)();
    });
}

void Session::didFail(const std::string& reason) {
    switch (state_.phase()) {
        case SessionState::Phase::Connecting: return tryAgainLater(reason);
        case SessionState::Phase::Reconnecting: return state_.attemptFailed(reason, now());
        case SessionState::Phase::Waiting:
        case SessionState::Phase::Lost:
        case SessionState::Phase::Paused:
        case SessionState::Phase::Leaving:
        case SessionState::Phase::Refused: return;
        case SessionState::Phase::Connected:
            return roster_.notice("connection: " + reason, now(), true);
    }
}

void Session::pause() {
    if (state_.phase() == SessionState::Phase::Paused || !client_->socketio()) return;
    isPausing_ = true;
    ++attemptNumber_;
    client_->pause();
}

void Session::resume() {
    switch (state_.phase()) {
        case SessionState::Phase::Paused: return connectAgain();
        case SessionState::Phase::Waiting: return (this->*attempt_)();
        case SessionState::Phase::Lost:
        // Starts the attempt that the library is waiting to make.
        case SessionState::Phase::Reconnecting: return client_->resume();
        case SessionState::Phase::Refused: return logIn();
        case SessionState::Phase::Connecting:
        case SessionState::Phase::Connected:
        case SessionState::Phase::Leaving: return;
    }
}

void Session::leave(std::function<void()> left) {
    // A logout never ends without a connection, and a hanging service does not answer it.
    if (!state_.isConnected()) return left();
    state_.leaving(now());
    vexim::MainQueue::shared().after(3s, left);
    client_->logoutWithCompletion([left](bool, const vexim::ErrorPtr&) { left(); });
}

void Session::closeStore(const std::function<void()>& closed) {
    list_ = nullptr;
    shown_.clear();
    if (const auto store = conversations_->store())
        return store->close([closed](bool, const vexim::ErrorPtr&) { closed(); });
    closed();
}

void Session::tick() {
    const double time = now();
    for (const auto& conversation : roster_.all()) conversation->doubt(time);
    oldestHanded_ = roster_.oldestHanded();
    if (state_.isConnected() && time - refreshed_ > kRefreshInterval) {
        refresh(Asked::ByClock);
    } else if (state_.isConnected()) {
        lookForNews();
    }

    const bool isTooLong = state_.since(time) > kTooLong;
    if (state_.phase() == SessionState::Phase::Lost ||
        state_.phase() == SessionState::Phase::Reconnecting)
        askForNextAttempt();
    switch (state_.phase()) {
        case SessionState::Phase::Lost:
            // The service closed the connection. The library does not reconnect then.
            if (isTooLong) connectAgain();
            break;
        case SessionState::Phase::Reconnecting:
            // The connection is open, but the login gets no answer.
            if (isTooLong && client_->status() == VXIMClientStatusOpened) logIn();
            break;
        case SessionState::Phase::Connecting:
            if (!isLoggedIn_ && state_.since(time) > kLoginTimeout)
                tryAgainLater("the service does not answer the login");
            break;
        case SessionState::Phase::Waiting:
        case SessionState::Phase::Connected:
        case SessionState::Phase::Paused:
        case SessionState::Phase::Leaving:
        case SessionState::Phase::Refused: break;
    }
}

void Session::askForNextAttempt() {
    const auto events = client_->diagnose().events();
    const auto last = std::find_if(events.rbegin(), events.rend(),
                                   [](const auto& event) { return event.name == "waiting"; });
    if (last != events.rend())
        state_.waitingUntil(last->time + last->details.get("seconds").doubleValue());
}

void Session::setPresenceUnknown() {
    for (const auto& conversation : roster_.all()) conversation->online.reset();
}

void Session::clientDidLogin(const std::shared_ptr<VXIMClient>& client) {
    me_ = client->currentUser()->uid().description();
    hasLoggedIn_ = isLoggedIn_ = true;
    begin();
}

void Session::begin() {
    // Only a login tells whose store to open, and until it is open no message is accepted.
    if (!isLoggedIn_ || !conversations_->store()) return;
    if (state_.phase() == SessionState::Phase::Leaving) return;
    state_.connected(harmlessLine(me_), now());
    refresh();
}

void Session::clientDidFailToLoginAgain(const std::shared_ptr<VXIMClient>&,
                                        const vexim::ErrorPtr& error) {
    if (state_.phase() != SessionState::Phase::Leaving)
        state_.refused(harmlessLine(explain(error)), now());
}

void Session::clientAttemptReconnect(const std::shared_ptr<VXIMClient>&) {
    state_.attempting(now());
}

void Session::clientDidDisconnect(const std::shared_ptr<VXIMClient>&) {
    isLoggedIn_ = false;
    if (state_.phase() == SessionState::Phase::Leaving) return;
    setPresenceUnknown();
    if (std::exchange(isPausing_, false)) return state_.paused(now());
    state_.lost(now());
}

}  // namespace chat
