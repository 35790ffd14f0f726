#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/UntoldError.h"
#include "VexIMLib/Testing/ManualClock.h"
#include "client/ClientFixture.h"
#include "support/LogCapture.h"

using namespace vexim::testing;
using vexim::Array;
using vexim::Dictionary;
using vexim::Value;

namespace {

TEST_F(Messages, GoOutWithTheirReceiverAndTime) {
    login();
    ManualClock clock(1450000000);
    auto text = [] { return VXIMMessage::messageWithText("hi"); };
    client->sendMessageToFriend(text(), "u2", journal->completion("friend"));
    client->sendMessageToGroup(text(), "g1", journal->completion("group"));
    client->sendMessageToRoom(text(), "r1", journal->completion("room"));
    EXPECT_EQ(takeEmitted(), Lines()) << "not on the caller's turn";
    drainMainQueue();
    EXPECT_EQ(
        takeEmitted(),
        (Lines{
            R"(say [{"content":{"media":0,"body":"hi"},"ts":1450000000000,"to":{"id":"u2","type":0}}])",
            R"(say [{"content":{"media":0,"body":"hi"},"ts":1450000000000,"to":{"id":"g1","type":1}}])",
            R"(say [{"content":{"media":0,"body":"hi"},"ts":1450000000000,"to":{"id":"r1","type":2}}])"}));
    EXPECT_EQ(journal->take(), (Lines{"friend yes", "group yes", "room yes"}));
}

TEST_F(Messages, TheTimeOnTheWireIsThatOfTheBeginning) {
    login();
    ManualClock clock(100);
    auto message = VXIMMessage::messageWithText("hi");
    client->sendMessageToFriend(message, "u2", {});
    EXPECT_EQ(message->status(), VXIMMessageStatusSending);
    EXPECT_EQ(message->sendTimestamp(), 100);
    clock.advance(std::chrono::seconds(5));
    drainMainQueue();
    EXPECT_EQ(socket().emitted.at(0).second.get(0).get("ts").integer(), 100'000);
    EXPECT_EQ(message->sendTimestamp(), 105) << "the second one changes only the local message";
    EXPECT_EQ(message->status(), VXIMMessageStatusSent);
}

TEST_F(Messages, AreRefusedWithoutAReceiverOrAConnection) {
    const std::string noReceiver = "Message cannot send without receiver infomation.";
    const std::string noConnection = "Message cannot send when connection disconnected";
    std::string description;
    const auto send = [&](const std::shared_ptr<VXIMMessage>& message) {
        client->sendMessage(message, once([&](bool succeeded, const vexim::ErrorPtr& error) {
                                EXPECT_FALSE(succeeded);
                                EXPECT_EQ(describe(error), "VXIMErrorDomain 1");
                                description = error->localizedDescription();
                            }));
        EXPECT_EQ(message->status(), VXIMMessageStatusFailed);
        EXPECT_EQ(std::exchange(description, ""), "") << "not on the caller's turn";
        drainMainQueue();
    };
    auto addressed = VXIMMessage::messageWithText("hi");
    addressed->receiver()->setUserId("u2");
    send(addressed);
    EXPECT_EQ(std::exchange(description, ""), noConnection) << "nobody is logged in";

    login();
    for (auto type : {VXIMMessageTargetTypeAllUsers, VXIMMessageTargetTypeSystem,
                      VXIMMessageTargetTypeUnknown}) {
        auto message = VXIMMessage::messageWithText("hi");
        message->receiver()->setType(type);
        send(message);
        EXPECT_EQ(std::exchange(description, ""), noReceiver) << type;
    }
    client->pause();
    drainMainQueue();
    send(VXIMMessage::messageWithText("hi"));
    EXPECT_EQ(std::exchange(description, ""), noConnection)
        << "the second check runs even when the first failed";
    send(addressed);
    EXPECT_EQ(description, noConnection);
    EXPECT_EQ(takeEmitted(), Lines());
}

TEST_F(Messages, RaiseForTheCallersMistakes) {
    login();
    auto text = [] { return VXIMMessage::messageWithText("hi"); };
    auto noReceiversId = text();
    noReceiversId->receiver()->setType(VXIMMessageTargetTypeGroup);
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"no message", [&] { client->sendMessage(nullptr, {}); }},
        {"no message for a friend", [&] { client->sendMessageToFriend(nullptr, "u2", {}); }},
        {"no friend", [&] { client->sendMessageToFriend(text(), nullptr, {}); }},
        {"a friend whose id is null",
         [&] { client->sendMessageToFriend(text(), Value::null(), {}); }},
        {"no group", [&] { client->sendMessageToGroup(text(), nullptr, {}); }},
        {"a group whose id is null",
         [&] { client->sendMessageToGroup(text(), Value::null(), {}); }},
        {"no room", [&] { client->sendMessageToRoom(text(), nullptr, {}); }},
        {"a kind without its id", [&] { client->sendMessage(noReceiversId, {}); }},
        {"no message for all", [&] { client->sendSystemMessageToAllUsers(nullptr, {}); }},
        {"no user", [&] { client->sendSystemMessageToUser(text(), nullptr, {}); }},
    };
    for (const auto& [why, mistake] : cases) EXPECT_THROW(mistake(), vexim::Exception) << why;
    drainMainQueue();
    EXPECT_EQ(noReceiversId->status(), VXIMMessageStatusNone);
    EXPECT_EQ(takeEmitted(), Lines());
}

