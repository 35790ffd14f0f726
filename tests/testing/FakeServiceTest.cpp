#include "VexIMLib/Testing/FakeService.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Testing/ManualClock.h"
#include "endtoend/EndToEnd.h"
#include "support/SeededRandom.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;
using Answer = FakeService::Answer;
using Fault = FakeService::Fault;

class FakeServiceTest : public ::testing::Test {
protected:
    ~FakeServiceTest() override { vxim_configuration = nullptr; }

    std::shared_ptr<Person> newPerson(
        const std::function<void(VXIMClientConfiguration&)>& configure = {}) {
        return Person::make(service.url(), configure);
    }
    std::shared_ptr<Person> loggedIn(
        const std::string& user,
        const std::function<void(VXIMClientConfiguration&)>& configure = {}) {
        auto person = newPerson(configure);
        person->client->loginWithUserId(user, {});
        EXPECT_TRUE(person->hears("didLogin"));
        return person;
    }
    /// Fetches a group, with its retries: "ok", or the error and its underlying error.
    std::string fetchGroup() {
        vxim_configuration = service.configuration();
        std::string outcome;
        const auto group = VXIMGroup::groupWithId("demo-group");
        group->fetchWithBlock(once([&](bool, const ErrorPtr& error) {
            outcome = describe(error);
            if (error && error->underlyingError())
                outcome += " < " + describe(error->underlyingError());
        }));
        EXPECT_TRUE(clock.runUntil([&] { return !outcome.empty(); }));
        return outcome;
    }

    ManualClock clock;
    FakeService service;
};

TEST_F(FakeServiceTest, ScriptsAndFaultsHitTheRequestsTheyFitAsOftenAsTheySay) {
    const struct {
        const char* why;
        std::function<void(FakeService&)> script;
        const char* outcome;
        std::size_t requests;  // 0: libcurl may have repeated some by itself
    } cases[] = {
        {"nothing is scripted", [](FakeService&) {}, "ok", 1},
        {"another method", [](FakeService& s) { s.answer("PUT", "/groups/:id", {.status = 404}); },
         "ok", 1},
        {"another path",
         [](FakeService& s) { s.answer("GET", "/groups/:id/members", {.status = 404}); }, "ok", 1},
        {"another part", [](FakeService& s) { s.answer("GET", "/groups/other", {.status = 404}); },
         "ok", 1},
        {"any method and path", [](FakeService& s) { s.answer("", "", {.status = 404}); },
         "VXErrorDomain 100 < NSURLErrorDomain -1011", 1},
        {"never", [](FakeService& s) { s.answer("", "", {.status = 404}, 0); }, "ok", 1},
        {"once", [](FakeService& s) { s.answer("", "", {.status = 503}); }, "ok", 2},
        {"one after the other",
         [](FakeService& s) {
             s.answer("", "", {.status = 503});
             s.answer("", "", {.status = 502});
             s.answer("", "", {.status = 400, .body = Dictionary{{"errorCode", 7}}});
         },
         "VXErrorDomain 7 < NSURLErrorDomain -1011", 3},
        {"always", [](FakeService& s) { s.answer("", "", {.status = 503}, FakeService::kAlways); },
         "VXErrorDomain 100 < NSURLErrorDomain -1011", 3},
        {"what is no JSON",
         [](FakeService& s) { s.answer("", "", {.body = Data(std::string_view("{"))}); },
         "VXIMErrorDomain 2", 1},
        {"made for the request",
         [](FakeService& s) {
             s.answer("GET", "/groups/:id", [](const FakeService::Request& request) {
                 return Answer{.status = request.headers.contains("x-vx-request-sign") ? 410 : 200};
             });
         },
         "VXErrorDomain 100 < NSURLErrorDomain -1011", 1},
        {"a script that throws",
         [](FakeService& s) {
             s.answer("", "", [](const FakeService::Request&) -> Answer {
                 throw std::runtime_error("oops");
             });
         },
         "VXErrorDomain 1901 < NSURLErrorDomain -1011", 3},
        {"closed once", [](FakeService& s) { s.fail("", "", Fault::Close); }, "ok", 0},
        {"closed", [](FakeService& s) { s.fail("", "", Fault::Close, 9); },
         "VXErrorDomain 100 < NSURLErrorDomain -1005", 0},
        {"cut short", [](FakeService& s) { s.fail("", "", Fault::CutShort, 9); },
         "VXErrorDomain 100 < NSURLErrorDomain -1005", 3},
        {"silence", [](FakeService& s) { s.fail("", "", Fault::Silence, 9); },
         "VXErrorDomain 100 < NSURLErrorDomain -1001", 3},
        {"too late", [](FakeService& s) { s.delay("", "", 10min, 9); },
         "VXErrorDomain 100 < NSURLErrorDomain -1001", 3},
        {"late", [](FakeService& s) { s.delay("", "", 50s); }, "ok", 1},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.why);
        service.reset();
        each.script(service);
        EXPECT_EQ(fetchGroup(), each.outcome);
        if (each.requests > 0) {
            EXPECT_EQ(service.requests().size(), each.requests);
        }
    }
}

