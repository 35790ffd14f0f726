#include "PlainChat.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Explain.h"
#include "HostLoop.h"
#include "Inbox.h"
#include "InputLines.h"
#include "Login.h"
#include "PlaceNames.h"
#include "VexIMLib/Store/VXIMConversations.h"
#include "VexIMLib/VexIMLib.h"
#include "chat/Text.h"

namespace {

// If the service hangs, it does not answer the logout.
constexpr std::chrono::seconds kLogoutTimeout{10};
// At the end, how long to wait for messages that are still being sent.
constexpr std::chrono::seconds kPatience{20};
constexpr std::chrono::seconds kClosingTimeout{5};
// How long to wait for the names of groups and rooms before the first line is read.
constexpr std::chrono::seconds kNamesTimeout{3};
constexpr std::int32_t kObserved = 200;
// If this many messages wait for their echo, no more input is read. They fit into `kObserved`.
constexpr std::size_t kMostUnreported = 150;
constexpr std::int32_t kMostConversations = 10'000;
constexpr std::int64_t kMostMissed = 500;  // the most missed messages to print for one conversation
constexpr std::size_t kLongestShown = 500;  // how much of an unsent message to print, in bytes

constexpr const char* kHelp =
    "  /friend ID   talk to a friend       /group ID   to a group       /room ID   to a room\n"
    "  /pause       close the connection   /resume     open it again    /status    the state of the session\n"
    "  /quit        log out and quit       anything else is sent";

int printError = 0;  // the `errno` of a failed write to standard output

/// Removes control sequences, because other people wrote parts of the line.
void printLine(const std::string& line) {
    if (std::printf("%s\n", chat::harmless(line).c_str()) < 0 || std::fflush(stdout) != 0)
        printError = errno;
}

const char* name(VXIMClientStatus status) {
    switch (status) {
        case VXIMClientStatusNone: return "not logged in";
        case VXIMClientStatusOpening: return "not logged in yet, or refused";
        case VXIMClientStatusOpened: return "open";
        case VXIMClientStatusPaused: return "paused";
        case VXIMClientStatusResuming: return "resuming";
        case VXIMClientStatusClosing: return "logging out";
        case VXIMClientStatusClosed: return "closed";
    }
    return "unknown";
}

std::string placeOf(const VXIMConversationId& id) {
    switch (id.kind) {
        case VXIMConversationKindFriend: return "friend " + id.id;
        case VXIMConversationKindGroup: return "group " + id.id;
        case VXIMConversationKindRoom: return "room " + id.id;
        case VXIMConversationKindSystem: break;
    }
    return "system";
}

VXIMConversationId conversationOf(const Peer& peer) {
    if (peer.friendId) return {VXIMConversationKindFriend, *peer.friendId};
    if (peer.groupId) return {VXIMConversationKindGroup, *peer.groupId};
    return {VXIMConversationKindRoom, *peer.roomId};
}

class PlainChat : public Inbox {
public:
    PlainChat(std::shared_ptr<VXIMConversations> conversations, const Given& given)
        : conversations_(std::move(conversations)),
          client_(conversations_->client()),
          peer_(given.peer),
          isKept_(given.has("--store")),
          isJSON_(given.isJSON) {}

    int run(const Credentials& credentials) {
        vexim::NotificationCenter::defaultCenter().addObserver(
            alive_, VXIMClientConnectionErrorNotification, client_.get(),
            [this](const vexim::Notification& notification) {
                if (isLoggedIn_)
                    print("connection: " +
                          vexim::connectionError(notification)->localizedDescription());
            });
        conversations_->setCaughtUpHandler(
            [this](const VXIMCaughtUp& caughtUp) { didCatchUp(caughtUp); });
        conversations_->setTroubleHandler(
            [this](const vexim::ErrorPtr& error) { print("store: " + explain(error)); });
        conversations_->open([this](bool opened, const vexim::ErrorPtr& error) {
            if (!opened) return refuse("no store: " + explain(error));
            list_ = store()->observeConversations(
                kMostConversations,
                [this](const VXIMListChange<VXIMConversation>& change) { didChange(change.list); });
            begin();
        });
        logInOnce(client_, credentials, [this](const std::string& complaint) {
            if (!complaint.empty()) return refuse(complaint);
            isLoggedIn_ = true;
            begin();
        });
        loop_.run([] {
            if (printError != 0)
                throw std::runtime_error(std::string("cannot write the output: ") +
                                         std::strerror(printError));
        });
        return status_;
    }

protected:
    void wrote(const std::string& line, const vexim::Dictionary& event) override {
        if (line == "login") {
            isCaughtUp_ = false;
            heardBefore_ = lines().size();
        }
        if (line == "disconnect") input_.go();  // the next line may be a command, such as /resume
        if (isJSON_) return printLine(vexim::writeJSON(event).text);
        printLine(names_->added(line, event));
    }

private:
    void print(const std::string& line) {
        if (!isJSON_) return printLine(line);
        printLine(vexim::writeJSON(vexim::Dictionary{{"event", "notice"}, {"text", line}}).text);
    }

