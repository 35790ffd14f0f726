// What happens to a session at an awkward moment: twice, in between, or when the answer to
// something older comes.

#include <algorithm>
#include <functional>
#include <string_view>
#include <utility>

#include "VexIMLib/Testing/FakeService.h"
#include "VexIMLib/Testing/ManualClock.h"
#include "VexIMLib/VXIMConstants.h"
#include "VexIMLib/internal/Platform/Facts/EventRecord.h"
#include "client/ClientFixture.h"

using namespace vexim::testing;
using vexim::Dictionary;

namespace {

class SessionRaces : public ClientTest {};

TEST_F(SessionRaces, ResumingAConnectionThatStandsEndsInOpened) {
    const std::pair<const char*, std::function<void()>> moments[] = {
        {"no drop at all", [&] { client->resume(); }},
        {"the drop is not heard yet",
         [&] {
             socket().drop();
             client->resume();
             drainMainQueue();
             socket().accept();
         }},
        {"the next attempt is being waited for",
         [&] {
             socket().drop();
             socket().attemptReconnect();
             drainMainQueue();
             client->resume();
             drainMainQueue();
             socket().accept();
         }},
        {"all of the reconnect is still queued behind the resume",
         [&] {
             client->resume();
             socket().drop();
             socket().attemptReconnect();
             socket().accept();
         }},
        {"all of the reconnect is queued before it",
         [&] {
             socket().drop();
             socket().attemptReconnect();
             socket().accept();
             client->resume();
         }},
        {"the attempt is heard, its connect is queued",
         [&] {
             socket().drop();
             socket().attemptReconnect();
             drainMainQueue();
             client->resume();
             socket().accept();
         }},
        {"the reconnect is over",
         [&] {
             socket().drop();
             socket().attemptReconnect();
             socket().accept();
             drainMainQueue();
             client->resume();
         }},
    };
    client->loginWithUserId("u1", {});
    drainMainQueue();
    socket().accept();
    client->resume();
    drainMainQueue();
    EXPECT_EQ(state(), "1 offline") << "the login is not answered yet";
    EXPECT_EQ(socket().connects, 2) << "the connection may be closing";
    for (const auto& [why, act] : moments) {
        login();
        act();
        drainMainQueue();
        EXPECT_EQ(client->status(), VXIMClientStatusOpened) << why;
        EXPECT_TRUE(client->currentUser()->online()) << why;
    }
}

TEST_F(SessionRaces, ResumingARealConnectionMeetsItsReconnectAtAnyMoment) {
    FakeService peer({.appId = "app", .clientKey = "key"});
    peer.addUser({.id = "u1"});
    client = VXIMClient::clientWithConfiguration(peer.configuration());
    client->loginWithUserId("u1", {});
    const auto isOpened = [&] { return client->status() == VXIMClientStatusOpened; };
    const auto isConnected = [&] {
        return client->socketio()->status() == vexim::SocketIOStatusConnected;
    };
    const std::pair<const char*, std::function<void()>> moments[] = {
        {"the drop is not heard", [] {}},
        {"the drop is known, and not heard",
         [&] { EXPECT_TRUE(spinUntil([&] { return !isConnected(); })); }},
        {"the drop is heard", [&] { EXPECT_TRUE(eventually([&] { return !isOpened(); })); }},
        {"the attempt is begun, and then over unheard",
         [&] {
             EXPECT_TRUE(eventually([&] { return !isOpened(); }));
             client->resume();
             vexim::MainQueue::shared().drain();
             client->resume();
             EXPECT_TRUE(spinUntil(isConnected));
         }},
        {"all is over",
         [&] {
             EXPECT_TRUE(eventually([&] { return !isOpened(); }));
             EXPECT_TRUE(eventually(isOpened));
         }},
    };
    for (const auto& [why, await] : moments) {
        SCOPED_TRACE(why);
        ASSERT_TRUE(
            eventuallyElsewhere([&] { return isOpened() && peer.dropConnections("u1") == 1; }));
        await();
        client->resume();
        drainMainQueue();
        ASSERT_TRUE(eventuallyElsewhere([&] { return isOpened() && isConnected(); }));
    }
}

TEST_F(SessionRaces, TwoPausesAreToldOnce) {
    login();
    client->pause();
    client->pause();
    drainMainQueue();
    client->pause();
    drainMainQueue();
    EXPECT_EQ(journal->take(), Lines{"didDisconnect at 3"});
    client->resume();
    drainMainQueue();
    client->pause();
    drainMainQueue();
    EXPECT_EQ(journal->take(), Lines{"didDisconnect at 3"}) << "a resume lies between";
    socket().connect();  // as an application may do
    socket().accept();
    drainMainQueue();
    client->pause();
    drainMainQueue();
    EXPECT_EQ(journal->take(), Lines{"didDisconnect at 3"});
    for (const char* between : {"a resume", "a login"}) {
        std::string_view(between) == "a login" ? login() : client->resume();
        drainMainQueue();
        if (socket().status() != vexim::SocketIOStatusConnected) socket().accept();
        socket().drop();
        client->pause();
        drainMainQueue();
        EXPECT_EQ(journal->take(), (Lines{"didDisconnect at 3", "didDisconnect at 3"}))
            << "a drop, a pause after " << between;
    }
}

TEST_F(SessionRaces, AnAnswerToALogoutEndsNoLaterLogin) {
    const struct {
        const char* why;
        int status;
        const char* body;
        const char* heard;
    } cases[] = {
        {"the installation is removed", 200, "{}", "logout yes"},
        {"it is not", 400, R"({"errorCode":7,"errorMessage":"no"})", "logout no, VXErrorDomain 7"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        login();
        service.answerWith(c.status, c.body);
        client->logoutWithCompletion(journal->completion("logout"));
        client->loginWithUserId("u2", {});
        vexim::MainQueue::shared().drain();
        EXPECT_EQ(nextHeard(), Lines{c.heard});
        drainMainQueue();
        EXPECT_EQ(service.takeRequests(),
                  Lines{R"(DELETE /ctx/u1/installs {"installs":["installation"]})"});
        EXPECT_EQ(state(), "1 offline");
        socket().acceptLogin("u2");
        socket().drop();
        drainMainQueue();
        EXPECT_EQ(state(), "3 offline offlineTemporally");
        client = newClient();
        client->setDelegate(journal);
        journal->take();
    }
}

TEST_F(SessionRaces, ALoginThatOvertakesALogoutStays) {
    service.configuration()->setInstallationId("");  // so no request is needed
    const struct {
        const char* why;
        bool connects;
        int turns;  // of the main queue, between the logout and the login
        Lines heard;
    } cases[] = {
        {"without a connection, called at once", false, 0, {}},
        {"without a connection, waiting for ever", false, 3, {}},
        {"the removal is still to be answered", true, 0, {"logout yes"}},
        {"the login runs right before the connection says that it has closed",
         true,
         1,
         {"logout yes"}},
        {"the login runs right after that",
         true,
         2,
         {"logout yes", "didLogout at 6", "didDisconnect at 6"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        client = newClient();
        client->setDelegate(journal);
        if (c.connects) login();
        client->logoutWithCompletion(journal->completion("logout"));
        for (int i = 0; i < c.turns; ++i) vexim::MainQueue::shared().drain();
        client->loginWithUserId("u2", {});
        drainMainQueue();
        EXPECT_EQ(journal->take(), c.heard);
        socket().acceptLogin("u2");
        drainMainQueue();
        EXPECT_EQ(state(), "2 online");
        socket().drop();
        drainMainQueue();
        EXPECT_EQ(state(), "3 offline offlineTemporally");
        ASSERT_TRUE(client->currentUser());
        EXPECT_EQ(json(client->currentUser()->uid()), "\"u2\"");
        journal->take();
    }
}

TEST_F(SessionRaces, ALoginThatOvertakesALogoutLeavesNothingBehind) {
    service.configuration()->setInstallationId("");
    login();
    client->logoutWithCompletion({});
    vexim::MainQueue::shared().drain();
    client->loginWithUserId("u2", {});
    drainMainQueue();
    const std::weak_ptr<VXIMClient> released = client;
    client = nullptr;
    EXPECT_TRUE(released.expired()) << "nobody waits for the old connection any more";
}

TEST_F(SessionRaces, BothOfTwoLogoutsAreAnswered) {
    login();
    service.answerWith(400, R"({"errorCode":7,"errorMessage":"no"})");
    client->logoutWithCompletion(journal->completion("first"));
    client->logoutWithCompletion(journal->completion("second"));
    ASSERT_TRUE(eventually([&] { return journal->count() == 2; }));
    drainMainQueue();
    EXPECT_EQ(state(), "2 online") << "neither succeeded";
    journal->take();

    service.answerWith(200, "{}");
    // without an installation, no request is needed between the two
    for (const char* installation : {"installation", ""}) {
        SCOPED_TRACE(installation);
        service.configuration()->setInstallationId(installation);
        login();
        client->logoutWithCompletion(journal->completion("logout"));
        client->logoutWithCompletion(journal->completion("logout"));
        ASSERT_TRUE(eventually([&] { return journal->count() == 4; }));
        drainMainQueue();
        auto heard = journal->take();
        std::ranges::sort(heard);
        EXPECT_EQ(heard,
                  (Lines{"didDisconnect at 6", "didLogout at 6", "logout yes", "logout yes"}));
        EXPECT_EQ(state(), "6 nobody no socket");
    }
}

TEST_F(SessionRaces, ALogoutThatFailsTakesNoOtherOneBack) {
    login();
    service.answerWith(400, R"({"errorCode":7,"errorMessage":"no"})");
    auto held = service.hold();
    client->logoutWithCompletion(journal->completion("first"));
    drainMainQueue();
    service.configuration()->setInstallationId("");  // so the second one needs no request
    socket().isSlowToClose = true;
    client->logoutWithCompletion(journal->completion("second"));
    drainMainQueue();
    held.unlock();
    EXPECT_EQ(nextHeard(), Lines{"first no, VXErrorDomain 7"});
    EXPECT_EQ(state(), "5 online tryLogout");
    socket().isSlowToClose = false;
    socket().disconnect();
    drainMainQueue();
    EXPECT_EQ(journal->take(), (Lines{"second yes", "didLogout at 6", "didDisconnect at 6"}));
}

TEST_F(SessionRaces, EachChangeOfTheStatusIsToldOnceAndAsItWas) {
    Lines heard;
    const auto observer = std::make_shared<int>();
    vexim::NotificationCenter::defaultCenter().addObserver(
        observer, VXIMClientDidChangeStatusNotification, client.get(),
        [&](const vexim::Notification& notification) {
            heard.push_back(notification.userInfo->get("status").description());
        });
    client->resume();
    client->resume();
    client->logoutWithCompletion({});
    drainMainQueue();
    EXPECT_EQ(heard, (Lines{"4", "5"}));

    static double epoch = 1'300'000'000;  // one for each time, as requests have one record for all
    epoch += 1000;
    ManualClock clock(epoch);
    std::string told;
    for (int i = 0; i < 2; ++i) {
        vexim::EventRecord::ofRequests().add("asked");
        clock.advance(std::chrono::seconds(1));
        i == 0 ? client->resume() : client->pause();
        drainMainQueue();
        clock.advance(std::chrono::seconds(1));
    }
    for (const auto& event : client->diagnose().events()) {
        if (event.time >= epoch && event.time < epoch + 1000) told += event.name + " ";
    }
    EXPECT_EQ(told, "asked status asked ") << "by time, whoever recorded it";
    EXPECT_TRUE(client->offlineTemporally()) << "a pause counts before there is a connection";
}

TEST_F(SessionRaces, WhoHearsOfTheStatusMayCallTheClientAndRunTheQueue) {
    login();
    service.configuration()->setInstallationId("");
    Lines heard;
    const auto observer = std::make_shared<int>();
    const auto hear = [&](const vexim::Notification& notification) {
        heard.push_back(notification.userInfo->get("status").description());
        if (heard != Lines{"5", "6"}) return;
        client->logoutWithCompletion({});
        // long enough for the logout to check the connection
        for (int turn = 0; turn < 2; ++turn) vexim::MainQueue::shared().drain();
    };
    vexim::NotificationCenter::defaultCenter().addObserver(
        observer, VXIMClientDidChangeStatusNotification, client.get(), hear);
    client->logoutWithCompletion({});
    drainMainQueue();
    EXPECT_EQ(heard, (Lines{"5", "6", "5"}));
    EXPECT_EQ(state(), "5 nobody tryLogout no socket")
        << "the last of them began without a connection";
    const std::weak_ptr<VXIMClient> released = client;
    client = nullptr;
    EXPECT_TRUE(released.expired());
}

TEST_F(Session, CanBeReleasedInAnyCallback) {
    const std::pair<const char*, std::function<void()>> endings[] = {
        {"in the login's completion",
         [&] {
             client->loginWithUserId("u1",
                                     once([&](bool, const vexim::ErrorPtr&) { client = nullptr; }));
             drainMainQueue();
             socket().acceptLogin("u1");
         }},
        {"with a login pending",
         [&] {
             client->loginWithUserId("u1", {});
             drainMainQueue();
             client = nullptr;
             socket().acceptLogin("u1");
         }},
        {"before a login has begun",
         [&] {
             client->loginWithUserId("u1", {});
             client = nullptr;
         }},
        {"in the logout's completion",
         [&] {
             login();
             bool done = false;
             client->logoutWithCompletion(once([&](bool, const vexim::ErrorPtr&) {
                 client = nullptr;
                 done = true;
             }));
             ASSERT_TRUE(eventually([&] { return done; }));
         }},
        {"its delegate, in the delegate",
         [&] {
             login();
             journal = nullptr;
             socket().send("online", {"u2"});
         }},
    };
    for (const auto& [why, end] : endings) {
        SCOPED_TRACE(why);
        journal = Journal::make();
        client = newClient();
        client->setDelegate(journal);
        const std::weak_ptr<void> held[] = {client, journal};
        end();
        drainMainQueue();
        client = nullptr;
        journal = nullptr;
        for (const auto& each : held)
            EXPECT_TRUE(eventuallyElsewhere([&] { return each.expired(); })) << "nobody keeps them";
    }
}

}  // namespace
