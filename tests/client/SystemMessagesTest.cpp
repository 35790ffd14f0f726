// Messages of the system: they are posted over REST, whoever is logged in.

#include <functional>
#include <string>

#include "VexIMLib/Testing/ManualClock.h"
#include "client/ClientFixture.h"
#include "support/LogCapture.h"

using namespace vexim::testing;

namespace {

TEST_F(Messages, OfTheSystemArePosted) {
    ManualClock clock(100);
    auto text = [] { return VXIMMessage::messageWithText("hi"); };
    auto group = [&] {
        auto message = text();
        message->receiver()->setGroupId("g7");
        return message;
    };
    const struct {
        const char* why;
        std::function<void(VXIMBooleanCompletion)> send;
        const char* request;
    } cases[] = {
        {"all", [&](auto done) { client->sendSystemMessageToAllUsers(text(), done); },
         R"(POST /system {"content":{"media":0,"body":"hi"},"ts":100000})"},
        {"a user", [&](auto done) { client->sendSystemMessageToUser(text(), "u2", done); },
         R"(POST /system/u2 {"content":{"media":0,"body":"hi"},"ts":100000,"to":{"id":"u2","type":0}})"},
        {"a group", [&](auto done) { client->sendSystemMessageToGroup(text(), "g1", done); },
         R"(POST /system/g1?group {"content":{"media":0,"body":"hi"},"ts":100000,"to":{"id":"g1","type":1}})"},
        {"a room", [&](auto done) { client->sendSystemMessageToRoom(text(), "r1", done); },
         R"(POST /system/r1?room {"content":{"media":0,"body":"hi"},"ts":100000,"to":{"id":"r1","type":2}})"},
        {"a user does not make a group's message a user's",
         [&](auto done) { client->sendSystemMessageToUser(group(), "u2", done); },
         R"(POST /system/g7?group {"content":{"media":0,"body":"hi"},"ts":100000,"to":{"id":"g7","type":1}})"},
    };
    for (const auto& c : cases) {
        bool done = false;
        c.send(once([&](bool succeeded, const vexim::ErrorPtr&) { done = succeeded; }));
        ASSERT_TRUE(eventually([&] { return done; })) << c.why;
        EXPECT_EQ(service.takeRequests(), Lines{c.request}) << c.why;
    }
}

TEST_F(Messages, OfTheSystemTellTheServicesError) {
    service.answerWith(400, R"({"errorCode":7,"errorMessage":"no"})");
    auto message = VXIMMessage::messageWithText("hi");
    bool done = false;
    client->sendSystemMessageToUser(
        message, "u2", once([&](bool succeeded, const vexim::ErrorPtr& error) {
            EXPECT_EQ(std::to_string(succeeded) + " " + describe(error), "0 VXErrorDomain 7");
            done = true;
        }));
    ASSERT_TRUE(eventually([&] { return done; }));
    EXPECT_EQ(message->status(), VXIMMessageStatusFailed);
}

TEST_F(Messages, OfTheSystemThatAreNoJSONFailInsteadOfRaising) {
    auto message = VXIMMessage::messageWithText("hi");
    message->payload().set("x", vexim::Data("x"));
    client->sendSystemMessageToUser(message, "u2", journal->completion("send"));
    EXPECT_NO_THROW(drainMainQueue());
    EXPECT_EQ(journal->take(), Lines{"send no, VXIMErrorDomain 1"});
    EXPECT_EQ(message->status(), VXIMMessageStatusFailed);
}

TEST_F(Messages, OfTheSystemWithoutAReceiverEndSilently) {
    LogCapture log;
    for (std::int32_t type : {-2, -1, 3}) {
        auto message = VXIMMessage::messageWithText("hi");
        message->receiver()->setType(static_cast<VXIMMessageTargetType>(type));
        client->sendSystemMessage(message, {}, [](bool, const vexim::ErrorPtr&) { FAIL(); });
        EXPECT_EQ(message->status(), VXIMMessageStatusFailed);
    }
    drainMainQueue();
    EXPECT_EQ(log.lines(), Lines(3, "Internal error: invalid receiver type"));
    EXPECT_EQ(service.takeRequests(), Lines());
}

}  // namespace
