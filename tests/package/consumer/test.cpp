// Checks an installed test kit in another program's tests: it links the library, answers on both
// interfaces, and advances the clock of the library, even if that is a shared one.
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
