// The library in a program that runs an asio loop.
#include <VexIMLib/Loops/Asio.h>
#include <VexIMLib/VexIMLib.h>

#include <boost/asio/io_context.hpp>
#include <iostream>

int main(int, char** arguments) {
    auto client = VXIMClient::clientWithAppId("demo-app", "demo-key", "my-laptop");
    client->config()->setSocketURL(vexim::URL::parse(arguments[1]));

    // [loop]
    boost::asio::io_context io;
    vexim::AsioLoop loop(io.get_executor());
    bool loggedIn = false;
    client->loginWithUserId("alice", [&io, &loggedIn](bool succeeded, vexim::ErrorPtr) {
        loggedIn = succeeded;
        io.stop();
    });
    io.run();
    // [/loop]
    std::cout << (loggedIn ? "logged in" : "not logged in") << '\n';
    return loggedIn ? 0 : 1;
}
