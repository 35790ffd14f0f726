// Logins that are refused: by the service after a reconnect, by the client before they begin.

#include <functional>
#include <string>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/FailureListener.h"
#include "client/ClientFixture.h"

using namespace vexim::testing;
using vexim::Dictionary;

namespace {

class SessionSeams : public ClientTest {};

TEST_F(SessionSeams, TellsThatTheServiceRefusedTheLoginOfAConnectionThatCameBack) {
    login();
    for (int i = 0; i < 2; ++i) {
        socket().drop();
        drainMainQueue();
        socket().attemptReconnect();
        socket().accept();
        socket().send("login",
                      {Dictionary{{"success", false}, {"error", Dictionary{{"errorCode", 211}}}}});
        drainMainQueue();
        EXPECT_EQ(state(), "1 offline offlineTemporally");
        EXPECT_EQ(journal->take(), (Lines{"didDisconnect at 3", "reconnecting at 4",
                                          "refused at 1, VXIMErrorDomain 211"}));
    }
    client->loginWithUserId("u1", journal->completion("login"));
    drainMainQueue();
    socket().accept();
    socket().send("login", {Dictionary{{"success", false}, {"error", 7}}});
    drainMainQueue();
    EXPECT_EQ(state(), "1 offline offlineTemporally");
    EXPECT_EQ(journal->take(), Lines{"login no, VXIMErrorDomain 7"})
        << "a login of its own tells its completion alone";
}

TEST_F(SessionSeams, ARefusedLoginIsAtOpeningWhateverCameBefore) {
    const vexim::Array refusal{Dictionary{{"success", false}, {"error", 7}}};
    const auto heardAfter = [&](const std::function<void()>& act) {
        client = newClient();
        client->setDelegate(journal);
        act();
        drainMainQueue();
        journal->take();
        socket().send("login", refusal);
        drainMainQueue();
        EXPECT_EQ(client->status(), VXIMClientStatusOpening);
        EXPECT_FALSE(client->currentUser()->online());
        const auto heard = journal->take();
        socket().send("login", {Dictionary{{"success", true}, {"id", "u1"}}});
        drainMainQueue();
        EXPECT_EQ(state().substr(0, 8), "2 online") << "accepted in the end";
        journal->take();
        return heard;
    };
    const auto isRefused = Lines{"refused at 1, VXIMErrorDomain 7"};
    EXPECT_EQ(heardAfter([&] { login(); }), isRefused) << "taken back without a drop";
    EXPECT_EQ(heardAfter([&] {
                  login();
                  socket().send("login", refusal);
              }),
              isRefused)
        << "refused twice";
    EXPECT_EQ(heardAfter([&] {
                  login();
                  socket().drop();
                  socket().attemptReconnect();
                  drainMainQueue();
                  client->resetFlags();  // so the status does not change
                  socket().accept();
              }),
              isRefused);
    const auto resumedEarly = [&] {
        client->loginWithUserId("u1", {});
        drainMainQueue();
        client->resume();
        drainMainQueue();
        EXPECT_EQ(client->status(), VXIMClientStatusResuming);
        socket().accept();
    };
    EXPECT_EQ(heardAfter(resumedEarly), Lines()) << "a first login";
}

TEST_F(SessionSeams, TellsWhoAwaitsALoginThatNoAnswerCanComeAnyMore) {
    const auto fails = [&](vexim::Array arguments) {
        socket().send("error", std::move(arguments));
    };
    const struct {
        const char* why;
        std::function<void()> happens;
        std::string told;
    } cases[] = {
        {"the connection is lost", [&] { socket().drop(); },
         "VXIMConnectionErrorDomain 11: The connection was lost: transport close."},
        {"it tries again",
         [&] {
             socket().drop();
             socket().attemptReconnect();
         },
         ""},
        {"a pause", [&] { client->pause(); }, ""},
        {"an error of an event, while nothing is connected",
         [&] {
             client->pause();
             drainMainQueue();
             fails({"boom", vexim::Error::make(vexim::kSocketIOErrorDomain, 1)});
         },
         ""},
        {"a drop after the answer",
         [&] {
             socket().send("login", {Dictionary{{"success", false}, {"error", 7}}});
             drainMainQueue();
             socket().drop();
         },
         ""},
    };
    for (const auto& c : cases) {
        std::string told;
        {
            const vexim::FailureListener listener([&](const vexim::ErrorPtr& cause) {
                told += describe(cause) + ": " + cause->localizedDescription();
            });
            client->loginWithUserId("u1", {});
        }
        drainMainQueue();
        socket().accept();
        drainMainQueue();
        c.happens();
        drainMainQueue();
        EXPECT_EQ(told, c.told) << c.why;
    }
}

TEST_F(SessionSeams, ALogoutInsideALoginsCompletionIsTheLastWord) {
    service.configuration()->setInstallationId("");
    client->loginWithUserId("u1", once([&](bool, const vexim::ErrorPtr&) {
                                client->logoutWithCompletion({});
                                drainMainQueue();
                            }));
    drainMainQueue();
    socket().acceptLogin("u1");
    drainMainQueue();
    EXPECT_EQ(state(), "6 nobody no socket");
    EXPECT_EQ(journal->take(), (Lines{"didLogout at 6", "didDisconnect at 6"}));
}

TEST_F(SessionSeams, RefusesCredentialsThatServersWouldNotTake) {
    EXPECT_THROW(client->loginWithAuthData(Dictionary{{"oauth", std::string(12'000, 'x')}}, {}),
                 vexim::Exception);
    EXPECT_THROW(client->loginWithAuthData(Dictionary{{"oauth", std::string(4'000, '"')}}, {}),
                 vexim::Exception)
        << "as they stand in the URL";
    drainMainQueue();
    EXPECT_TRUE(sockets.empty());
    EXPECT_FALSE(client->currentUser());
    client->loginWithAuthData(Dictionary{{"oauth", std::string(11'900, 'x')}}, {});
    drainMainQueue();
    EXPECT_EQ(sockets.size(), 1u);
}

}  // namespace
