// Logs in and sends with co_await, and gives up on what takes too long.
#include <VexIMLib/Async/Coroutine.h>
#include <VexIMLib/VexIMLib.h>

#include <iostream>

using namespace std::chrono_literals;

// [coroutine]
// A coroutine outlives its caller's arguments, so take parameters by value.
vexim::Task<bool> greet(std::shared_ptr<VXIMClient> client, std::string friendId) {
    auto [loggedIn, error] =
        co_await vexim::call(&VXIMClient::loginWithUserId, client, "alice").within(10s);
    if (!loggedIn) {
        std::cerr << "no login: " << (error ? error->localizedDescription() : "refused") << '\n';
        co_return false;
    }
    auto message = VXIMMessage::messageWithText("hello");
    auto sent = co_await vexim::call(&VXIMClient::sendMessageToFriend, client, message, friendId);

    if (!sent) co_return false;

    // The name has overloads, so call it in a lambda that says which completion it takes.
    auto again = co_await vexim::call(
        [&](VXIMBooleanCompletion done) { client->sendMessage(message, std::move(done)); });
    co_return static_cast<bool>(again);
}
// [/coroutine]

int main(int, char** arguments) {
    auto client = VXIMClient::clientWithAppId("demo-app", "demo-key", "my-laptop");
    client->config()->setSocketURL(vexim::URL::parse(arguments[1]));

    // [wait]
    // in a program that runs an event loop: vexim::spawn(…)
    bool sent = vexim::wait(greet(client, "bob"));
    // [/wait]
    std::cout << (sent ? "sent" : "not sent") << '\n';
    return sent ? 0 : 1;
}
