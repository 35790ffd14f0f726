// A bot that repeats what it is told, until it is told "bye" or the system ends it.
//   echo_bot URL [USER PASSWORD]

#include <VexIMLib/Async/Coroutine.h>
#include <VexIMLib/VexIMLib.h>

#include <chrono>
#include <csignal>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

using namespace std::chrono_literals;

namespace {

class EchoBot final : public VXIMClientDelegate, public std::enable_shared_from_this<EchoBot> {
public:
    EchoBot(std::shared_ptr<VXIMClient> client, std::string name, std::string password)
        : client_(std::move(client)),
          name_(std::move(name)),
          password_(std::move(password)) {}

    void start() {
        client_->setDelegate(shared_from_this());
        vexim::spawn(logIn(shared_from_this()));
    }

    /// A logout ends when the connection has closed. It never ends without a connection, so there
    /// is a time limit.
    void stop() {
        const auto quit = [] { vexim::MainQueue::shared().quit(); };
        client_->logoutWithCompletion([quit](bool, vexim::ErrorPtr) { quit(); });
        vexim::MainQueue::shared().after(5s, quit);
    }

    /// The connection was restored, but the service refused the login.
    void clientDidFailToLoginAgain(const std::shared_ptr<VXIMClient>&,
                                   const vexim::ErrorPtr&) override {
        vexim::spawn(logIn(shared_from_this()));
    }

    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>& client,
                                           const std::shared_ptr<VXIMMessage>& message,
                                           const std::shared_ptr<VXIMFriendInfo>& from) override {
        // the echo of our own message
        if (vexim::idsEqual(message->sender()->userId(), client->currentUser()->uid())) return;
        const auto text = message->text().value_or("?");
        client->sendMessageToFriend(
            VXIMMessage::messageWithText(text), from->uid(), [](bool sent, vexim::ErrorPtr error) {
                if (!sent) std::cerr << "not sent: " << error->localizedDescription() << '\n';
            });
        if (text == "bye") stop();
    }

private:
    /// Tries until it succeeds. Each attempt ends at once with the reason if there is no connection
    /// or it breaks.
    static vexim::Task<> logIn(std::shared_ptr<EchoBot> self) {
        auto [loggedIn, error] = co_await vexim::call(&VXIMClient::loginWithUsername, self->client_,
                                                      self->name_, self->password_)
                                     .within(1min);
        std::cout << (loggedIn ? "logged in" : "not logged in: " + error->localizedDescription())
                  << std::endl;
        if (loggedIn) co_return;
        vexim::MainQueue::shared().after(1min, [weak = self->weak_from_this()] {
            if (auto again = weak.lock()) vexim::spawn(logIn(std::move(again)));
        });
    }

    const std::shared_ptr<VXIMClient> client_;
    const std::string name_, password_;
};

}  // namespace

int main(int count, char** arguments) {
    if (count != 2 && count != 4) return 2;
    // Only the thread that waits for these signals gets them: every thread that is started later
    // inherits that they are blocked.
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);

    vexim::setKeepsFinishedDelegates(false);  // forget requests that have ended
    auto client = VXIMClient::clientWithAppId("demo-app", "demo-key", "echo-bot");
    client->config()->setSocketURL(vexim::URL::parse(arguments[1]));

    const auto bot = std::make_shared<EchoBot>(client, count == 4 ? arguments[2] : "bob",
                                               count == 4 ? arguments[3] : "bob-secret");
    bot->start();

    std::thread([ending, weak = std::weak_ptr<EchoBot>(bot)] {
        int signal = 0;
        sigwait(&ending, &signal);
        vexim::MainQueue::shared().async([weak] {
            if (const auto running = weak.lock()) running->stop();
        });
    }).detach();

    vexim::MainQueue::shared().run();
}