    std::shared_ptr<VXIMMessageStore> store() const { return conversations_->store(); }

    void refuse(const std::string& complaint) {
        print(complaint);
        status_ = 1;
        loop_.quit();
    }

    /// Begins to read input. Before the login and the open store, a script's lines would be lost.
    void begin() {
        if (!isLoggedIn_ || !store()) return;
        print("logged in as " + client_->currentUser()->uid().description() +
              "; /help lists the commands");
        names_->read(*client_, [this] { input_.go(); });
        vexim::MainQueue::shared().after(kNamesTimeout, [this] { input_.go(); });
    }

    /// Whether too many messages wait for their result to read more input. Without a connection it
    /// is always read, because the next line may be the command that reconnects.
    bool isBusy() const {
        return client_->status() == VXIMClientStatusOpened &&
               adding_ + unreported_.size() >= kMostUnreported;
    }

    /// Prints the messages that came while the user was away. Later ones are already printed.
    void didCatchUp(const VXIMCaughtUp& caughtUp) {
        if (caughtUp.missedCount > 0) {
            const bool isOne = caughtUp.missedCount == 1;
            print("while you were away: " + std::to_string(caughtUp.missedCount) +
                  (isOne ? " message" : " messages"));
        }
        store()->conversations([this](const std::optional<std::vector<VXIMConversation>>& found,
                                      const vexim::ErrorPtr&) {
            for (const auto& one : found.value_or(std::vector<VXIMConversation>())) {
                if (one.unreadCount > 0) printMissed(one);
            }
            isCaughtUp_ = true;
        });
    }

    void printMissed(const VXIMConversation& conversation) {
        const auto id = conversation.id;
        const auto limit = static_cast<std::int32_t>(
            std::min<std::int64_t>(2 * conversation.unreadCount, kMostMissed));
        store()->messagesBefore(
            id, std::nullopt, limit,
            [this, id, unread = conversation.unreadCount](
                const std::optional<std::vector<VXIMStoredMessage>>& messages,
                const vexim::ErrorPtr&) {
                if (!messages) return;
                std::vector<std::string> missed;  // newest first
                std::int64_t count = 0;
                for (auto one = messages->rbegin(); one != messages->rend() && count < unread;
                     ++one) {
                    if (one->direction != VXIMStoredMessageIncoming) continue;
                    ++count;
                    const auto line = lineOf(placeOf(id), *one->message());
                    const auto begin = lines().begin() + static_cast<std::ptrdiff_t>(heardBefore_);
                    if (std::find(begin, lines().end(), line) == lines().end())
                        missed.push_back(line);
                }
                for (auto line = missed.rbegin(); line != missed.rend(); ++line) print(*line);
                store()->markRead(id, std::nullopt, nullptr);
            });
    }

    void didChange(const std::vector<VXIMConversation>& list) {
        for (const auto& one : list) {
            if (isCaughtUp_ && one.unreadCount > 0)
                store()->markRead(one.id, std::nullopt, nullptr);
        }
    }

    void didType(const std::string& line) {
        if (line.empty()) return;
        if (line.front() == '/') return obey(line);
        send(line);
    }

    void obey(const std::string& line) {
        const auto blank = line.find(' ');
        const auto command = line.substr(1, blank == std::string::npos ? blank : blank - 1);
        const auto argument = blank == std::string::npos ? "" : line.substr(blank + 1);
        const std::map<std::string, std::function<void()>> commands = {
            {"friend",
             [&] {
                 peer_ = Peer{argument, {}, {}};
             }},
            {"group",
             [&] {
                 peer_ = Peer{{}, argument, {}};
             }},
            {"room",
             [&] {
                 peer_ = Peer{{}, {}, argument};
             }},
            {"pause", [&] { client_->pause(); }},
            {"resume", [&] { client_->resume(); }},
            {"status", [&] { print(std::string("the session is ") + name(client_->status())); }},
            {"help", [&] { print(kHelp); }},
            {"quit", [&] { leave(); }},
        };
        const auto found = commands.find(command);
        if (found == commands.end()) return print("no such command; /help lists them");
        found->second();
    }

    void send(const std::string& text) {
        if (leaving_) return;
        if (!peer_.isNamed()) return didNotSend("to whom? Try /friend ID, /group ID or /room ID");
        const auto to = conversationOf(peer_);
        ++adding_;
        conversations_->sendText(
            text, to, [this, to, text](const auto& stored, const vexim::ErrorPtr& error) {
                --adding_;
                if (!stored) {
                    didNotSend("not accepted: " + explain(error) + ": " + shown(to, text));
                } else {
                    if (client_->status() != VXIMClientStatusOpened)
                        print("it waits for a connection: " + shown(to, text));
                    unreported_.emplace(stored->localId, to);
                    observe(to);
                    ask(stored->localId);
                }
                logOutWhenSettled();
                input_.go();
            });
    }

