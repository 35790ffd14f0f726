// Shows what went wrong: at once, in the log, and afterwards as a report that contains no secrets.
#include <VexIMLib/VexIMLib.h>

#include <iostream>

int main() {
    // [log]
    vexim::setLogSink(vexim::LogLevel::Info, [](vexim::LogLevel, std::string_view line) {
        std::clog << "log: " + std::string(line) + "\n";
    });
    // [/log]

    auto client = VXIMClient::clientWithAppId("demo-app", "demo-key", "my-laptop");
    // nobody listens on this port
    client->config()->setSocketURL(vexim::URL::parse("http://127.0.0.1:1"));

    auto observer = std::make_shared<int>();  // it observes as long as it lives
    // [trouble]
    vexim::NotificationCenter::defaultCenter().addObserver(
        observer, VXIMClientConnectionErrorNotification, client.get(),
        [](const vexim::Notification& trouble) {
            const auto error = vexim::connectionError(trouble);
            // "Could not connect: Connection refused."
            std::cerr << error->localizedDescription() << '\n';
            if (error->code() == VXIMConnectionErrorUnreachable)
                std::cerr << "Is the service running?\n";
            vexim::MainQueue::shared().quit();
        });
    // [/trouble]
    client->loginWithUserId("alice", {});
    vexim::MainQueue::shared().run();

    // [report]
    std::cout << client->diagnose().text();  // or .json()
    // [/report]
    return client->diagnose().events().empty() ? 1 : 0;
}
