#include "Demo.h"

#include <memory>
#include <string>

#include "Explain.h"
#include "Inbox.h"
#include "Transcript.h"
#include "VexIMLib/VexIMLib.h"

namespace {

// The two users, the group and the room with which the development service starts.
constexpr const char* kAlice = "alice";
constexpr const char* kBob = "bob";
constexpr const char* kBobsPassword = "bob-secret";
constexpr const char* kGroup = "demo-group";
constexpr const char* kRoom = "demo-room";

/// What an operation answered, once it has.
struct Answer {
    bool arrived = false;
    bool succeeded = false;
    vexim::ErrorPtr error;

    std::string text() const {
        if (!arrived) return "no answer";
        if (succeeded) return "success";
        return explain(error);
    }
};

VXIMBooleanCompletion into(const std::shared_ptr<Answer>& answer) {
    return [answer](bool succeeded, vexim::ErrorPtr error) { *answer = {true, succeeded, std::move(error)}; };
}

class Story {
public:
    explicit Story(const Account& account)
        : alice_(account.makeClient()),
          bob_(account.makeClient()),
          aliceHears_(std::make_shared<Inbox>()),
          bobHears_(std::make_shared<Inbox>()) {
        alice_->setDelegate(aliceHears_);
        bob_->setDelegate(bobHears_);
    }

    bool tell() {
        logIn() && chat() && pauseAndResume() && logOut();  // each chapter stands on the one before
        transcript_.finish();
        return transcript_.allHeld();
    }

private:
    bool logIn() {
        transcript_.say("Logging in");
        auto answer = std::make_shared<Answer>();
        alice_->loginWithUserId(kAlice, into(answer));
        if (!succeeds("alice logs in with her user id", answer)) return false;
        expectStatus("her session is open", *alice_, VXIMClientStatusOpened);

        auto refused = std::make_shared<Answer>();
        bob_->loginWithUsername(kBob, "not-his-password", into(refused));
        refuses("bob is refused with a wrong password", refused, VXIMErrorDomain, std::nullopt);

        answer = std::make_shared<Answer>();
        bob_->loginWithUsername(kBob, kBobsPassword, into(answer));
        if (!succeeds("bob logs in with user name and password", answer)) return false;
        expectHeard("alice sees bob come online", *aliceHears_, "online bob");
        return true;
    }

    bool chat() {
        transcript_.say("Chatting");
        auto sent = send([&](auto message, auto done) { alice_->sendMessageToFriend(message, kBob, done); }, "hello, bob");
        succeeds("alice sends a text to her friend bob", sent);
        expectHeard("bob receives it from his friend alice", *bobHears_, "friend alice, alice: hello, bob");
        expectHeard("alice gets the echo of her own message", *aliceHears_, "friend bob, alice: hello, bob");

        sent = send([&](auto message, auto done) { bob_->sendMessageToGroup(message, kGroup, done); }, "hello, group");
        succeeds("bob sends a text to the group", sent);
        expectHeard("alice receives it from the group", *aliceHears_, "group demo-group, bob: hello, group");

        sent = send([&](auto message, auto done) { alice_->sendMessageToRoom(message, kRoom, done); }, "hello, room");
        succeeds("alice sends a text to the room", sent);
        expectHeard("bob receives it from the room", *bobHears_, "room demo-room, alice: hello, room");

        sent = send([&](auto message, auto done) { alice_->sendSystemMessageToUser(message, kBob, done); }, "maintenance at noon");
        succeeds("a system message for bob is posted", sent);
        expectHeard("bob receives the system message", *bobHears_, "system: maintenance at noon");
        return transcript_.allHeld();
    }

    bool pauseAndResume() {
        transcript_.say("Pausing and resuming");
        bob_->pause();
        expectStatus("bob pauses", *bob_, VXIMClientStatusPaused);
        expectHeard("alice sees bob go offline", *aliceHears_, "offline bob");
        auto failed = send([&](auto message, auto done) { bob_->sendMessageToFriend(message, kAlice, done); }, "can you hear me?");
        refuses("a send while paused fails", failed, VXIMErrorDomain, "Message cannot send when connection disconnected");

        bob_->resume();
        expectStatus("bob resumes", *bob_, VXIMClientStatusOpened);
        expectHeard("alice sees bob come back", *aliceHears_, "online bob", 2);
        auto sent = send([&](auto message, auto done) { bob_->sendMessageToFriend(message, kAlice, done); }, "back again");
        succeeds("bob sends a text to alice", sent);
        expectHeard("alice receives it", *aliceHears_, "friend bob, bob: back again");
        return transcript_.allHeld();
    }

    bool logOut() {
        transcript_.say("Logging out");
        auto answer = std::make_shared<Answer>();
        alice_->logoutWithCompletion(into(answer));
        succeeds("alice logs out", answer);
        expectStatus("her session is closed", *alice_, VXIMClientStatusClosed);
        expectHeard("bob sees alice go offline", *bobHears_, "offline alice");
        answer = std::make_shared<Answer>();
        bob_->logoutWithCompletion(into(answer));
        succeeds("bob logs out", answer);
        return transcript_.allHeld();
    }

    template <class Send>
    std::shared_ptr<Answer> send(Send&& sendVia, const char* text) {
        auto answer = std::make_shared<Answer>();
        sendVia(VXIMMessage::messageWithText(text), into(answer));
        return answer;
    }

    bool succeeds(const std::string& step, const std::shared_ptr<Answer>& answer) {
        return transcript_.expect(
                   step, [&] { return answer->arrived; }, [&] { return answer->text(); }) &&
               (answer->succeeded ||
                transcript_.expect(
                    step + ", with success", [&] { return answer->succeeded; }, [&] { return answer->text(); }));
    }

    void refuses(const std::string& step, const std::shared_ptr<Answer>& answer, const std::string& domain,
                 std::optional<std::string> description) {
        const auto refused = [&] {
            return answer->arrived && !answer->succeeded && answer->error && answer->error->domain() == domain &&
                   (!description || answer->error->localizedDescription() == *description);
        };
        transcript_.expect(step, refused, [&] { return answer->text(); });
    }

    void expectStatus(const std::string& step, const VXIMClient& client, VXIMClientStatus status) {
        transcript_.expect(
            step, [&] { return client.status() == status; }, [&] { return "status " + std::to_string(client.status()); });
    }

    void expectHeard(const std::string& step, const Inbox& inbox, const std::string& line, std::ptrdiff_t times = 1) {
        transcript_.expect(
            step, [&] { return inbox.count(line) >= times; }, [&] { return inbox.text(); });
    }

    Transcript transcript_{std::chrono::seconds(28)};
    std::shared_ptr<VXIMClient> alice_;
    std::shared_ptr<VXIMClient> bob_;
    std::shared_ptr<Inbox> aliceHears_;
    std::shared_ptr<Inbox> bobHears_;
};

}  // namespace

int runDemo(const Account& account) { return Story(account).tell() ? 0 : 1; }
