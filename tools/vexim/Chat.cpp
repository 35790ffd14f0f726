#include "Chat.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
// readline wants stdio before it
#include <readline/history.h>
#include <readline/readline.h>

#include "Explain.h"
#include "HostLoop.h"
#include "Inbox.h"
#include "Send.h"
#include "VexIMLib/VexIMLib.h"

namespace {

constexpr const char* kHelp =
    "  /friend ID   talk to a friend       /group ID   to a group       /room ID   to a room\n"
    "  /pause       close the connection   /resume     open it again    /status    where the session stands\n"
    "  /quit        log out and leave      anything else is sent";

/// Prints above the line that is being typed, and leaves that as it was.
void printAbove(const std::string& line) {
    const bool editing = RL_ISSTATE(RL_STATE_CALLBACK) != 0;
    if (editing) rl_clear_visible_line();
    std::printf("%s\n", line.c_str());
    if (editing) {
        rl_on_new_line();
        rl_redisplay();
    }
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

class Chat : public Inbox {
public:
    Chat(std::shared_ptr<VXIMClient> client, Peer peer) : client_(std::move(client)), peer_(std::move(peer)) {}

    int run(const Credentials& credentials) {
        vexim::NotificationCenter::defaultCenter().addObserver(
            alive_, "socket.io.error", client_.get(), [](const vexim::Notification& notification) {
                printAbove("connection: " + notification.userInfo.value_or(vexim::Dictionary()).get("data").get(0).description());
            });
        credentials.logIn(*client_, [this](bool succeeded, auto error) { didLogIn(succeeded, error); });
        current = this;
        rl_callback_handler_install("> ", [](char* line) { current->didType(line); });
        loop_.run([] { rl_callback_read_char(); });
        rl_callback_handler_remove();
        current = nullptr;
        return status_;
    }

protected:
    void wrote(const std::string& line) override { printAbove(line); }

private:
    void didLogIn(bool succeeded, const vexim::ErrorPtr& error) {
        if (succeeded)
            return printAbove("logged in as " + client_->currentUser()->uid().description() + "; /help tells the commands");
        printAbove("login failed: " + explain(error));
        end(1);
    }

    void didType(char* typed) {
        if (typed == nullptr) return leave();  // the end of the input
        const std::string line(typed);
        std::free(typed);
        if (line.empty()) return;
        add_history(line.c_str());
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
            {"status", [&] { printAbove(std::string("the session is ") + name(client_->status())); }},
            {"help", [&] { printAbove(kHelp); }},
            {"quit", [&] { leave(); }},
        };
        const auto found = commands.find(command);
        if (found == commands.end()) return printAbove("no such command; /help tells them");
        found->second();
    }

    void send(const std::string& text) {
        auto message = VXIMMessage::messageWithText(text);
        const auto report = [](bool sent, const vexim::ErrorPtr& error) {
            if (!sent) printAbove("not sent: " + explain(error));
        };
        if (!peer_.isNamed()) return printAbove("to whom? Try /friend ID, /group ID or /room ID");
        address(*message, peer_);
        client_->sendMessage(message, report);
    }

    void leave() {
        if (leaving_ || client_->status() == VXIMClientStatusClosed || !client_->socketio()) return end(status_);
        leaving_ = true;
        client_->logoutWithCompletion([this](bool, auto) { end(status_); });
    }

    void end(int status) {
        status_ = status;
        loop_.quit();
    }

    static inline Chat* current = nullptr;  // readline's callback carries no context

    std::shared_ptr<VXIMClient> client_;
    Peer peer_;
    HostLoop loop_;
    std::shared_ptr<int> alive_ = std::make_shared<int>();  // observes as long as this lives
    bool leaving_ = false;                                  // a second /quit does not wait for the service
    int status_ = 0;
};

}  // namespace

int runChat(const Account& account, const Credentials& credentials, const Peer& peer) {
    auto client = account.makeClient();
    auto chat = std::make_shared<Chat>(client, peer);
    client->setDelegate(chat);
    return chat->run(credentials);
}