TEST_F(Messages, ChangedWhileTheyWaitFailInsteadOfRaising) {
    login();
    auto message = VXIMMessage::messageWithText("hi");
    client->sendMessageToFriend(message, "u2", journal->completion("send"));
    message->receiver()->setGroupId(nullptr);
    drainMainQueue();
    EXPECT_EQ(message->status(), VXIMMessageStatusFailed);
    EXPECT_EQ(takeEmitted(), Lines());
    EXPECT_EQ(journal->take(), Lines{"send no, VXIMErrorDomain 1"});
}

TEST_F(Messages, AreCountedByKind) {
    const auto metrics = VXIMMetrics::init();
    client->config()->setMetrics(metrics);
    login();
    const auto say = [&] {
        client->sendMessageToFriend(VXIMMessage::messageWithText("hi"), "u2", {});
        drainMainQueue();
    };
    say();
    socket().refusal = vexim::Error::make(vexim::kSocketIOErrorDomain, 1, {});
    say();
    say();
    for (const char* event : {"message", "message", "message", "yourself", "yourself", "sys"})
        socket().send(event, {Dictionary{}});
    socket().send("login", {Dictionary{{"success", false}, {"error", 1105}}});
    drainMainQueue();
    const std::string text = metrics->prometheusText();
    for (const char* line : {"vexim_messages_sent_total{outcome=\"taken\"} 1\n",
                             "vexim_messages_sent_total{outcome=\"refused\"} 2\n",
                             "vexim_messages_received_total{kind=\"peer\"} 3\n",
                             "vexim_messages_received_total{kind=\"own\"} 2\n",
                             "vexim_messages_received_total{kind=\"system\"} 1\n",
                             "vexim_logins_total{outcome=\"accepted\"} 1\n",
                             "vexim_logins_total{outcome=\"refused\"} 1\n"})
        EXPECT_NE(text.find(line), text.npos) << line;
}

TEST_F(Messages, CountAsSentOnlyWhenTheConnectionTookThem) {
    const auto because = [](vexim::SocketIOErrorCode code, const char* reason) {
        return vexim::Error::make(vexim::kSocketIOErrorDomain, code,
                                  Dictionary{{vexim::kLocalizedFailureReasonKey, reason}});
    };
    const std::string noConnection = "Message cannot send when connection disconnected";
    struct Row {
        const char* why;
        std::function<void()> meanwhile;
        std::string description;
    };
    const Row rows[] = {
        {"the connection has a reason",
         [&] { socket().refusal = because(vexim::SocketIOErrorTooLarge, "it is far too long"); },
         "Message cannot send: it is far too long."},
        {"the link dropped between the check and the emit", [&] { socket().drop(); }, noConnection},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.why);
        client = newClient();
        login();
        auto message = VXIMMessage::messageWithText("hi");
        vexim::ErrorPtr told;
        client->sendMessageToFriend(message, "u2",
                                    once([&](bool succeeded, const vexim::ErrorPtr& error) {
                                        EXPECT_FALSE(succeeded);
                                        told = error;
                                    }));
        row.meanwhile();
        drainMainQueue();
        ASSERT_TRUE(told);
        EXPECT_EQ(describe(told) + ": " + told->localizedDescription(),
                  "VXIMErrorDomain 1: " + row.description);
        EXPECT_EQ(message->status(), VXIMMessageStatusFailed);
    }
}

