// The library in the program's own event loop: poll the queue's descriptor, then call turn().
#include <VexIMLib/VexIMLib.h>
#include <poll.h>

#include <iostream>
#include <optional>

int main(int, char** arguments) {
    auto client = VXIMClient::clientWithAppId("demo-app", "demo-key", "my-laptop");
    client->config()->setSocketURL(vexim::URL::parse(arguments[1]));

    std::optional<bool> loggedIn;
    client->loginWithUserId("alice",
                            [&loggedIn](bool succeeded, vexim::ErrorPtr) { loggedIn = succeeded; });

    // [loop]
    auto& queue = vexim::MainQueue::shared();
    while (!loggedIn) {
        pollfd descriptors[] = {{queue.fileDescriptor(), POLLIN, 0}};  // and yours
        poll(descriptors, 1, queue.pollTimeout());
        queue.turn();
    }
    // [/loop]
    std::cout << (*loggedIn ? "logged in" : "not logged in") << '\n';
    return *loggedIn ? 0 : 1;
}
