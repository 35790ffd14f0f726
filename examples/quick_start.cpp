#include <VexIMLib/VexIMLib.h>

#include <iostream>

int main(int, char** arguments) {
    auto client = VXIMClient::clientWithAppId("demo-app", "demo-key", "my-laptop");
    client->config()->setSocketURL(vexim::URL::parse(arguments[1]));

    bool sent = false;
    client->loginWithUserId("alice", [client, &sent](bool loggedIn, vexim::ErrorPtr) {
        if (!loggedIn) return vexim::MainQueue::shared().quit();
        client->sendMessageToFriend(VXIMMessage::messageWithText("hello"), "bob", [&sent](bool success, vexim::ErrorPtr) {
            sent = success;
            vexim::MainQueue::shared().quit();
        });
    });
    vexim::MainQueue::shared().run();
    std::cout << (sent ? "sent" : "not sent") << '\n';
    return sent ? 0 : 1;
}
