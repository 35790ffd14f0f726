#include "Demo.h"

#include "Stage.h"

bool tellLogin(Stage& stage) {
    stage.transcript.say("Logging in");
    auto answer =
        Stage::login(stage.alice, {.userId = Stage::kAlice, .username = {}, .password = {}});
    if (!stage.succeeds("alice logs in with her user id", answer)) return false;
    stage.expectStatus("her session is open", *stage.alice, VXIMClientStatusOpened);

    answer = Stage::flag(
        [&](auto done) { stage.bob->loginWithUsername(Stage::kBob, "not-his-password", done); });
    stage.refuses("bob is refused with a wrong password", answer, VXIMErrorDomain);
    answer = Stage::flag(
        [&](auto done) { stage.bob->loginWithUsername(Stage::kBob, Stage::kBobsPassword, done); });
    if (!stage.succeeds("bob logs in with user name and password", answer)) return false;
    stage.expectHeard("alice sees bob come online", *stage.aliceHears, "online bob");
    return true;
}

bool tellChat(Stage& stage) {
    stage.transcript.say("Chatting");
    const auto text = [](const char* words) { return VXIMMessage::messageWithText(words); };

    auto sent = Stage::flag([&](auto done) {
        stage.alice->sendMessageToFriend(text("hello, bob"), Stage::kBob, done);
    });
    stage.succeeds("alice sends a text to her friend bob", sent);
    stage.expectHeard("bob receives it from his friend alice", *stage.bobHears,
                      "friend alice, alice: hello, bob");
    stage.expectHeard("alice gets the echo of her own message", *stage.aliceHears,
                      "friend bob, alice: hello, bob");

    sent = Stage::flag([&](auto done) {
        stage.bob->sendMessageToGroup(text("hello, group"), Stage::kGroup, done);
    });
    stage.succeeds("bob sends a text to the group", sent);
    stage.expectHeard("alice receives it from the group", *stage.aliceHears,
                      "group demo-group, bob: hello, group");

    sent = Stage::flag([&](auto done) {
        stage.alice->sendMessageToRoom(text("hello, room"), Stage::kRoom, done);
    });
    stage.succeeds("alice sends a text to the room", sent);
    stage.expectHeard("bob receives it from the room", *stage.bobHears,
                      "room demo-room, alice: hello, room");

    sent = Stage::flag([&](auto done) {
        stage.alice->sendSystemMessageToUser(text("maintenance at noon"), Stage::kBob, done);
    });
    stage.succeeds("a system message for bob is posted", sent);
    stage.expectHeard("bob receives the system message", *stage.bobHears,
                      "system: maintenance at noon");
    return true;
}

bool tellPauseAndResume(Stage& stage) {
    stage.transcript.say("Pausing and resuming");
    const auto sendToAlice = [&](const char* words) {
        return Stage::flag([&](auto done) {
            stage.bob->sendMessageToFriend(VXIMMessage::messageWithText(words), Stage::kAlice,
                                           done);
        });
    };
    stage.bob->pause();
    stage.expectStatus("bob pauses", *stage.bob, VXIMClientStatusPaused);
    stage.expectHeard("alice sees bob go offline", *stage.aliceHears, "offline bob");
    stage.refuses("a send while paused fails", sendToAlice("can you hear me?"), VXIMErrorDomain,
                  "Message cannot send when connection disconnected");

    stage.bob->resume();
    stage.expectStatus("bob resumes", *stage.bob, VXIMClientStatusOpened);
    stage.expectHeard("alice sees bob come back", *stage.aliceHears, "online bob", 2);
    stage.succeeds("bob sends a text to alice", sendToAlice("back again"));
    stage.expectHeard("alice receives it", *stage.aliceHears, "friend bob, bob: back again");
    return true;
}

bool tellLogout(Stage& stage) {
    stage.transcript.say("Logging out");
    stage.succeeds("alice logs out",
                   Stage::flag([&](auto done) { stage.alice->logoutWithCompletion(done); }));
    stage.expectStatus("her session is closed", *stage.alice, VXIMClientStatusClosed);
    stage.expectHeard("bob sees alice go offline", *stage.bobHears, "offline alice");
    stage.succeeds("bob logs out",
                   Stage::flag([&](auto done) { stage.bob->logoutWithCompletion(done); }));
    return true;
}

CommandSpec demoCommand() {
    return {"demo",
            "Let two users of the local service talk, and check every step",
            {},
            {},
            [](const Given& given) {
                Stage stage(given.account, given.isJSON);
                for (const auto tell : {tellLogin, tellChat, tellAttachments, tellResources,
                                        tellPauseAndResume, tellLogout}) {
                    if (!tell(stage)) break;
                }
                stage.transcript.finish();
                return stage.transcript.allHeld() ? 0 : 1;
            }};
}
