#include <functional>
#include <string>
#include <thread>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Testing/ManualClock.h"
#include "client/ClientFixture.h"

using namespace vexim::testing;
using vexim::Array;
using vexim::Dictionary;
using vexim::Value;

namespace {

TEST_F(Session, LoginsCarryTheirCredentials) {
    ManualClock clock(1450000000);
    service.configuration()->dictionary().set("connectParams", Dictionary{{"own", 1}});
    // MD5 of "1450000000key", from another implementation.
    const std::string common =
        R"({"app":"app","sign":"0b8c19c14752af29fc6dace579afc437,1450000000",)";
    const struct {
        const char* why;
        std::function<void()> login;
        std::string auth;
        const char* user;
    } cases[] = {
        {"user id", [&] { client->loginWithUserId("u1", {}); },
         common + R"("client":"u1","install":"installation"})", "\"u1\" nil nil"},
        {"user name", [&] { client->loginWithUsername("joe", "secret", {}); },
         common + R"("username":"joe","password":"secret"})", "\"\" \"joe\" nil"},
        {"phone: the code goes under password",
         [&] { client->loginWithPhoneNumber("123", "4711", {}); },
         common + R"("phone":"123","password":"4711"})", "\"\" nil \"123\""},
        {"an outside provider",
         [&] {
             client->loginWithThirdPartyOAuth(Dictionary{{"token", "t"}}, {});
         },
         common + R"("oauth":{"token":"t"}})", "\"\" nil nil"},
        {"the caller's own",
         [&] {
             client->loginWithAuthData(dictionaryFrom(R"({"client":5,"username":"é","x":[1]})"),
                                       {});
         },
         R"({"client":5,"username":"é","x":[1]})", "5 \"é\" nil"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        c.login();
        const auto user = client->currentUser();
        EXPECT_EQ(
            json(user->uid()) + " " + json(user->username()) + " " + json(user->phoneNumber()),
            c.user);
        drainMainQueue();
        const Value parameters = socket().options.get("connectParams");
        EXPECT_EQ(parameters.get("auth").description(), c.auth);
        EXPECT_EQ(parameters.asDictionary()->size(), 1U);
        EXPECT_EQ(socket().nsp(), "/chat");
        EXPECT_EQ(socket().url, service.configuration()->socketURL());
        EXPECT_EQ(state(), "1 offline");
    }
    EXPECT_EQ(json(service.configuration()->dictionary()),
              R"({"forceWebsockets":true,"connectParams":{"own":1}})")
        << "a login changes no option";
    EXPECT_EQ(socket().eventsListenedTo,
              (Lines{"connect", "reconnect", "disconnect", "error", "login", "message", "yourself",
                     "online", "offline", "sys"}));
}

TEST_F(Session, RaisesForAMissingCredentialAtOnce) {
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"user id", [&] { client->loginWithUserId(std::nullopt, {}); }},
        {"installation",
         [&] {
             service.configuration()->setInstallationId(std::nullopt);
             client->loginWithUserId("u1", {});
         }},
        {"user name", [&] { client->loginWithUsername(std::nullopt, "p", {}); }},
        {"password", [&] { client->loginWithUsername("u", std::nullopt, {}); }},
        {"phone", [&] { client->loginWithPhoneNumber(std::nullopt, "1", {}); }},
        {"code", [&] { client->loginWithPhoneNumber("1", std::nullopt, {}); }},
        {"OAuth", [&] { client->loginWithThirdPartyOAuth(std::nullopt, {}); }},
        {"what is no JSON",
         [&] {
             client->loginWithAuthData({{"x", vexim::Data("x")}}, {});
         }},
        {"app",
         [&] {
             service.configuration()->setAppId(std::nullopt);
             client->loginWithUsername("u", "p", {});
         }},
        {"key",
         [&] {
             service.configuration()->setAppId("app");
             service.configuration()->setClientKey(std::nullopt);
             client->loginWithUsername("u", "p", {});
         }},
    };
    for (const auto& [why, login] : cases) EXPECT_THROW(login(), vexim::Exception) << why;
    drainMainQueue();
    EXPECT_EQ(sockets.size(), 0u);
    EXPECT_EQ(state(), "0 nobody no socket");
}

