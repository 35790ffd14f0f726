// What an installed test kit must be able to do in a stranger's tests: bring the library along,
// answer both its interfaces, and turn the library's time, though that may be a shared library.
#include <VexIMLib/Testing/FakeService.h>
#include <VexIMLib/Testing/ManualClock.h>
#include <VexIMLib/VexIMLib.h>

#include <cstdio>

int main() {
    vexim::testing::ManualClock clock;
    vexim::testing::FakeService service;
    service.answer("GET", "/ctx/:id", {.status = 503}, 2);
    const auto client = VXIMClient::clientWithConfiguration(service.configuration());
    bool loggedIn = false;
    client->loginWithUserId("alice",
                            [&](bool succeeded, const vexim::ErrorPtr&) { loggedIn = succeeded; });
    if (!clock.runUntil([&] { return loggedIn; })) return 1;

    bool fetched = false;
    client->currentUser()->fetchWithCompletion(
        [&](bool succeeded, const vexim::ErrorPtr&) { fetched = succeeded; });
    const bool ended = clock.runUntil([&] { return fetched; });
    std::printf("test kit: logged in %d, fetched %d with %zu requests\n", loggedIn, fetched,
                service.requests().size());
    return ended && service.requests().size() == 3 ? 0 : 1;
}
