#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Testing/ManualClock.h"
#include "VexIMLib/VexIMLib.h"
#include "support/Describe.h"
#include "support/TemporaryFolder.h"

using namespace vexim::testing;
using vexim::Dictionary;
using vexim::Value;

namespace {

std::string describePayload(const char* payload) {
    return describe(*VXIMMessage::initWithPayloadDictionary(dictionaryFrom(payload)));
}

TEST(Message, ParsesSenderAndReceiver) {
    const struct {
        const char* why;
        const char* payload;
        const char* expected;
    } cases[] = {
        {"a friend",
         R"({"from":{"id":"u1","type":0},"to":{"id":"u2","type":0},"content":{"media":0,"body":"hi"}})",
         "from 0 user u1, to 0 user u2: hi"},
        {"a group", R"({"from":{"id":"u1","type":1,"gid":"g1"},"to":{"id":"g1","type":1}})",
         "from 1 user u1 group g1, to 1 group g1: nil"},
        {"a room", R"({"from":{"id":"u1","type":2,"gid":"r1"},"to":{"id":"r1","type":2}})",
         "from 2 user u1 room r1, to 2 room r1: nil"},
        {"the older form names a speaker, and no group",
         R"({"speaker":"u1","to":{"id":"g1","type":1},"content":{"media":0,"body":"hi"}})",
         "from 1 user u1, to 1 group g1: hi"},
        {"a sender wins over a speaker", R"({"speaker":"u9","from":{"id":"u1"}})",
         "from -1 user u1, to -1: nil"},
        {"the sender's type wins over the receiver's",
         R"({"from":{"id":"u1","type":0},"to":{"id":"g1","type":1}})",
         "from 0 user u1, to 1 group g1: nil"},
        {"an id without a type", R"({"from":{"id":"u1"},"to":{"id":"u2"}})",
         "from -1 user u1, to -1: nil"},
        {"a kind that nobody knows", R"({"to":{"id":"x","type":7}})", "from 7, to 7: nil"},
        {"a type as text", R"({"to":{"id":"g1","type":"1"}})", "from 1, to 1 group g1: nil"},
        {"a type beyond 32 bits wraps", R"({"to":{"id":"g1","type":4294967297}})",
         "from 1, to 1 group g1: nil"},
        {"a system message", R"({"from":{"id":"u1","type":-2}})", "from -2 user u1, to -1: nil"},
        {"nothing at all", "{}", "from -1, to -1: nil"},
        {"null everywhere", R"({"from":null,"to":null,"content":null,"speaker":null,"ts":null})",
         "from -1, to -1: nil"},
        {"null inside counts as absent",
         R"({"speaker":"u1","from":{"id":null,"type":null},"to":{"id":"g1","type":1}})",
         "from 1 user u1, to 1 group g1: nil"},
        {"a group's id that is null is none",
         R"({"from":{"id":"u1","type":1,"gid":null},"to":{"id":null,"type":1}})",
         "from 1 user u1, to 1: nil"},
        {"a receiver of no kind", R"({"to":{"id":"u2","type":null}})", "from -1, to -1: nil"},
        {"text where objects belong", R"({"from":"u1","to":"u2","content":"hi"})",
         "from -1, to -1: nil"},
        {"lists where objects belong", R"({"from":[{"id":"u1"}],"to":[1],"content":[2]})",
         "from -1, to -1: nil"},
        {"an id that is a number stays one", R"({"from":{"id":5,"type":0},"to":{"id":6,"type":0}})",
         "from 0 user 5, to 0 user 6: nil"},
        {"a body that is no text", R"({"content":{"media":0,"body":5}})", "from -1, to -1: nil"},
    };
    for (const auto& c : cases) EXPECT_EQ(describePayload(c.payload), c.expected) << c.why;
}

TEST(Message, WritesTargetsIntoThePayloadAndKeepsTheRest) {
    auto message = VXIMMessage::initWithPayloadDictionary(dictionaryFrom(
        R"({"from":{"id":"u1","type":0},"to":{"id":"u2","type":0},"content":{"body":"hi"},"custom":[1],"ts":5})"));
    EXPECT_EQ(
        json(message->dictionaryRepresentation()),
        R"({"from":{"id":"u1","type":0},"to":{"id":"u2","type":0},"content":{"body":"hi"},"custom":[1],"ts":5})");

    message->receiver()->setGroupId("g1");
    EXPECT_EQ(json(message->payload().get("to")), R"({"id":"u2","type":0})")
        << "not before it is asked for";
    EXPECT_EQ(json(message->dictionaryRepresentation().get("to")), R"({"id":"g1","type":1})");
    EXPECT_EQ(json(message->payload().get("to")), R"({"id":"g1","type":1})");

    message->sender()->setType(VXIMMessageTargetTypeSystem);
    message->receiver()->setUserId("u3");
    for (const std::int32_t type : {-3, -2, -1, 3}) {
        message->receiver()->setType(static_cast<VXIMMessageTargetType>(type));
        EXPECT_EQ(json(message->dictionaryRepresentation().get("to")), R"({"id":"g1","type":1})")
            << "an earlier target stays";
    }
    EXPECT_TRUE(message->isSystemMessage());
}

TEST(Message, RaisesForAKnownKindWithoutItsId) {
    const struct {
        const char* why;
        const char* payload;
    } cases[] = {
        {"a sender without id", R"({"from":{"type":0}})"},
        {"a speaker whose group is not named", R"({"speaker":"u1","to":{"id":"g1","type":1}})"},
        {"a sender's room", R"({"from":{"id":"u1","type":2},"to":{"id":"r1","type":2}})"},
        {"a receiver without id", R"({"from":{"type":-2},"to":{"type":1}})"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        auto message = VXIMMessage::initWithPayloadDictionary(dictionaryFrom(c.payload));
        // not in the payload yet
        if (message->receiver()->type() < 0) message->receiver()->setUserId("u2");
        EXPECT_THROW(message->dictionaryRepresentation(), vexim::Exception);
        EXPECT_EQ(json(message->payload()), c.payload) << "and changes nothing";
        EXPECT_NE(message->description().find("VXIMMessage"), std::string::npos)
            << "but can still be logged";
    }
}

TEST(MessageTarget, SettersFollowTheKindAlong) {
    auto target = VXIMMessageTarget::init();
    EXPECT_EQ(describe(*target), "-1");
    target->setUserId("u1");
    EXPECT_EQ(describe(*target), "0 user u1");
    target->setType(VXIMMessageTargetTypeGroup);
    target->setUserId("u2");
    EXPECT_EQ(describe(*target), "1 user u2") << "an explicit type survives a user id";
    target->setRoomId("r1");
    EXPECT_EQ(describe(*target), "2 user u2 room r1");
    target->setGroupId(nullptr);
    EXPECT_EQ(describe(*target), "1 user u2 room r1") << "even nil makes it a group";
    target->setType(VXIMMessageTargetTypeAllUsers);
    target->setUserId(nullptr);
    EXPECT_EQ(describe(*target), "0 room r1");
}

TEST(Message, ATextHasNoTimeUntilItIsSent) {
    auto message = VXIMMessage::messageWithText("hi");
    EXPECT_EQ(json(message->dictionaryRepresentation()), R"({"content":{"media":0,"body":"hi"}})");
    EXPECT_EQ(message->sendTimestamp(), 0);
    EXPECT_EQ(message->status(), VXIMMessageStatusNone);
    EXPECT_EQ(message->attachmentUrl(), std::nullopt) << "a text's body is no URL";
}

TEST(Message, AFreshPayloadCarriesTheTime) {
    ManualClock clock(1450000000.1239);
    auto message = VXIMMessage::init();
    EXPECT_EQ(json(message->payload()), R"({"content":{},"ts":1450000000123})");
    EXPECT_EQ(message->sendTimestamp(), 1450000000.123);
    message->setPayload(std::nullopt);
    clock.advance(std::chrono::seconds(1));
    EXPECT_EQ(json(message->payload()), R"({"content":{},"ts":1450000001123})");
}

TEST(Message, TruncatesTheSendTime) {
    const std::pair<double, std::int64_t> cases[] = {
        {1.0015, 1001},     {-1.0015, -1001},    {0, 0},
        {1e300, INT64_MAX}, {-1e300, INT64_MIN}, {std::nan(""), 0}};
    auto message = VXIMMessage::messageWithText("hi");
    for (const auto& [seconds, millis] : cases) {
        message->setSendTimestamp(seconds);
        EXPECT_EQ(message->payload().get("ts").longLongValue(), millis) << seconds;
    }
    message->payload().set("ts", "1500");
    EXPECT_EQ(message->sendTimestamp(), 1.5) << "the wire may say it as text";
}

TEST(Message, WritesContentInPlace) {
    auto message = VXIMMessage::initWithPayloadDictionary(
        dictionaryFrom(R"({"content":{"media":1,"body":"http://a","w":3}})"));
    EXPECT_EQ(message->attachmentUrl(), "http://a");
    message->setAttachmentUrl(std::nullopt);
    EXPECT_EQ(message->attachmentUrl(), "http://a");
    message->setAttachmentUrl("http://b");
    message->setMediaType(VXIMMessageMediaTypeVideo);
    EXPECT_EQ(json(message->payload()), R"({"content":{"media":3,"body":"http://b","w":3}})");
    message->setText(std::nullopt);
    EXPECT_EQ(json(message->payload()), R"({"content":{"media":3,"w":3}})");

    auto odd = VXIMMessage::initWithPayloadDictionary(dictionaryFrom(R"({"content":"hi"})"));
    EXPECT_EQ(json(odd->dictionaryRepresentation()), R"({"content":"hi"})") << "kept as it came";
    odd->setText("yo");
    EXPECT_EQ(json(odd->payload()), R"({"content":{"body":"yo"}})");
}

TEST(Message, ACopySharesNothingAndLosesWhatIsNotInThePayload) {
    auto message = VXIMMessage::messageWithText("hi");
    message->setStatus(VXIMMessageStatusSent);
    message->setAttachmentPath("/tmp/x");
    message->receiver()->setUserId("u2");
    auto copy = message->copy();
    EXPECT_EQ(describe(*copy), "from -1, to -1: hi");
    EXPECT_EQ(copy->status(), VXIMMessageStatusNone);
    EXPECT_EQ(copy->attachmentPath(), std::nullopt);
    copy->setText("changed");
    EXPECT_EQ(message->text(), "hi");
    message->dictionaryRepresentation();
    EXPECT_EQ(describe(*message->copy()), "from 0, to 0 user u2: hi")
        << "a sender without a type of its own takes the receiver's";
}

TEST(Message, StagesAPictureWhereNobodyElseCanReadOrReplaceIt) {
    // A temporary folder that all users share, where another user has made the folder first.
    const TemporaryFolder shared;
    const TemporaryFolder elsewhere;
    const TemporaryFilesIn inShared(shared.path());
    const std::string staging = shared / "com.vexora.message.attachments";
    const auto stage = [](std::uint8_t red = 1) {
        return VXIMMessage::messageWithImage(*vexim::Image::fromPixels(1, 1, {red, 2, 3, 255}));
    };
    const auto modeOf = [](const std::string& path) {
        struct stat status {};
        return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    };
    const auto picture = stage();
    EXPECT_NE(stage(2)->attachmentPath(), picture->attachmentPath());
    EXPECT_EQ(modeOf(staging), 0700u);
    EXPECT_EQ(modeOf(picture->attachmentPath().value()), 0600u);
    ::chmod(staging.c_str(), 0777);
    EXPECT_TRUE(stage());
    EXPECT_EQ(modeOf(staging), 0700u) << "closed to the others";
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(staging.c_str(), 65534, 65534), 0);
        EXPECT_EQ(stage(), nullptr)
            << "whose folder it is can put another file in the picture's place";
        ASSERT_EQ(::chown(staging.c_str(), 0, 0), 0);
        EXPECT_TRUE(stage());
    }
    std::filesystem::rename(staging, elsewhere / "there");
    std::filesystem::create_symlink(elsewhere / "there", staging);
    EXPECT_EQ(stage(), nullptr) << "a link can lead anywhere";
    std::filesystem::remove(staging);
    std::ofstream(staging) << "a file";
    EXPECT_EQ(stage(), nullptr);
}

TEST(Message, IsKeptInAnArchiveThatMakesNothingElse) {
    auto message = VXIMMessage::initWithPayloadDictionary(dictionaryFrom(
        R"({"from":{"id":"u1","type":0},"content":{"body":"é\u0000"},"ts":9007199254740993,"x":[null,true,1.5]})"));
    const vexim::Data kept = vexim::archivedData(*message);
    EXPECT_EQ(json(vexim::unarchivedObject<VXIMMessage>(kept)->payload()),
              json(message->payload()));

    const std::string archive(kept.view());
    for (std::size_t cut = 0; cut < archive.size(); ++cut) {
        vexim::ErrorPtr error;
        EXPECT_EQ(vexim::unarchivedObject<VXIMMessage>(vexim::Data(archive.substr(0, cut)), &error),
                  nullptr);
        EXPECT_EQ(describe(error), "NSCocoaErrorDomain 4864") << cut;
    }
    for (const char* other :
         {R"({"class":"VXIMUser","values":{"payload":{}}})",
          R"({"class":["VXIMMessage"],"values":{}})", R"({"class":"VXIMMessage","values":[]})",
          R"({"values":{"payload":{}}})", "[]"}) {
        vexim::ErrorPtr error;
        EXPECT_EQ(
            vexim::unarchivedObject<VXIMMessage>(vexim::Data(std::string_view(other)), &error),
            nullptr)
            << other;
        EXPECT_EQ(describe(error), "NSCocoaErrorDomain 4864") << other;
    }
    EXPECT_EQ(describe(*vexim::unarchivedObject<VXIMMessage>(vexim::Data(
                  std::string_view(R"({"class":"VXIMMessage","values":{"payload":7}})")))),
              "from -1, to -1: nil");

    message->payload().set("x", vexim::Data("bytes"));
    vexim::ErrorPtr error;
    EXPECT_TRUE(vexim::archivedData(*message, &error).empty());
    EXPECT_TRUE(error) << "bytes are no JSON";
}

}  // namespace