TEST_F(Session, ASuccessfulLoginIsToldInOrder) {
    client->loginWithUsername("joe", "secret", once([&](bool succeeded, const vexim::ErrorPtr&) {
                                  journal->write("completion " + std::to_string(succeeded) +
                                                 " at " + std::to_string(client->status()));
                              }));
    drainMainQueue();
    socket().accept();
    drainMainQueue();
    EXPECT_EQ(state(), "1 offline") << "the first connect decides nothing";
    socket().send("login", {Dictionary{{"success", true}, {"id", "u1"}}});
    drainMainQueue();
    EXPECT_EQ(journal->take(), (Lines{"completion 1 at 1", "posted VXIMUserDidLoginNotification u1",
                                      "didLogin at 2"}));
    EXPECT_EQ(state(), "2 online");
    EXPECT_EQ(json(client->currentUser()->uid()), "\"u1\"");
    EXPECT_EQ(json(client->currentUser()->username()), "\"joe\"");

    socket().send("login", {Dictionary{{"success", true}, {"id", "u1"}}});
    drainMainQueue();
    EXPECT_EQ(journal->take(), (Lines{"posted VXIMUserDidLoginNotification u1", "didLogin at 2"}))
        << "again, without a caller";
}

TEST_F(Session, AFailedLoginNamesTheServicesCode) {
    const struct {
        const char* answer;
        std::int64_t code;
        const char* userInfo;
    } cases[] = {
        {R"([{"success":false,"error":{"errorCode":211,"x":1}}])", 211,
         R"({"errorCode":211,"x":1})"},
        {R"([{"success":false,"error":90}])", 90, "90"},
        {R"([{"error":"text"}])", 0, "\"text\""},
        {R"([{"success":null,"error":{"errorCode":"12"}}])", 12, R"({"errorCode":"12"})"},
        {R"([{"success":[true]}])", 0, "nil"},
        {R"(["text"])", 0, "nil"},
        {R"([null])", 0, "nil"},
        {R"([])", 0, "nil"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.answer);
        vexim::ErrorPtr failure;
        client->loginWithUserId("u1", once([&](bool succeeded, const vexim::ErrorPtr& error) {
                                    EXPECT_FALSE(succeeded);
                                    failure = error;
                                }));
        drainMainQueue();
        socket().accept();
        socket().send("login", *vexim::parseJSON(c.answer).value.asArray());
        drainMainQueue();
        ASSERT_TRUE(failure);
        EXPECT_TRUE(failure->is(VXIMErrorDomain, c.code)) << failure->code();
        EXPECT_EQ(json(failure->userInfo()), c.userInfo);
        EXPECT_FALSE(failure->localizedDescription().empty());
        EXPECT_EQ(state(), "1 offline") << "the connection stays";
        EXPECT_EQ(journal->take(), Lines());
    }
}

TEST_F(Session, ASecondLoginDropsTheFirstConnectionSilently) {
    client->loginWithUserId("u1", journal->completion("first"));
    drainMainQueue();
    socket().accept();
    drainMainQueue();
    client->loginWithUserId("u2", journal->completion("second"));
    drainMainQueue();
    ASSERT_EQ(sockets.size(), 2u);
    EXPECT_EQ(sockets[0]->status(), vexim::SocketIOStatusDisconnected);
    EXPECT_FALSE(sockets[0]->hasHandlers());
    EXPECT_EQ(client->socketio(), sockets[1]);
    EXPECT_EQ(journal->take(), Lines());
    EXPECT_EQ(state(), "1 offline");
    socket().acceptLogin("u2");
    drainMainQueue();
    EXPECT_EQ(journal->take(),
              (Lines{"second yes", "posted VXIMUserDidLoginNotification u2", "didLogin at 2"}));
}

