#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "endtoend/EndToEnd.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

using namespace vexim::testing;
using vexim::Dictionary;

namespace {

class Chat : public EndToEnd {};
INSTANTIATE_TEST_SUITE_P(Services, Chat, kServices, serviceName);

TEST_P(Chat, TwoUsersTalk) {
    auto alice = loggedIn("alice");
    auto bobsEntry = VXIMFriendInfo::infoWithId("bob");
    auto bob = newPerson();
    EXPECT_EQ(run([&](auto done) { bob->client->loginWithUsername("bob", "bob-secret", done); }),
              "yes");
    EXPECT_EQ(json(bob->client->currentUser()->uid()), "\"bob\"");
    EXPECT_TRUE(alice->hears("online bob"));
    EXPECT_TRUE(bobsEntry->online());

    const auto send = [&](const char* text, auto to) {
        return run([&](auto done) { to(VXIMMessage::messageWithText(text), done); });
    };
    EXPECT_EQ(send("hi \xF0\x9F\x98\x80",
                   [&](auto m, auto d) { alice->client->sendMessageToFriend(m, "bob", d); }),
              "yes");
    EXPECT_TRUE(bob->hears("friend alice: hi \xF0\x9F\x98\x80"));
    EXPECT_TRUE(alice->hears("friend bob: hi \xF0\x9F\x98\x80"))
        << "her own, as the service sends it back";
    EXPECT_EQ(send("to the group",
                   [&](auto m, auto d) { bob->client->sendMessageToGroup(m, "demo-group", d); }),
              "yes");
    EXPECT_TRUE(alice->hears("group demo-group: to the group"));
    EXPECT_TRUE(bob->hears("group demo-group: to the group"));
    EXPECT_EQ(send("to the room",
                   [&](auto m, auto d) { bob->client->sendMessageToRoom(m, "demo-room", d); }),
              "yes");
    EXPECT_TRUE(alice->hears("room demo-room: to the room"));
    EXPECT_EQ(send("attention",
                   [&](auto m, auto d) { alice->client->sendSystemMessageToUser(m, "bob", d); }),
              "yes");
    EXPECT_TRUE(bob->hears("system: attention"));
    EXPECT_EQ(
        send("all", [&](auto m, auto d) { alice->client->sendSystemMessageToAllUsers(m, d); }),
        "yes");
    EXPECT_TRUE(bob->hears("system: all"));
    EXPECT_EQ(
        send("group",
             [&](auto m, auto d) { alice->client->sendSystemMessageToGroup(m, "demo-group", d); }),
        "yes");
    EXPECT_TRUE(bob->hears("system: group"));
    EXPECT_EQ(
        send("room",
             [&](auto m, auto d) { alice->client->sendSystemMessageToRoom(m, "demo-room", d); }),
        "yes");
    EXPECT_TRUE(bob->hears("system: room"));

    EXPECT_EQ(run([&](auto done) { bob->client->logoutWithCompletion(done); }), "yes");
    EXPECT_TRUE(bob->hears("didDisconnect"));
    EXPECT_TRUE(alice->hears("offline bob"));
    EXPECT_FALSE(bobsEntry->online());
    EXPECT_EQ(bob->client->currentUser(), nullptr);
}

#ifdef VEXIM_QUICK_START
TEST_P(Chat, WhatIsSentRightBeforeTheExitArrives) {
    auto bob = loggedIn("bob");
    // Ends its process as soon as its message counts as sent.
    EXPECT_EQ(ChildProcess({VEXIM_QUICK_START, service.origin()}).wait(), 0);
    EXPECT_TRUE(bob->hears("friend alice: hello"));
}
#endif

#ifdef VEXIM_ECHO_BOT
TEST_P(Chat, TheGuidesBotAnswersAndLeavesInGoodOrder) {
    auto alice = loggedIn("alice");
    for (const bool toldToLeave : {true, false}) {
        ChildProcess bot({VEXIM_ECHO_BOT, service.origin()});
        EXPECT_TRUE(alice->hears("online bob"));
        const char* word = toldToLeave ? "bye" : "hello";
        EXPECT_EQ(run([&](auto done) {
                      alice->client->sendMessageToFriend(VXIMMessage::messageWithText(word), "bob",
                                                         done);
                  }),
                  "yes");
        EXPECT_TRUE(alice->hears(std::string("friend bob: ") + word)) << "her own";
        EXPECT_TRUE(alice->hears(std::string("friend bob: ") + word)) << "the bot's answer";
        if (!toldToLeave) bot.signal(SIGTERM);
        EXPECT_TRUE(alice->hears("offline bob"));
        EXPECT_EQ(bot.wait(), 0);
    }
}
#endif

TEST_P(Chat, EveryKindOfCredentials) {
    const auto login = [&](const char* expected, const auto& start) {
        auto person = newPerson();
        EXPECT_EQ(run([&](auto done) { start(*person->client, done); }), expected);
        const auto user = person->client->currentUser();
        return json(user->uid()) + (user->online() ? " online" : " offline") + " at " +
               std::to_string(person->client->status());
    };
    EXPECT_EQ(
        login("yes", [](VXIMClient& c,
                        auto done) { c.loginWithPhoneNumber("+15550100001", "100001", done); }),
        "\"alice\" online at 2");
    EXPECT_EQ(
        login("yes",
              [](VXIMClient& c, auto done) {
                  c.loginWithThirdPartyOAuth(
                      dictionaryFrom(
                          R"({"provider":"example","uid":"bob@example","token":"bob-token"})"),
                      done);
              }),
        "\"bob\" online at 2");
    EXPECT_EQ(login("no VXIMErrorDomain 1105",
                    [](VXIMClient& c, auto done) { c.loginWithUsername("bob", "wrong", done); }),
              "\"\" offline at 1");
}

TEST_P(Chat, PausesAndComesBack) {
    auto alice = loggedIn("alice");
    auto bob = loggedIn("bob");
    ASSERT_TRUE(alice->hears("online bob"));

    bob->client->pause();
    ASSERT_TRUE(bob->hears("didDisconnect"));
    EXPECT_EQ(bob->client->status(), VXIMClientStatusPaused);
    ASSERT_TRUE(alice->hears("offline bob"));
    EXPECT_EQ(run([&](auto done) {
                  bob->client->sendMessageToFriend(VXIMMessage::messageWithText("x"), "alice",
                                                   done);
              }),
              "no VXIMErrorDomain 1");

    bob->client->resume();
    ASSERT_TRUE(bob->reaches(VXIMClientStatusOpened));
    ASSERT_TRUE(alice->hears("online bob"));
    EXPECT_EQ(run([&](auto done) {
                  alice->client->sendMessageToFriend(VXIMMessage::messageWithText("back?"), "bob",
                                                     done);
              }),
              "yes");
    EXPECT_TRUE(bob->hears("friend alice: back?"));
}

TEST_P(Chat, AReconnectBringsTheSessionBack) {
    auto bob = loggedIn("bob", [](VXIMClientConfiguration& c) {
        c.setAutoReconnect(true);
        c.setReconnectAttempts(-1);
        c.setReconnectWait(0);
    });
    service.drop("bob");
    ASSERT_TRUE(bob->hears("didDisconnect"));
    ASSERT_TRUE(bob->hears("reconnecting"));
    ASSERT_TRUE(bob->hears("didLogin")) << "the service answers every connect";
    EXPECT_EQ(bob->client->status(), VXIMClientStatusOpened);
}

TEST_P(Chat, WithoutReconnectingADropPauses) {
    auto bob = loggedIn("bob", [](VXIMClientConfiguration& c) { c.setAutoReconnect(false); });
    service.drop("bob");
    ASSERT_TRUE(bob->hears("didDisconnect"));
    EXPECT_EQ(bob->client->status(), VXIMClientStatusPaused);
    EXPECT_EQ(run([&](auto done) { bob->client->logoutWithCompletion(done); }), "yes")
        << "also with the connection down";
}

TEST_P(Chat, ASecondLoginTakesOver) {
    auto alice = loggedIn("alice");
    EXPECT_EQ(run([&](auto done) { alice->client->loginWithUserId("bob", done); }), "yes");
    EXPECT_EQ(json(alice->client->currentUser()->uid()), "\"bob\"");
    EXPECT_EQ(alice->client->status(), VXIMClientStatusOpened);
    EXPECT_EQ(std::count(alice->heard.begin(), alice->heard.end(), "didDisconnect"), 0)
        << "the first is dropped silently";
}

TEST_P(Chat, AnImageTravelsThroughTheService) {
    auto alice = loggedIn("alice");
    auto bob = loggedIn("bob");
    std::vector<std::uint8_t> pixels(64 * 64 * 4);
    for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<std::uint8_t>(i * 7);
    auto image = VXIMMessage::messageWithImage(*vexim::Image::fromPixels(64, 64, pixels));
    ASSERT_TRUE(image);

    int last = -1;
    std::string outcome;
    alice->client->sendMessageToFriend(image, "bob", {});  // twice at once: each send uploads
    image->receiver()->setUserId("bob");
    alice->client->sendMessage(
        image, [&](std::int32_t percent) { last = percent; },
        once([&](bool succeeded, const vexim::ErrorPtr&) { outcome = succeeded ? "yes" : "no"; }));
    ASSERT_TRUE(eventually([&] { return !outcome.empty() && bob->lastMessage; }));
    EXPECT_EQ(outcome, "yes");
    EXPECT_EQ(image->status(), VXIMMessageStatusSent);
    EXPECT_LE(last, 100);
    EXPECT_EQ(bob->lastMessage->mediaType(), VXIMMessageMediaTypeImage);

    const TemporaryFolder folder;
    const auto file = folder / "copy.png";
    EXPECT_EQ(
        run<vexim::Value>([&](auto done) { bob->lastMessage->downloadAttachment(file, {}, done); },
                          [](const vexim::Value& path) { return path.description(); }),
        file.string());
    const auto contents = [](const std::string& path) {
        std::ifstream stream(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    };
    EXPECT_FALSE(contents(file).empty());
    EXPECT_TRUE(contents(file) == contents(*image->attachmentPath()));

    auto forwarded = bob->lastMessage;
    EXPECT_EQ(
        run([&](auto done) { bob->client->sendMessageToGroup(forwarded, "demo-group", done); }),
        "yes");
    EXPECT_TRUE(alice->hears("group demo-group: " + *forwarded->attachmentUrl()))
        << "without another upload";
}

}  // namespace
