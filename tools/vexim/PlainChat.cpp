#include "PlainChat.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>

#include "Explain.h"
#include "HostLoop.h"
#include "Inbox.h"
#include "Login.h"
#include "Send.h"
#include "VexIMLib/VexIMLib.h"
#include "chat/Text.h"

namespace {

// A service that hangs does not answer.
constexpr std::chrono::seconds kLogoutTimeout{10};
// The service drops what goes to nobody without a word, and sends back what it delivers.
constexpr std::chrono::seconds kPatience{5};

// Bytes of a message that was not sent.
constexpr std::size_t kLongestShown = 500;

constexpr const char* kHelp =
    "  /friend ID   talk to a friend       /group ID   to a group       /room ID   to a room\n"
    "  /pause       close the connection   /resume     open it again    /status    where the session stands\n"
    "  /quit        log out and leave      anything else is sent";

int printError = 0;  // why standard output does not take any more: `errno`

/// Others have a say in it: what a terminal would obey is left out.
void print(const std::string& line) {
    if (std::printf("%s\n", chat::harmless(line).c_str()) < 0 || std::fflush(stdout) != 0) printError = errno;
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

class PlainChat : public Inbox {
public:
    PlainChat(std::shared_ptr<VXIMClient> client, Peer peer) : client_(std::move(client)), peer_(std::move(peer)) {}

    int run(const Credentials& credentials) {
        vexim::NotificationCenter::defaultCenter().addObserver(
            alive_, VXIMClientConnectionErrorNotification, client_.get(), [this](const vexim::Notification& notification) {
                if (isLoggedIn_) print("connection: " + vexim::connectionError(notification)->localizedDescription());
            });
        logInOnce(client_, credentials, [this](const std::string& complaint) { didLogIn(complaint); });
        loop_.run([this] {
            if (printError != 0) throw std::runtime_error(std::string("cannot write the output: ") + std::strerror(printError));
        });
        return status_;
    }

protected:
    void wrote(const std::string& line) override {
        print(line);
        didConfirm(line);
    }

private:
    void didLogIn(const std::string& complaint) {
        if (!complaint.empty()) {
            print(complaint);
            return end(1);
        }
        isLoggedIn_ = true;
        print("logged in as " + client_->currentUser()->uid().description() + "; /help tells the commands");
        loop_.watch(STDIN_FILENO, [this](bool) { read(); });  // no sooner: what a script sends would go nowhere
    }

    void read() {
        std::array<char, 65'536> bytes{};
        const auto count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
        const auto known = typed_.size();  // a long line is not searched again and again
        if (count > 0) typed_.append(bytes.data(), static_cast<std::size_t>(count));
        std::size_t begin = 0;
        for (auto end = typed_.find('\n', known); end != std::string::npos; end = typed_.find('\n', begin)) {
            didType(typed_.substr(begin, end - begin));
            begin = end + 1;
        }
        typed_.erase(0, begin);
        if (count > 0) return;
        if (!typed_.empty()) didType(std::exchange(typed_, {}));  // the last line needs no end
        loop_.unwatch(STDIN_FILENO);
        if (!leaving_) leave();
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
        if (found == commands.end()) return print("no such command; /help tells them");
        found->second();
    }

    void send(const std::string& text) {
        if (leaving_) return;
        auto message = VXIMMessage::messageWithText(text);
        if (!peer_.isNamed()) return didNotSend("to whom? Try /friend ID, /group ID or /room ID");
        address(*message, peer_);
        const std::string place = peer_.friendId  ? "friend " + *peer_.friendId
                                  : peer_.groupId ? "group " + *peer_.groupId
                                                  : "room " + *peer_.roomId;
        const std::string echo = place + ", " + client_->currentUser()->uid().description() + ": " + text;
        const auto number = ++lastSent_;
        unconfirmed_.emplace(number, echo);
        client_->sendMessage(message, [this, number](bool sent, const vexim::ErrorPtr& error) {
            if (!sent) didFail(number, "not sent: " + explain(error));
        });
        vexim::MainQueue::shared().after(kPatience, [this, number] { didFail(number, "the service has not sent it back"); });
    }

    void didConfirm(const std::string& line) {
        const auto found =
            std::find_if(unconfirmed_.begin(), unconfirmed_.end(), [&](const auto& one) { return one.second == line; });
        if (found == unconfirmed_.end()) return;
        unconfirmed_.erase(found);
        logOutWhenConfirmed();
    }

    void didFail(std::uint64_t number, const std::string& reason) {
        const auto found = unconfirmed_.find(number);
        if (found == unconfirmed_.end()) return;
        const auto& echo = found->second;
        didNotSend(reason + ": " + (echo.size() > kLongestShown ? echo.substr(0, kLongestShown) + " …" : echo));
        unconfirmed_.erase(found);
        logOutWhenConfirmed();
    }

    void didNotSend(const std::string& reason) {
        print(reason);
        status_ = 1;
    }

    void leave() {
        if (leaving_ || client_->status() == VXIMClientStatusClosed || !client_->socketio()) return end(status_);
        leaving_ = true;
        logOutWhenConfirmed();
    }

    void logOutWhenConfirmed() {
        if (!leaving_ || !unconfirmed_.empty()) return;
        client_->logoutWithCompletion([this](bool, auto) { end(status_); });
        vexim::MainQueue::shared().after(kLogoutTimeout, [this] { end(status_); });
    }

    void end(int status) {
        status_ = status;
        loop_.quit();
    }

    std::shared_ptr<VXIMClient> client_;
    Peer peer_;
    HostLoop loop_;
    std::string typed_;                                     // of a line that is not whole yet
    std::shared_ptr<int> alive_ = std::make_shared<int>();  // observes as long as this lives
    std::map<std::uint64_t, std::string> unconfirmed_;      // what was sent, as it will be heard
    std::uint64_t lastSent_ = 0;
    bool isLoggedIn_ = false;
    bool leaving_ = false;  // a second /quit does not wait for the service
    int status_ = 0;
};

}  // namespace

int runPlainChat(const std::shared_ptr<VXIMClient>& client, const Credentials& credentials, const Peer& peer) {
    auto chat = std::make_shared<PlainChat>(client, peer);
    client->setDelegate(chat);
    return chat->run(credentials);
}