TEST_F(Session, PausesAndResumes) {
    login();
    client->pause();
    EXPECT_EQ(state(), "2 online") << "not on the caller's turn";
    drainMainQueue();
    EXPECT_EQ(state(), "3 offline offlineTemporally");
    EXPECT_EQ(journal->take(), Lines{"didDisconnect at 3"});

    client->resume();
    drainMainQueue();
    EXPECT_EQ(state(), "4 offline offlineTemporally");
    EXPECT_EQ(sockets.size(), 1u) << "the same connection";
    socket().accept();
    drainMainQueue();
    EXPECT_EQ(state(), "2 online offlineTemporally")
        << "without a new login; the flag stays until a logout";
    EXPECT_EQ(journal->take(), Lines());
}

TEST_F(Session, ComesBackAfterADrop) {
    login();
    socket().drop();
    drainMainQueue();
    EXPECT_EQ(state(), "3 offline offlineTemporally");
    socket().attemptReconnect();
    drainMainQueue();
    EXPECT_EQ(state(), "4 offline offlineTemporally");
    socket().accept();
    drainMainQueue();
    EXPECT_EQ(state(), "2 online offlineTemporally");
    EXPECT_EQ(journal->take(), (Lines{"didDisconnect at 3", "reconnecting at 4"}));
}

TEST_F(Session, IgnoresAConnectOfAnotherNamespace) {
    login();
    client->pause();
    drainMainQueue();
    client->resume();
    drainMainQueue();
    socket().joinNamespace("/other");
    socket().accept();
    drainMainQueue();
    EXPECT_EQ(state(), "4 offline offlineTemporally");
}

TEST_F(Session, ResumesInANamespaceWrittenLoosely) {
    service.configuration()->setNsp("ch,at?x=y");
    login();
    client->pause();
    client->resume();
    drainMainQueue();
    socket().accept();
    drainMainQueue();
    EXPECT_EQ(state(), "2 online offlineTemporally");
}

TEST_F(Session, LogsOutOverRESTAndThenCloses) {
    login();
    client->logoutWithCompletion(once([&](bool succeeded, const vexim::ErrorPtr&) {
        journal->write("logout " + std::to_string(succeeded) + ", " + state());
    }));
    EXPECT_EQ(state(), "2 online");
    ASSERT_TRUE(eventually([&] { return client->status() == VXIMClientStatusClosed; }));
    drainMainQueue();
    EXPECT_EQ(service.takeRequests(),
              Lines{R"(DELETE /ctx/u1/installs {"installs":["installation"]})"});
    EXPECT_EQ(journal->take(),
              (Lines{"logout 1, 6 nobody no socket", "didLogout at 6", "didDisconnect at 6"}));
    EXPECT_FALSE(sockets[0]->hasHandlers());

    login();
    EXPECT_EQ(state(), "2 online");
}

TEST_F(Session, ALogoutKeepsItsClientUntilTheConnectionHasClosed) {
    login();
    bool done = false;
    client->logoutWithCompletion(
        once([&](bool succeeded, const vexim::ErrorPtr&) { done = succeeded; }));
    const std::weak_ptr<VXIMClient> alive = client;
    client = nullptr;
    EXPECT_TRUE(eventually([&] { return done; }));
    drainMainQueue();
    EXPECT_TRUE(alive.expired());
}

TEST_F(Session, LogsOutWhilePaused) {
    login();
    client->pause();
    drainMainQueue();
    journal->take();
    client->logoutWithCompletion(journal->completion("logout"));
    ASSERT_TRUE(eventually([&] { return client->status() == VXIMClientStatusClosed; }));
    drainMainQueue();
    EXPECT_EQ(journal->take(), (Lines{"logout yes", "didLogout at 6", "didDisconnect at 6"}));
}

TEST_F(Session, AFailedLogoutLeavesEverythingAsItWas) {
    login();
    service.answerWith(400, R"({"errorCode":7,"errorMessage":"no"})");
    client->logoutWithCompletion(journal->completion("logout"));
    vexim::MainQueue::shared().drain();  // one turn: the answer comes in a later one
    EXPECT_EQ(state(), "5 online");
    EXPECT_EQ(nextHeard(), Lines{"logout no, VXErrorDomain 7"});
    EXPECT_EQ(state(), "2 online");
}

