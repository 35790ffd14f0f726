#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "../Account.h"
#include "Roster.h"
#include "SessionState.h"
#include "VexIMLib/Store/VXIMConversations.h"
#include "VexIMLib/VexIMLib.h"

namespace chat {

/// What the store calls it; the console is the conversation with the service's operators.
VXIMConversationId conversationOf(const Address& address);

/// The user's session with the service: logs in and stays logged in, and keeps `roster` as the
/// service and the store have it: friends, groups and rooms from the one, messages from the other.
/// Main thread only.
///
/// What it starts must not outlive the program's run of the main queue: answers find it by its
/// address.
///
/// It has more than 25 functions because each thing that the user can do has one, and so has each
/// event of the delegate. Two files share them.
class Session : public VXIMClientDelegate, public std::enable_shared_from_this<Session> {
public:
    /// `failed` is called when the service does not accept the first login, or the store cannot be
    /// opened.
    Session(std::shared_ptr<VXIMConversations> conversations, Credentials credentials,
            Roster& roster, std::function<void(const std::string& reason)> failed);

    void start();
    void pause();
    /// Goes on after a pause, or tries at once where an attempt is being waited for.
    void resume();
    /// Logs out if it can, and calls `left`: after three seconds at the latest.
    void leave(std::function<void()> left);
    /// What was asked of the store before is done then.
    void closeStore(const std::function<void()>& closed);
    /// To be called about once a second.
    void tick();

    VXIMClient& client() { return *client_; }
    VXIMConversations& conversations() { return *conversations_; }
    const SessionState& state() const noexcept { return state_; }
    std::string statusLine() const { return state_.line(now(), oldestHanded_); }
    bool isAlert() const { return state_.isAlert(now(), oldestHanded_); }
    /// The user's id; empty before the first login.
    const std::string& me() const noexcept { return me_; }
    static double now();

    /// Why the lists are read again: what the clock began fails in silence, for it comes again.
    enum class Asked { ByNeed, ByClock };
    /// Reads the lists of friends, groups and rooms again.
    void refresh(Asked asked = Asked::ByNeed);
    /// The user looks at this one: its messages are there from now on, and are read.
    void look(Conversation& conversation);
    void loadOlder(const Address& address);
    /// Tells what the store finds, as a notice.
    void search(const std::string& words);

    // The library's calls.
    void clientDidLogin(const std::shared_ptr<VXIMClient>& client) override;
    void clientDidFailToLoginAgain(const std::shared_ptr<VXIMClient>& client,
                                   const vexim::ErrorPtr& error) override;
    void clientAttemptReconnect(const std::shared_ptr<VXIMClient>& client) override;
    void clientDidDisconnect(const std::shared_ptr<VXIMClient>& client) override;
    void clientFriendDidOnline(const std::shared_ptr<VXIMClient>& client,
                               const std::shared_ptr<VXIMFriendInfo>& info) override;
    void clientFriendDidOffline(const std::shared_ptr<VXIMClient>& client,
                                const std::shared_ptr<VXIMFriendInfo>& info) override;

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
    /// The messages of a conversation that are shown.
    struct Shown {
        std::shared_ptr<VXIMStoreObservation> observation;
        std::int32_t limit = 0;
        std::int64_t unread = 0;  // as the store counts
        std::vector<VXIMStoredGap> gaps;
    };
    void didOpenStore();
    void didCatchUp(const VXIMCaughtUp& caughtUp);
    void showList(const std::vector<VXIMConversation>& list);
    void showMessages(const Address& address, const std::vector<VXIMStoredMessage>& messages);
    void showGaps(const Address& address);
    void setOlder(Conversation& conversation);
    void readName(const std::string& friendId);
    void lookForNews();
    template <class Seen>
    void markGone(Kind kind, const Seen& seen);
    void complain(const std::string& what, const vexim::ErrorPtr& error);
    Entry entryOf(const VXIMStoredMessage& message) const;

    const std::shared_ptr<VXIMConversations> conversations_;
    const std::shared_ptr<VXIMClient> client_;
    const Credentials credentials_;
    Roster& roster_;
    const std::function<void(const std::string&)> failed_;
    SessionState state_;
    std::string me_;
    bool hasLoggedIn_ = false;
    bool isPausing_ = false;
    Attempt attempt_ = &Session::logIn;  // what an own attempt does
    unsigned attemptNumber_ = 0;         // tells a timer whether it is still the one
    double oldestHanded_ = 0;
    std::shared_ptr<VXIMStoreObservation> list_;
    std::map<Address, Shown> shown_;
    std::set<std::string> asked_;  // friends whose names were asked for
    double refreshed_ = 0;         // when the lists were read last
    std::set<std::string> known_;  // the ids in the user's record when it was read last
    bool isLooking_ = false;       // the record is being read
};

}  // namespace chat
