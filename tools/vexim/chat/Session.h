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

/// The store's id for a conversation. The console's is the conversation with the service's
/// operators.
VXIMConversationId conversationOf(const Address& address);

/// The user's session. It logs in, stays logged in, and keeps `roster` up to date: friends, groups
/// and rooms come from the service, messages from the store. Main thread only.
///
/// What it starts must not outlive the program's run of the main queue, because answers use its
/// address.
///
/// It has more than 25 functions because each thing that the user can do has one, and so has each
/// event of the delegate. Two files share them.
class Session : public VXIMClientDelegate, public std::enable_shared_from_this<Session> {
public:
    /// Calls `failed` if the service refuses the first login, or the store cannot be opened.
    Session(std::shared_ptr<VXIMConversations> conversations, Credentials credentials,
            Roster& roster, std::function<void(const std::string& reason)> failed);

    void start();
    void pause();
    /// Ends a pause. If the session is waiting before an attempt, starts it now.
    void resume();
    /// Logs out if possible, then calls `left`, after three seconds at the latest.
    void leave(std::function<void()> left);
    /// Calls `closed` when everything that the store was asked before is done.
    void closeStore(const std::function<void()>& closed);
    /// Call this about once a second.
    void tick();

    VXIMClient& client() { return *client_; }
    VXIMConversations& conversations() { return *conversations_; }
    const SessionState& state() const noexcept { return state_; }
    std::string statusLine() const { return state_.line(now(), oldestHanded_); }
    bool isAlert() const { return state_.isAlert(now(), oldestHanded_); }
    /// The user's id; empty before the first login.
    const std::string& me() const noexcept { return me_; }
    static double now();

    /// Why the lists are read. If it was just time to, failures are not shown, because it will be
    /// tried again.
    enum class Asked { ByNeed, ByClock };
    /// Reads the lists of friends, groups and rooms.
    void refresh(Asked asked = Asked::ByNeed);
    /// The user selected this conversation: loads its messages, and counts them as read.
    void look(Conversation& conversation);
    void loadOlder(const Address& address);
    /// Searches the store and shows the results as a notice.
    void search(const std::string& words);

    // From the library.
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

    // The connection.
    void logIn();
    void connectAgain();
    void tryAgainLater(const std::string& reason);
    void didFail(const std::string& reason);
    void setPresenceUnknown();
    void askForNextAttempt();

    // Messages and lists.
    /// What is shown of a conversation.
    struct Shown {
        std::shared_ptr<VXIMStoreObservation> observation;
        std::int32_t limit = 0;
        std::int64_t unread = 0;  // by the store's count
        std::vector<VXIMStoredGap> gaps;
    };
    void didOpenStore();
    void begin();
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
    bool hasLoggedIn_ = false;  // at least once
    bool isLoggedIn_ = false;
    bool isPausing_ = false;
    Attempt attempt_ = &Session::logIn;  // what the next attempt of our own does
    unsigned attemptNumber_ = 0;         // so that a timer knows whether it is still wanted
    double oldestHanded_ = 0;
    std::shared_ptr<VXIMStoreObservation> list_;
    std::map<Address, Shown> shown_;
    std::set<std::string> asked_;  // whose names were requested
    double refreshed_ = 0;         // when the lists were last read
    std::set<std::string> known_;  // the ids in the user's record when it was last read
    bool isLooking_ = false;       // the record is being read
};

}  // namespace chat