TEST_F(Session, ALogoutWithoutAConnectionNeverEnds) {
    client->logoutWithCompletion([](bool, const vexim::ErrorPtr&) { FAIL(); });
    drainMainQueue();
    EXPECT_EQ(state(), "5 nobody tryLogout no socket");
    EXPECT_EQ(service.takeRequests(), Lines());
    client->resetFlags();
    EXPECT_EQ(state(), "5 nobody no socket");
}

TEST_F(Session, RemovesTheInstallationOnlyWhenBothIdsAreKnown) {
    client->deleteCurrentInstallIdCompletion(journal->completion("before a login"));
    EXPECT_EQ(journal->take(), Lines()) << "not on the caller's turn";
    drainMainQueue();
    client->loginWithUsername("joe", "secret", {});
    client->deleteCurrentInstallIdCompletion(journal->completion("with an empty uid"));
    drainMainQueue();
    EXPECT_EQ(journal->take(), (Lines{"before a login yes", "with an empty uid yes"}));
    login();
    std::thread([&] {
        client->deleteCurrentInstallIdCompletion(journal->completion("from another thread, later"));
    }).join();
    service.configuration()->setInstallationId("");
    client->deleteCurrentInstallIdCompletion(journal->completion("without an installation"));
    drainMainQueue();
    EXPECT_EQ(journal->take(),
              (Lines{"without an installation yes", "from another thread, later yes"}));
    EXPECT_EQ(service.takeRequests(), Lines());
}

TEST_F(Session, TellsPresenceAndErrors) {
    const struct {
        const char* event;
        const char* arguments;
        Lines heard;
    } cases[] = {
        {"online",
         R"(["u2"])",
         {R"(posted VXIMFriendOnlineNotification {"id":"u2"})", "online u2"}},
        {"offline",
         R"(["u2",5])",
         {R"(posted VXIMFriendOfflineNotification {"id":"u2"})", "offline u2"}},
        {"online", "[]", {R"(posted VXIMFriendOnlineNotification {"id":""})"}},
        {"offline", "[null]", {R"(posted VXIMFriendOfflineNotification {"id":""})"}},
        {"online", "[7]", {R"(posted VXIMFriendOnlineNotification {"id":7})", "online 7"}},
        {"online",
         R"([{"id":"u2"}])",
         {R"(posted VXIMFriendOnlineNotification {"id":{"id":"u2"}})", "online {id = u2}"}},
        {"error", R"(["boom",{"x":1}])", {R"(posted socket.io.error {"data":["boom",{"x":1}]})"}},
        {"error", "[]", {R"(posted socket.io.error {"data":[]})"}},
    };
    login();
    for (const auto& c : cases) {
        socket().send(c.event, *vexim::parseJSON(c.arguments).value.asArray());
        drainMainQueue();
        EXPECT_EQ(journal->take(), c.heard) << c.event << c.arguments;
        EXPECT_EQ(state(), "2 online");
    }
}

TEST_F(Session, TheLastClientsConfigurationServesAllRequests) {
    auto other = VXIMClient::clientWithAppId("other", "key", std::nullopt);
    EXPECT_EQ(vxim_configuration, other->config());
    EXPECT_EQ(other->config()->appId(), "other");
    EXPECT_EQ(client->config(), service.configuration());
    EXPECT_THROW(VXIMClient::clientWithConfiguration(nullptr), vexim::Exception);
}

TEST_F(Session, CanBeReadAndStartedFromAnyThread) {
    std::thread caller([&] {
        for (int i = 0; i < 200; ++i) {
            client->loginWithUserId("u1", {});
            client->pause();
            client->resume();
            if (const auto user = client->currentUser()) {
                EXPECT_EQ(json(user->username()), "nil");
            }
            if (const auto live = client->socketio()) live->status();
            EXPECT_LE(client->status(), VXIMClientStatusClosed);
        }
        vexim::MainQueue::shared().async([] { vexim::MainQueue::shared().quit(); });
    });
    vexim::MainQueue::shared().run();
    caller.join();
    drainMainQueue();
}

}  // namespace
