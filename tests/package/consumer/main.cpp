// Checks an installed library in another program: that it links everything it needs, runs its
// threads and uses HTTP, and that the program can derive from its classes and catch its exceptions.
#include <VexIMLib/Async/Coroutine.h>
#include <VexIMLib/Async/Future.h>
#include <VexIMLib/Loops/Asio.h>
#include <VexIMLib/VexIMLib.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#if defined(VEXIM_STATIC)
constexpr const char* kLinked = "static";
#else
constexpr const char* kLinked = "shared";
#endif

struct Delegate : VXIMClientDelegate {};

int main(int, char** arguments) {
    if (std::string(arguments[1]) != kLinked) {
        std::printf("expected the %s library, but this is the %s one\n", arguments[1], kLinked);
        return 1;
    }
    vexim::setKeepsFinishedDelegates(false);
    const auto client = VXIMClient::clientWithAppId("app", "key", "installation");
    client->config()->setSocketURL(vexim::URL::parse("http://127.0.0.1:0"));
    const auto delegate = std::make_shared<Delegate>();
    client->setDelegate(delegate);

    bool raised = false;
    try {
        client->loginWithUserId(std::nullopt, nullptr);
    } catch (const vexim::Exception&) {
        raised = true;
    }

    // Nobody can listen on port 0, so the connection fails and the client says so.
    bool heard = false;
    vexim::NotificationCenter::defaultCenter().addObserver(
        delegate, VXIMClientConnectionErrorNotification, client.get(),
        [&heard](const vexim::Notification&) { heard = true; });
    client->loginWithUserId("u1", nullptr);
    vexim::MainQueue::shared().runUntil([&heard] { return heard; }, std::chrono::seconds(20));

    // The styles are compiled into the program; what they throw must be caught there.
    bool refused = false;
    try {
        vexim::wait(vexim::call(&VXIMRoom::fetchWithBlock, VXIMRoom::roomWithId("r1")));
    } catch (const vexim::Failure&) {
        refused = true;
    }
    const auto awaiting = [](std::shared_ptr<VXIMRoom> room) -> vexim::Task<bool> {
        co_return !co_await vexim::call(&VXIMRoom::fetchWithBlock, room)
            .within(std::chrono::milliseconds(0));
    };
    const bool awaited = vexim::wait(awaiting(VXIMRoom::roomWithId("r1")));

    std::printf("%s library: raised %d, heard %d, refused %d, awaited %d\n", kLinked, raised, heard,
                refused, awaited);
    return raised && heard && refused && awaited ? 0 : 1;
}