TEST_F(Messages, WithAnAttachmentUploadItFirst) {
    login();
    service.answerWith(200, R"(["http://files/1"])");
    auto missing = VXIMMessage::messageWithImageFileAtPath("/nonexistent/x.png");
    EXPECT_EQ(VXIMMessage::messageWithAudioFileAtPath("/nonexistent/x.amr"), nullptr);
    EXPECT_EQ(VXIMMessage::messageWithVideoFileAtPath(std::nullopt), nullptr);

    auto image = VXIMMessage::messageWithImage(*vexim::Image::fromPixels(1, 1, {1, 2, 3, 255}));
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->attachmentPath()->ends_with(".png"));
    EXPECT_EQ(VXIMMessage::messageWithImage(*vexim::Image::fromPixels(1, 1, {1, 2, 3, 255}))
                  ->attachmentPath(),
              image->attachmentPath());
    bool done = false;
    client->sendMessageToFriend(
        image, "u2", once([&](bool succeeded, const vexim::ErrorPtr&) { done = succeeded; }));
    EXPECT_EQ(takeEmitted(), Lines());
    ASSERT_TRUE(eventually([&] { return done; }));
    EXPECT_EQ(socket().emitted.at(0).second.get(0).get("content").get("body").description(),
              "http://files/1");
    EXPECT_TRUE(service.takeRequests().at(0).starts_with("POST /attachment "));
    EXPECT_EQ(image->status(), VXIMMessageStatusSent);

    service.answerWith(400, R"({"errorCode":7,"errorMessage":"no"})");
    auto failing = VXIMMessage::messageWithImageFileAtPath(image->attachmentPath());
    done = false;
    client->sendMessageToFriend(failing, "u2",
                                once([&](bool succeeded, const vexim::ErrorPtr& error) {
                                    const auto untold = vexim::UntoldError::current();
                                    done = succeeded && !error && untold && untold->code() == 7;
                                }));
    ASSERT_TRUE(eventually([&] { return done; })) << "a failed upload counts as a success, but";
    EXPECT_EQ(failing->status(), VXIMMessageStatusFailed);
    EXPECT_TRUE(failing->error() && failing->error()->code() == 7) << "the message knows why";
    failing->setStatus(VXIMMessageStatusSending);
    EXPECT_FALSE(failing->error());

    service.answerWith(200, R"(["http://files/1"])");
    int reports = 0;
    const auto transfer = VXIMTransfer::transfer();
    const auto stop = [&](std::int32_t) {
        ++reports;
        transfer->cancel();
    };
    failing->receiver()->setUserId("u2");
    client->sendMessage(failing, stop, journal->completion("cancelled"), transfer);
    EXPECT_EQ(nextHeard(), Lines{"cancelled no, NSURLErrorDomain -999"});
    EXPECT_GT(reports, 0);
}

TEST_F(Messages, ForwardAReceivedAttachmentWithoutAnUpload) {
    login();
    auto received = VXIMMessage::initWithPayloadDictionary(dictionaryFrom(
        R"({"from":{"id":"u9","type":0},"to":{"id":"g1","type":1},"content":{"media":1,"body":"http://a"}})"));
    LogCapture log;
    std::thread([&] {
        client->sendMessageToFriend(received, "u2", journal->completion("send"));
    }).join();
    EXPECT_EQ(takeEmitted(), Lines()) << "not on the caller's thread";
    drainMainQueue();
    EXPECT_EQ(journal->take(), Lines{"send yes"});
    EXPECT_EQ(log.lines(), Lines{"No attachment to upload"});
    EXPECT_EQ(json(socket().emitted.at(0).second.get(0).get("to")), R"({"id":"u2","type":0})");
    EXPECT_EQ(service.takeRequests(), Lines());
}

TEST_F(Messages, ArriveAsWhoTheyAreFrom) {
    const struct {
        const char* why;
        const char* event;
        const char* payload;
        Lines heard;
    } cases[] = {
        {"a friend's",
         "message",
         R"({"from":{"id":"u2","type":0},"to":{"id":"u1","type":0},"content":{"body":"hi"}})",
         {"friend u2: hi",
          "posted VXIMClientDidReceiveMessageNotification from 0 user u2, to 0 user u1: hi"}},
        {"one's own, from another device",
         "message",
         R"({"from":{"id":"u1","type":0},"to":{"id":"u2","type":0}})",
         {"friend u2: nil",
          "posted VXIMClientDidReceiveMessageNotification from 0 user u1, to 0 user u2: nil"}},
        {"a group's",
         "message",
         R"({"from":{"id":"u2","type":1,"gid":"g1"},"to":{"id":"g1","type":1}})",
         {"group g1: nil",
          "posted VXIMClientDidReceiveMessageNotification from 1 user u2 group g1, to 1 group g1: nil"}},
        {"a group's, whose sender names none",
         "message",
         R"({"from":{"id":"u2","type":1,"gid":null},"to":{"id":"g1","type":1}})",
         {"group g1: nil",
          "posted VXIMClientDidReceiveMessageNotification from 1 user u2, to 1 group g1: nil"}},
        {"a group's, by its speaker",
         "message",
         R"({"speaker":"u2","to":{"id":"g1","type":1}})",
         {"group g1: nil",
          "posted VXIMClientDidReceiveMessageNotification from 1 user u2, to 1 group g1: nil"}},
        {"a room's",
         "message",
         R"({"from":{"id":"u2","type":2,"gid":"r1"},"to":{"id":"r1","type":2}})",
         {"room r1: nil",
          "posted VXIMClientDidReceiveMessageNotification from 2 user u2 room r1, to 2 room r1: nil"}},
        {"a room's, by its speaker",
         "message",
         R"({"speaker":"u2","to":{"id":"r1","type":2}})",
         {"room r1: nil",
          "posted VXIMClientDidReceiveMessageNotification from 2 user u2, to 2 room r1: nil"}},
        {"an echo to a friend",
         "yourself",
         R"({"to":{"id":"u2","type":0},"content":{"body":"hi"}})",
         {"friend u2: hi",
          "posted VXIMClientDidReceiveMessageNotification from 2 user u1, to 0 user u2: hi"}},
        {"an echo to a group",
         "yourself",
         R"({"to":{"id":"g1","type":1}})",
         {"group g1: nil",
          "posted VXIMClientDidReceiveMessageNotification from 2 user u1 group g1, to 1 group g1: nil"}},
        {"an echo to a room",
         "yourself",
         R"({"to":{"id":"r1","type":2}})",
         {"room r1: nil",
          "posted VXIMClientDidReceiveMessageNotification from 2 user u1 room r1, to 2 room r1: nil"}},
        {"a system message",
         "sys",
         R"({"from":{"id":"u2","type":0},"to":{"id":"u1","type":0},"content":{"body":"hi"}})",
         {"posted VXIMClientDidReceiveSystemMessageNotification from -2 user u2, to -1 user u1: hi",
          "system: from -2 user u2, to -1 user u1: hi"}},
        {"a system message in disguise",
         "message",
         R"({"from":{"id":"u2","type":-2},"to":{"id":"u1","type":0}})",
         {}},
        {"to nobody",
         "message",
         R"({"from":{"id":"u2","type":0}})",
         {"posted VXIMClientDidReceiveMessageNotification from 0 user u2, to -1: nil"}},
        {"from nobody",
         "message",
         R"({"to":{"id":"u1","type":0}})",
         {"posted VXIMClientDidReceiveMessageNotification from 0, to 0 user u1: nil"}},
        {"a group that nobody names",
         "message",
         R"({"from":{"id":"u2"},"to":{"type":1}})",
         {"posted VXIMClientDidReceiveMessageNotification from 1 user u2, to 1: nil"}},
        {"an echo without a receiver",
         "yourself",
         "{}",
         {"posted VXIMClientDidReceiveMessageNotification from 2 user u1, to -1: nil"}},
        {"wrong types",
         "message",
         R"({"from":[],"to":"x","content":5,"ts":{}})",
         {"posted VXIMClientDidReceiveMessageNotification from -1, to -1: nil"}},
    };
    login();
    for (const auto& c : cases) {
        socket().send(c.event, {dictionaryFrom(c.payload)});
        drainMainQueue();
        EXPECT_EQ(journal->take(), c.heard) << c.why;
    }
}

TEST_F(Messages, OfAnyShapeHarmNobody) {
    std::string deep;
    for (int i = 0; i < 500; ++i) deep += "[";
    for (int i = 0; i < 500; ++i) deep += "]";
    const std::string values[] = {"null",
                                  "5",
                                  "-1.5",
                                  "true",
                                  "\"text\"",
                                  "[]",
                                  "{}",
                                  "[{}]",
                                  R"({"id":5,"type":1})",
                                  R"({"id":{"id":1},"type":"0","gid":[]})",
                                  R"({"type":99999999999})",
                                  deep};
    login();
    for (const char* event : {"message", "yourself", "sys", "login", "online", "offline", "error",
                              "connect", "reconnect"}) {
        socket().send(event);
        for (const std::string& value : values) {
            socket().send(event, *vexim::parseJSON("[" + value + "]").value.asArray());
            for (const char* key :
                 {"from", "to", "content", "ts", "speaker", "success", "error", "id"}) {
                const std::string payload =
                    R"([{"from":{"id":"u2","type":1,"gid":"g1"},"to":{"id":"u1","type":1},")" +
                    std::string(key) + "\":" + value + "}]";
                socket().send(event, *vexim::parseJSON(payload).value.asArray());
            }
        }
        EXPECT_NO_THROW(drainMainQueue()) << event;
    }
}

}  // namespace