TEST_F(FakeServiceTest, WhatComesIsRecorded) {
    auto alice = loggedIn("alice");
    ASSERT_EQ(service.logins().size(), 1u);
    EXPECT_EQ(json(service.logins()[0].get("client")), "\"alice\"");

    VXIMGroup::groupWithId("demo-group")->updateName("New name", {});
    ASSERT_TRUE(eventuallyElsewhere([&] { return service.requests().size() == 1; }));
    const auto request = service.requests()[0];
    EXPECT_EQ(request.method + " " + request.path + " " + json(request.json()),
              R"(POST /groups/demo-group/attributes {"name":"New name"})");
    EXPECT_TRUE(request.headers.get("x-vx-request-sign").description().ends_with(",1700000000"))
        << "by the shared clock";

    for (const char* to : {"bob", "nobody"})
        alice->client->sendMessageToFriend(VXIMMessage::messageWithText("hi"), to, {});
    const auto withBytes = VXIMMessage::messageWithText("bytes");
    withBytes->payload().set("x", Data("bytes"));
    alice->client->sendMessageToFriend(withBytes, "bob", {});
    ASSERT_TRUE(eventuallyElsewhere([&] { return service.messages().size() == 3; }));
    const auto messages = service.messages();
    EXPECT_EQ(messages[0].from + ": " + messages[0].body() + messages[0].refusal, "alice: hi");
    EXPECT_EQ(messages[1].refusal, "There is no such user.");
    EXPECT_EQ(messages[2].refusal, "The items of an event must be JSON.");
    std::string history;
    alice->client->currentUser()->getLatestChatsWithFriend(
        "bob", 2e9, 20, once([&](const auto& list, const ErrorPtr& error) {
            history =
                error ? describe(error)
                      : std::to_string(list->size()) + " " + list->front()->text().value_or("nil");
        }));
    ASSERT_TRUE(eventually([&] { return !history.empty(); }));
    EXPECT_EQ(history, "1 hi") << "what was refused is nowhere";

    service.forgetWhatCame();
    EXPECT_TRUE(service.requests().empty() && service.logins().empty() &&
                service.messages().empty());
}

TEST_F(FakeServiceTest, OtherPeopleActWithoutClients) {
    service.addUser({.id = "carol", .attributes = {{"nick", "Carol"}}});
    service.addFriendship("carol", "alice");
    service.addGroup("g1", "carol", {"alice"});
    service.addRoom("r1", "Hall", {"alice", "carol"});
    auto alice = loggedIn("alice");

    service.setOnline("carol", true);
    EXPECT_TRUE(alice->hears("online carol"));
    service.say("carol", "alice", "hi");
    EXPECT_TRUE(alice->hears("friend carol: hi"));
    service.sayToGroup("carol", "g1", "all");
    EXPECT_TRUE(alice->hears("group g1: all"));
    service.sayToRoom("carol", "r1", "here");
    EXPECT_TRUE(alice->hears("room r1: here"));
    service.saySystem("down at noon");
    EXPECT_TRUE(alice->hears("system: down at noon"));
    EXPECT_EQ(service.emit("alice", "sys", {Dictionary{{"content", 7}}}), 1u);
    EXPECT_TRUE(alice->hears("system: nil"));
    service.setOnline("carol", false);
    EXPECT_TRUE(alice->hears("offline carol"));

    EXPECT_THROW(service.say("carol", "bob", "no friends"), std::invalid_argument);
    EXPECT_THROW(service.sayToGroup("bob", "g1", "no member"), std::invalid_argument);
    EXPECT_THROW(service.addFriendship("carol", "nobody"), std::invalid_argument);
    EXPECT_THROW(service.addUser({.id = "alice"}), std::invalid_argument);
    EXPECT_THROW(service.answer("", "", {.body = std::numeric_limits<double>::quiet_NaN()}),
                 std::invalid_argument);
}

