// The library in a program that runs a GLib loop, like every GTK program.
#include <VexIMLib/Loops/Glib.h>
#include <VexIMLib/VexIMLib.h>

#include <iostream>

int main(int, char** arguments) {
    auto client = VXIMClient::clientWithAppId("demo-app", "demo-key", "my-laptop");
    client->config()->setSocketURL(vexim::URL::parse(arguments[1]));

    GMainLoop* mainLoop = g_main_loop_new(nullptr, FALSE);
    bool loggedIn = false;
    {
        vexim::GlibLoop loop;
        client->loginWithUserId("alice", [mainLoop, &loggedIn](bool succeeded, vexim::ErrorPtr) {
            loggedIn = succeeded;
            g_main_loop_quit(mainLoop);
        });
        g_main_loop_run(mainLoop);
    }
    g_main_loop_unref(mainLoop);
    std::cout << (loggedIn ? "logged in" : "not logged in") << '\n';
    return loggedIn ? 0 : 1;
}
