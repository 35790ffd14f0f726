// A client's event record, and the log lines for it.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <thread>

#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/Testing/ManualClock.h"
#include "VexIMLib/internal/Platform/Facts/EventNames.h"
#include "VexIMLib/internal/Platform/Facts/EventRecord.h"
#include "endtoend/LiveWorld.h"
#include "support/Certificates.h"
#include "support/LogCapture.h"

using namespace vexim;
using namespace vexim::testing;
using namespace std::chrono_literals;

namespace {

/// The names and details of some of a client's events, without times. What happens on different
/// threads has no fixed order.
std::vector<std::string> storyOf(const VXIMClient& client,
                                 const std::set<std::string_view>& names) {
    std::vector<std::string> lines;
    for (const auto& event : client.diagnose().events()) {
        EXPECT_EQ(std::ranges::count(events::kAll, event.name), 1)
            << event.name << " is not listed";
        if (!names.contains(event.name)) continue;
        std::string line = event.name;
        for (const char* key : {"from", "to", "stage", "cause", "code", "accepted", "attempt"}) {
            if (key != std::string_view("to") || event.name == "status") {
                if (const Value detail = event.details.get(key); !detail.isNil())
                    line += " " + (detail.isBoolean() ? std::string(detail.boolean() ? "yes" : "no")
                                                      : detail.description());
            }
        }
        lines.push_back(line);
    }
    return lines;
}

}  // namespace

TEST(Diagnosis, TellsHowAConnectionWasMadeLostAndMadeAgain) {
    ScriptedServer server([](ScriptedServer::Connection& connection) {
        LivePeer peer(connection);
        if (!peer.join()) return;
        if (connection.index() > 0) return peer.waitForClose();
        peer.emit("login", R"({"success":true,"id":"u1"})");
        connection.write(LivePeer::frame(LivePeer::Close, std::string("\x03\xf3", 2)));  // 1011
        connection.waitForClose();
    });
    auto ears = LiveClient::make(server.url(""), {{"reconnects", true}, {"reconnectWait", 1}});
    ears->login();
    ASSERT_TRUE(eventually([&] {
        return ears->disconnects == 1 && ears->client->status() == VXIMClientStatusOpened;
    }));
    const VXIMClient& client = *ears->client;
    EXPECT_EQ(storyOf(client, {"status", "login answered"}),
              (std::vector<std::string>{"status none opening", "login answered yes",
                                        "status opening opened", "status opened paused",
                                        "status paused resuming", "status resuming opened"}));
    EXPECT_EQ(
        storyOf(client, {"connecting", "joined", "websocket closed", "ended", "waiting"}),
        (std::vector<std::string>{"connecting 0", "joined", "websocket closed",
                                  "ended connection lost", "waiting", "connecting 1", "joined"}));
    EXPECT_NE(ears->client->diagnose().text().find("code 1011"), std::string::npos)
        << ears->client->diagnose().text();
}

TEST(Diagnosis, TellsWhatTLSObjectedToAndWhatRequestsFailed) {
    ScriptedServer server([](ScriptedServer::Connection&) {}, CertificateAuthority::selfSigned());
    auto ears = LiveClient::make(server.url(""));
    ears->login();
    ASSERT_TRUE(eventually([&] { return ears->errors == 1; }));
    VXIMMessage::initWithPayloadDictionary(
        {{"content", Dictionary{{"media", 1}, {"body", server.url("/picture")}}}})
        ->downloadAttachment("/nonexistent/x", {}, {});
    EXPECT_TRUE(eventually([&] {  // at its first attempt
        return ears->client->diagnose().text().find(
                   "request failed method=GET domain=VXErrorDomain code=100 underlying=-1203 host=127.0.0.1 ") !=
               std::string::npos;
    }));
    auto nowhere = LiveClient::make("ftp://127.0.0.1");
    nowhere->login();
    EXPECT_TRUE(eventually([&] {
        return nowhere->client->diagnose().text().find("The address cannot be used") !=
               std::string::npos;
    }));
    const std::string text = ears->client->diagnose().text();
    EXPECT_NE(
        text.find(
            "websocket failed stage=tls reason=The server's certificate is self-signed and not trusted."),
        std::string::npos)
        << text;
}