TEST_F(FakeServiceTest, LoginsAreRefusedOrIgnoredWhenAsked) {
    const auto login = [&] {
        auto person = newPerson();
        std::string outcome;
        const auto logins = service.logins().size();
        person->client->loginWithUserId(
            "alice", atMostOnce([&](bool succeeded, const ErrorPtr& error) {
                outcome = (succeeded ? "yes " : "no ") + describe(error);
            }));
        EXPECT_TRUE(eventuallyElsewhere([&] { return service.logins().size() > logins; }));
        if (outcome.empty())
            static_cast<void>(clock.runUntil([&] { return !outcome.empty(); }, 1min));
        return outcome;
    };
    EXPECT_EQ(login(), "yes ok");
    service.setLogins(FakeService::Logins::Refused);
    EXPECT_EQ(login(), "no VXIMErrorDomain 1105");
    service.setLogins(FakeService::Logins::Ignored);
    EXPECT_EQ(login(), "");
    service.reset();
    EXPECT_EQ(login(), "yes ok");
}

TEST_F(FakeServiceTest, AConnectionThatIsRefusedOrNeverComesUpIsAnError) {
    const std::pair<const char*, std::function<void(FakeService&)>> cases[] = {
        {"an answer instead of the handshake",
         [](FakeService& s) { s.answer("GET", "/socket.io/", {.status = 503}); }},
        {"closed", [](FakeService& s) { s.fail("GET", "/socket.io/", Fault::Close); }},
        {"cut short", [](FakeService& s) { s.fail("GET", "/socket.io/", Fault::CutShort); }},
        {"silent, until the deadline",
         [](FakeService& s) { s.fail("GET", "/socket.io/", Fault::Silence); }},
        {"down", [](FakeService& s) { s.stop(); }},
    };
    for (const auto& [why, script] : cases) {
        SCOPED_TRACE(why);
        script(service);
        auto alice = newPerson();
        bool failed = false;
        NotificationCenter::defaultCenter().addObserver(
            alice, VXIMClientConnectionErrorNotification, alice->client.get(),
            [&failed](const Notification&) { failed = true; });
        alice->client->loginWithUserId("alice", {});
        EXPECT_TRUE(clock.runUntil([&] { return failed; }, 21s));
        EXPECT_EQ(service.logins().size(), 0u);
    }
    service.start();
    loggedIn("alice");
}

TEST_F(FakeServiceTest, WhoLosesTheServiceComesBackWhenTheClockIsTurned) {
    const SeededRandom random;  // otherwise one wait in a thousand is none
    auto bob = loggedIn("bob", [](VXIMClientConfiguration& c) { c.setAutoReconnect(true); });
    EXPECT_EQ(service.dropConnections("bob"), 1u);
    EXPECT_EQ(service.connections("bob"), 0u);
    ASSERT_TRUE(bob->hears("didDisconnect"));
    loggedIn("alice");  // takes as long as he would
    EXPECT_EQ(service.connections("bob"), 0u) << "time stands still";
    EXPECT_TRUE(clock.runUntil([&] { return service.connections("bob") > 0; }, 2s));
    EXPECT_TRUE(bob->hears("didLogin"));
}

TEST(FakeServiceHeartbeat, IsKeptUpByBothSidesAndMissedInSilence) {
    for (const int line : {2, 3, 4}) {
        SCOPED_TRACE(line);
        ManualClock clock;
        FakeService service({.socketIOLine = line, .pingInterval = 25s, .pingTimeout = 20s});
        auto alice = Person::make(service.url(), {});
        alice->client->loginWithUserId("alice", {});
        ASSERT_TRUE(alice->hears("didLogin"));
        EXPECT_FALSE(clock.runUntil(
            [&] { return alice->client->status() != VXIMClientStatusOpened; }, 2min));

        EXPECT_EQ(service.setSilent(true), 1u);
        const auto silentSince = clock.now();
        EXPECT_TRUE(clock.runUntil(
            [&] { return alice->client->status() == VXIMClientStatusPaused; }, 1min));
        EXPECT_GE(clock.now() - silentSince, 20s);
        EXPECT_LE(clock.now() - silentSince, 46s);
        vxim_configuration = nullptr;
    }
}

TEST(FakeServiceEnd, WaitsForNobodyWhoIsJustConnecting) {
    std::atomic<std::uint16_t> port{0};  // 0 means to stop
    std::atomic<int> connected{0};
    const auto connect = [&] {
        std::vector<int> open;  // stay open and send nothing
        while (port != 0) {
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_port = htons(port);
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            const int socket =
                connected < 6 ? ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0) : -1;
            if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
                open.push_back(socket);
                ++connected;
            } else {
                ::close(socket);
            }
        }
        for (const int each : open) ::close(each);
    };
    std::thread connecting;
    for (int i = 0; i < 100; ++i) {
        const FakeService service;
        port = static_cast<std::uint16_t>(
            std::stoi(service.url().substr(service.url().rfind(':') + 1)));
        connected = 0;
        if (!connecting.joinable()) connecting = std::thread(connect);
        EXPECT_TRUE(spinUntil([&] { return connected > i % 5; }));
    }
    port = 0;
    connecting.join();
}

}  // namespace
}  // namespace vexim::testing
