#include <VexIMLib/Async/Future.h>
#include <VexIMLib/VexIMLib.h>
#include <chrono>
#include <iostream>

using namespace std::chrono_literals;
int main(int count, char** arguments) {
    if (count != 2) return 2;  // the service's URL
    auto client = VXIMClient::clientWithAppId("demo-app", "demo-key", "my-laptop");
    client->config()->setSocketURL(vexim::URL::parse(arguments[1]));
    try {
        vexim::wait(vexim::call(&VXIMClient::loginWithUserId, client, "alice").within(10s));
        auto message = VXIMMessage::messageWithText("hello");
        vexim::wait(
            vexim::call(&VXIMClient::sendMessageToFriend, client, message, "bob").within(10s));
        std::cout << "sent\n";
    } catch (const vexim::Failure& failure) {
        std::cout << "not sent: " << failure.what() << '\n' << client->diagnose().text();
        return 1;
    }
}