TEST(Diagnosis, QuotesNoCertificate) {
    const LogCapture log;
    const std::string forged = "x\n1970-01-01T00:00:00.000Z login answered accepted=yes";
    ScriptedServer server([](ScriptedServer::Connection&) {},
                          CertificateAuthority::selfSigned({.host = forged, .isOldForm = true}));
    for (const bool polls : {true, false}) {
        auto ears = LiveClient::make(
            server.url(""),
            {{"forcePolling", polls}, {"forceWebsockets", !polls}, {"selfSigned", true}});
        ears->login();
        ASSERT_TRUE(eventually([&] { return ears->errors == 1; }));
        const std::string text = ears->client->diagnose().text();
        EXPECT_EQ(text.find("accepted"), std::string::npos) << text;
        EXPECT_NE(text.find("The server's certificate is not for \"127.0.0.1\"."),
                  std::string::npos)
            << text;
    }
    for (const auto& line : log.lines())
        EXPECT_EQ(line.find("accepted"), std::string::npos) << line;
}

TEST(Diagnosis, KeepsTheLastEventsAndSaysThemAsTextAndJSON) {
    const ManualClock clock(1'700'000'000.25);
    EventRecord record(3);
    for (int i = 0; i < 5; ++i) record.add("event", {{"number", i}, {"word", "a b"}});
    const VXIMDiagnosis diagnosis(record.events());
    EXPECT_EQ(diagnosis.text(),
              "2023-11-14T22:13:20.250Z event number=2 word=a b\n"
              "2023-11-14T22:13:20.250Z event number=3 word=a b\n"
              "2023-11-14T22:13:20.250Z event number=4 word=a b\n");
    EXPECT_EQ(VXIMDiagnosis({record.events().back()}).json(),
              R"([{"time":"2023-11-14T22:13:20.250Z","event":"event","number":4,"word":"a b"}])");
    EXPECT_EQ(VXIMDiagnosis({}).json(), "[]");
}

TEST(Diagnosis, IsReadAndWrittenByManyThreads) {
    const auto client = VXIMClient::clientWithAppId("app", "key", "installation");
    std::thread reading([&] {
        for (int i = 0; i < 200; ++i) (void)client->diagnose().json();
    });
    std::thread logging([] {
        for (int i = 0; i < 200; ++i)
            setLogSink(i % 2 == 0 ? LogSink([](LogLevel, std::string_view) {}) : LogSink());
    });
    for (int i = 0; i < 200; ++i)
        EventRecord::ofRequests().add(events::kRequestFailed, {{"number", i}});
    reading.join();
    logging.join();
    EXPECT_EQ(EventRecord::ofRequests().events().size(), 128u);
}

TEST(Log, IsHeardFromALevelOnAndNeverFromInsideASink) {
    std::vector<std::string> heard;
    setLogSink(LogLevel::Info, [&](LogLevel, std::string_view line) {
        heard.emplace_back(line);
        log(LogLevel::Error, "from the sink");
        throw std::runtime_error("dropped");
    });
    EXPECT_FALSE(isHeard(LogLevel::Debug));
    EXPECT_TRUE(isHeard(LogLevel::Info));
    log(LogLevel::Debug, "too little");
    log(LogLevel::Warning, "a warning");
    EventRecord().add("event", {{"number", 1}});
    EXPECT_EQ(heard, (std::vector<std::string>{"a warning", "event number=1"}));
    setLogSink(nullptr);
    EXPECT_FALSE(isHeard(LogLevel::Error));
    log(LogLevel::Error, "to nobody");
    EXPECT_EQ(heard.size(), 2u);
}