    std::string shown(const VXIMConversationId& to, const std::string& text) const {
        const std::string line =
            placeOf(to) + ", " + client_->currentUser()->uid().description() + ": " + text;
        return line.size() > kLongestShown ? line.substr(0, kLongestShown) + " …" : line;
    }

    void observe(const VXIMConversationId& conversation) {
        auto& observed = observed_[conversation];
        if (observed) return;
        observed = store()->observeMessages(
            conversation, kObserved, [this, conversation](const auto& change) {
                std::set<std::int64_t> seen;
                for (const auto& message : change.list) {
                    seen.insert(message.localId);
                    report(message);
                }
                for (const auto& [localId, to] : unreported_) {
                    if (to == conversation && !seen.contains(localId)) ask(localId);
                }
            });
    }

    void ask(std::int64_t localId) {
        store()->message(localId, [this](const std::optional<VXIMStoredMessage>& message,
                                         const vexim::ErrorPtr&) {
            if (message) report(*message);
        });
    }

    /// Reports a message that was delivered or has failed; ignores the others.
    void report(const VXIMStoredMessage& message) {
        const bool isFailed = message.state == VXIMStoredMessageFailed;
        if (!isFailed && message.state != VXIMStoredMessageConfirmed) return;
        if (unreported_.erase(message.localId) == 0) return;
        if (isFailed)
            didNotSend("not sent: " + explain(message.error) + ": " +
                       shown(message.conversation, message.text()));
        ++settled_;
        logOutWhenSettled();
        // Later, because the caller is still going through `unreported_`.
        vexim::MainQueue::shared().async([this] { input_.go(); });
    }

    void didNotSend(const std::string& reason) {
        print(reason);
        status_ = 1;
    }

    void leave() {
        if (leaving_ || client_->status() == VXIMClientStatusClosed || !client_->socketio())
            return end();
        leaving_ = true;
        input_.stop();
        waitForMore(settled_);
        logOutWhenSettled();
    }

    /// Waits on as long as results still arrive, then logs out.
    void waitForMore(std::size_t settledBefore) {
        vexim::MainQueue::shared().after(kPatience, [this, settledBefore] {
            settled_ > settledBefore ? waitForMore(settled_) : logOut();
        });
    }

    void logOutWhenSettled() {
        const bool isConnected = client_->status() == VXIMClientStatusOpened;
        if (leaving_ && adding_ == 0 && (unreported_.empty() || !isConnected)) logOut();
    }

    void logOut() {
        if (std::exchange(isLoggingOut_, true)) return;
        client_->logoutWithCompletion([this](bool, auto) { end(); });
        vexim::MainQueue::shared().after(kLogoutTimeout, [this] { end(); });
    }

    void end() {
        if (std::exchange(isEnding_, true)) return;
        if (const auto count = unreported_.size(); count > 0 && isKept_) {
            print(std::to_string(count) + (count == 1 ? " message waits" : " messages wait") +
                  " in the store, and will be sent in the next run");
        } else if (count > 0) {
            didNotSend(std::to_string(count) + (count == 1 ? " message was" : " messages were") +
                       " not sent, or not sent back");
        }
        list_ = nullptr;
        observed_.clear();
        store()->close([this](bool, const vexim::ErrorPtr&) { loop_.quit(); });
        vexim::MainQueue::shared().after(kClosingTimeout, [this] { loop_.quit(); });
    }

    const std::shared_ptr<VXIMConversations> conversations_;
    const std::shared_ptr<VXIMClient> client_;
    Peer peer_;
    const bool isKept_;  // the store is a file, which outlives this run
    const bool isJSON_;
    HostLoop loop_;
    InputLines input_{loop_, [this] { return isBusy(); },
                      [this](const std::string& line) { didType(line); },
                      [this] {
                          if (!leaving_) leave();
                      }};
    const std::shared_ptr<PlaceNames> names_ = std::make_shared<PlaceNames>();
    std::shared_ptr<int> alive_ = std::make_shared<int>();  // its observers live as long as this
    std::shared_ptr<VXIMStoreObservation> list_;
    std::map<VXIMConversationId, std::shared_ptr<VXIMStoreObservation>> observed_;
    // sent in this run; neither delivered nor failed yet
    std::map<std::int64_t, VXIMConversationId> unreported_;
    // not yet accepted by the store
    std::size_t adding_ = 0;
    std::size_t settled_ = 0;
    std::size_t heardBefore_ = 0;  // the number of lines at the last login
    bool isCaughtUp_ = false;
    bool isLoggedIn_ = false;
    bool leaving_ = false;  // a second /quit leaves at once
    bool isLoggingOut_ = false;
    bool isEnding_ = false;
    int status_ = 0;
};

}  // namespace

int runPlainChat(const std::shared_ptr<VXIMConversations>& conversations, const Given& given) {
    auto chat = std::make_shared<PlainChat>(conversations, given);
    conversations->client()->setDelegate(chat);
    return chat->run(given.credentials);
}
