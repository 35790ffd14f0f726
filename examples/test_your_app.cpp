#include <VexIMLib/Testing/FakeService.h>
#include <VexIMLib/Testing/ManualClock.h>
#include <VexIMLib/VexIMLib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

using vexim::testing::FakeService;
using vexim::testing::ManualClock;

// [application]
// The application: it greets everyone who writes to it, by nickname.
class Greeter final : public VXIMClientDelegate {
public:
    static std::shared_ptr<Greeter> start(
        const std::shared_ptr<VXIMClientConfiguration>& configuration) {
        auto greeter = std::make_shared<Greeter>();
        greeter->client_ = VXIMClient::clientWithConfiguration(configuration);
        greeter->client_->setDelegate(greeter);
        greeter->client_->loginWithUserId("alice", {});
        return greeter;
    }
    bool isOnline() const {
        return client_->status() == VXIMClientStatusOpened && client_->currentUser()->online();
    }

    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>& client,
                                           const std::shared_ptr<VXIMMessage>& message,
                                           const std::shared_ptr<VXIMFriendInfo>& from) override {
        // the echo of our own message
        if (vexim::idsEqual(message->sender()->userId(), client->currentUser()->uid())) return;
        auto user = VXIMUser::userWithId(from->uid());
        user->getAttributeForKey(
            "nick", [client, user](const vexim::Value& nick, const vexim::ErrorPtr&) {
                const auto hello =
                    VXIMMessage::messageWithText("Hello " + nick.asString().value_or("stranger"));
                client->sendMessageToFriend(hello, user->uid().asString(), {});
            });
    }

private:
    std::shared_ptr<VXIMClient> client_;
};
// [/application]

// Its test. It needs no network and takes milliseconds, although it covers a minute.
void expect(bool holds, const char* what) {
    std::printf("%s: %s\n", holds ? "ok" : "FAILED", what);
    if (!holds) std::exit(1);
}

int main() {
    // [begin]
    ManualClock clock;    // first, because it must outlive whatever waits by it
    FakeService service;  // alice and bob exist, and are friends
    auto configuration = service.configuration();
    configuration->setAutoReconnect(true);

    auto greeter = Greeter::start(configuration);
    expect(clock.runUntil([&] { return greeter->isOnline(); }), "it logs in");
    // [/begin]

    // [say]
    const auto greets = [&](const std::string& expected) {
        service.forgetWhatCame();
        service.say("bob", "alice", "hi");
        return clock.runUntil([&] { return !service.messages().empty(); }) &&
               service.messages().front().body() == expected;
    };
    expect(greets("Hello Bob"), "it greets by nick name");
    // [/say]

    // [faults]
    service.answer("GET", "/ctx/:id/attributes/nick", {.status = 503}, 2);
    expect(greets("Hello Bob"), "an error that passes is waited out");
    expect(service.requests().size() == 3, "with two retries");

    service.answer("GET", "/ctx/:id/attributes/nick",
                   {.status = 404, .body = vexim::Dictionary{{"errorCode", 1201}}});
    expect(greets("Hello stranger"), "an error that stays is lived with");
    // [/faults]

    // [down]
    service.stop();
    expect(clock.runUntil([&] { return !greeter->isOnline(); }),
           "it notices that the service is down");
    clock.advance(std::chrono::minutes(1));
    service.start();
    expect(clock.runUntil([&] { return greeter->isOnline() && service.connections("alice") == 1; }),
           "it comes back by itself");
    // [/down]
    expect(greets("Hello Bob"), "and still greets");
}
