#pragma once

#include <functional>
#include <memory>
#include <string>

#include "../Account.h"
#include "Roster.h"
#include "SessionState.h"
#include "VexIMLib/VexIMLib.h"

namespace chat {

/// The user's session with the service: logs in and stays logged in, and keeps `roster` as the service has it: friends, groups
/// and rooms, messages as they come, history as it is asked for. Main thread only.
///
/// What it starts must not outlive the program's run of the main queue: answers find it by its address.
class Session : public VXIMClientDelegate, public std::enable_shared_from_this<Session> {
public:
    /// `refused` is called when the service does not accept the first login.
    Session(std::shared_ptr<VXIMClient> client, Credentials credentials, Roster& roster,
            std::function<void(const std::string& reason)> refused);

    void start();
    void pause();
    /// Goes on after a pause, or tries at once where an attempt is being waited for.
    void resume();
    /// Logs out if it can, and calls `left`: after three seconds at the latest.
    void leave(std::function<void()> left);
    /// To be called about once a second.
    void tick();

    VXIMClient& client() { return *client_; }
    const SessionState& state() const noexcept { return state_; }
    std::string statusLine() const { return state_.line(now(), oldestHanded_); }
    bool isAlert() const { return state_.isAlert(now(), oldestHanded_); }
    /// The user's id; empty before the first login.
    const std::string& me() const noexcept { return me_; }
    static double now();

    /// Reads the lists of friends, groups and rooms again.
    void refresh();
    /// Sees to it that the newest messages are there; nothing happens when they are.
    void loadNewest(const Address& address);
    void loadOlder(const Address& address);

    // The library's calls.
    void clientDidLogin(const std::shared_ptr<VXIMClient>& client) override;
    void clientDidFailToLoginAgain(const std::shared_ptr<VXIMClient>& client, const vexim::ErrorPtr& error) override;
    void clientAttemptReconnect(const std::shared_ptr<VXIMClient>& client) override;
    void clientDidDisconnect(const std::shared_ptr<VXIMClient>& client) override;
    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>& client, const std::shared_ptr<VXIMMessage>& message,
                                           const std::shared_ptr<VXIMFriendInfo>& from) override;
    void clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>& client, const std::shared_ptr<VXIMMessage>& message,
                                          const std::shared_ptr<VXIMGroup>& from) override;
    void clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>& client, const std::shared_ptr<VXIMMessage>& message,
                                         const std::shared_ptr<VXIMRoom>& from) override;
    void clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>& client,
                                       const std::shared_ptr<VXIMMessage>& message) override;
    void clientFriendDidOnline(const std::shared_ptr<VXIMClient>& client, const std::shared_ptr<VXIMFriendInfo>& info) override;
    void clientFriendDidOffline(const std::shared_ptr<VXIMClient>& client, const std::shared_ptr<VXIMFriendInfo>& info) override;

private:
    using Attempt = void (Session::*)();

    // Connection.
    void logIn();
    void connectAgain();
    void tryAgainLater(const std::string& reason);
    void didFail(const std::string& reason);
    void setPresenceUnknown();
    void askForNextAttempt();

    // Contents.
    using Took = int (Conversation::*)(const Conversation::Request&, std::vector<Entry>);
    void load(const Address& address, const Conversation::Request& request, Took take);
    void catchUp(Conversation& conversation, const std::shared_ptr<VXIMMessage>& recent);
    void roomsMissed(double lostAt);
    void askRoom(const Address& address, double handedBefore);
    template <class Seen>
    void markGone(Kind kind, const Seen& seen);
    void complain(const std::string& what, const vexim::ErrorPtr& error);
    void receive(const Address& address, VXIMMessage& message);
    Entry entryOf(VXIMMessage& message);

    const std::shared_ptr<VXIMClient> client_;
    const Credentials credentials_;
    Roster& roster_;
    const std::function<void(const std::string&)> refused_;
    SessionState state_;
    std::string me_;
    bool hasLoggedIn_ = false;
    bool isPausing_ = false;
    Attempt attempt_ = &Session::logIn;  // what an own attempt does
    unsigned attemptNumber_ = 0;         // tells a timer whether it is still the one
    double lostAt_ = 0;                  // when the connection was lost; 0: it stands
    double missedSince_ = 0;             // when it was lost the last time; 0: never
    double oldestHanded_ = 0;
};

}  // namespace chat
