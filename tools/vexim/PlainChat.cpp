#include "PlainChat.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>

#include "Explain.h"
#include "HostLoop.h"
#include "Inbox.h"
#include "Send.h"
#include "VexIMLib/VexIMLib.h"
#include "chat/Text.h"

namespace {

// A service that hangs answers neither.
constexpr std::chrono::seconds kLoginTimeout{30};
constexpr std::chrono::seconds kLogoutTimeout{10};

constexpr const char* kHelp =
    "  /friend ID   talk to a friend       /group ID   to a group       /room ID   to a room\n"
    "  /pause       close the connection   /resume     open it again    /status    where the session stands\n"
    "  /quit        log out and leave      anything else is sent";

/// Others have a say in it: what a terminal would obey is left out.
void print(const std::string& line) {
    std::printf("%s\n", chat::harmless(line).c_str());
    std::fflush(stdout);
}

const char* name(VXIMClientStatus status) {
    switch (status) {
        case VXIMClientStatusNone: return "not logged in";
        case VXIMClientStatusOpening: return "logging in";
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
            alive_, "socket.io.error", client_.get(), [this](const vexim::Notification& notification) {
                print("connection: " + notification.userInfo.value_or(vexim::Dictionary()).get("data").get(0).description());
                if (!isLoggedIn_) end(1);  // a first connection that fails is not tried again, and the login never answered
            });
        credentials.logIn(*client_, [this](bool succeeded, auto error) { didLogIn(succeeded, error); });
        vexim::MainQueue::shared().after(kLoginTimeout, [this] {
            if (!isLoggedIn_) didLogIn(false, nullptr);
        });
        loop_.run();
        return status_;
    }

protected:
    void wrote(const std::string& line) override { print(line); }

private:
    void didLogIn(bool succeeded, const vexim::ErrorPtr& error) {
        if (!succeeded) {
            print("login failed: " + explain(error));
            return end(1);
        }
        isLoggedIn_ = true;
        print("logged in as " + client_->currentUser()->uid().description() + "; /help tells the commands");
        loop_.watch(STDIN_FILENO, [this](bool) { read(); });  // no sooner: what a script sends would go nowhere
    }

    void read() {
        std::array<char, 4096> bytes{};
        const auto count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
        if (count > 0) typed_.append(bytes.data(), static_cast<std::size_t>(count));
        for (auto end = typed_.find('\n'); end != std::string::npos; end = typed_.find('\n')) {
            didType(typed_.substr(0, end));
            typed_.erase(0, end + 1);
        }
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
        auto message = VXIMMessage::messageWithText(text);
        const auto report = [](bool sent, const vexim::ErrorPtr& error) {
            if (!sent) print("not sent: " + explain(error));
        };
        if (!peer_.isNamed()) return print("to whom? Try /friend ID, /group ID or /room ID");
        address(*message, peer_);
        client_->sendMessage(message, report);
    }

    void leave() {
        if (leaving_ || client_->status() == VXIMClientStatusClosed || !client_->socketio()) return end(status_);
        leaving_ = true;
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
