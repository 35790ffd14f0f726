// Logins and logouts that meet: a login refused after a reconnect, a logout answered during the next login.

#include <functional>
#include <string>
#include <utility>

#include "VexIMLib/Foundation/Exception.h"
#include "client/ClientFixture.h"

using namespace vexim::testing;
using vexim::Dictionary;

namespace {

class SessionSeams : public ClientTest {};

TEST_F(SessionSeams, TellsThatTheServiceRefusedTheLoginOfAConnectionThatCameBack) {
    login();
    for (int i = 0; i < 2; ++i) {
        socket().drop();
        settle();
        socket().attemptReconnect();
        socket().accept();
        socket().send("login", {Dictionary{{"success", false}, {"error", Dictionary{{"errorCode", 211}}}}});
        settle();
        EXPECT_EQ(state(), "1 offline offlineTemporally");
        EXPECT_EQ(journal->take(), (Lines{"didDisconnect at 3", "reconnecting at 4", "refused at 1, VXIMErrorDomain 211"}));
    }
    client->loginWithUserId("u1", journal->completion("login"));
    settle();
    socket().accept();
    socket().send("login", {Dictionary{{"success", false}, {"error", 7}}});
    settle();
    EXPECT_EQ(state(), "1 offline offlineTemporally");
    EXPECT_EQ(journal->take(), Lines{"login no, VXIMErrorDomain 7"}) << "a login of its own tells its completion alone";
}

TEST_F(SessionSeams, ALogoutsAnswerEndsNoLaterLogin) {
    struct Row {
        const char* why;
        std::function<void()> beforehand;
        int status;
        Lines heard;
    };
    const Row rows[] = {
        {"answered after the next login began", [&] { login(); }, 200, {"logout yes"}},
        {"refused after the next login began", [&] { login(); }, 400, {"logout no, VXErrorDomain 7"}},
        {"never to be answered, without a connection", [] {}, 200, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.why);
        client = newClient();
        client->setDelegate(journal);
        row.beforehand();
        service.answerWith(row.status, row.status == 200 ? "{}" : R"({"errorCode":7,"errorMessage":"no"})");
        client->logoutWithCompletion(journal->completion("logout"));
        if (row.heard.empty()) settle();
        client->loginWithUserId("u2", {});
        Lines heard;
        const auto isAnswered = [&] {
            for (auto& line : journal->take()) heard.push_back(line);
            return heard.size() >= row.heard.size();
        };
        ASSERT_TRUE(eventually(isAnswered));
        settle();
        EXPECT_EQ(client->status(), VXIMClientStatusOpening);
        socket().accept();
        socket().send("login", {Dictionary{{"success", true}, {"id", "u2"}}});
        settle();
        EXPECT_EQ(client->status(), VXIMClientStatusOpened);
        socket().drop();
        settle();
        EXPECT_EQ(client->status(), VXIMClientStatusPaused) << "a drop is a drop";
        EXPECT_EQ(heard, row.heard);
        journal->take();
    }
}

TEST_F(SessionSeams, ALogoutThatWaitsForItsConnectionIsEndedByTheNextLogin) {
    login();
    service.answerWith(200, "{}");
    client->logoutWithCompletion(journal->completion("logout"));
    ASSERT_TRUE(eventually([&] {
        if (client->tryLogout()) client->loginWithUserId("u2", {});  // the connection has been asked to close, and has not told
        return sockets.size() == 2 || client->status() == VXIMClientStatusClosed;
    }));
    settle();
    EXPECT_FALSE(client->tryLogout());
    EXPECT_EQ(journal->take().front(), "logout yes");
}

TEST_F(SessionSeams, RefusesCredentialsThatServersWouldNotTake) {
    EXPECT_THROW(client->loginWithAuthData(Dictionary{{"oauth", std::string(12'000, 'x')}}, {}), vexim::Exception);
    EXPECT_THROW(client->loginWithAuthData(Dictionary{{"oauth", std::string(4'000, '"')}}, {}), vexim::Exception)
        << "as they stand in the URL";
    settle();
    EXPECT_TRUE(sockets.empty());
    EXPECT_FALSE(client->currentUser());
    client->loginWithAuthData(Dictionary{{"oauth", std::string(11'900, 'x')}}, {});
    settle();
    EXPECT_EQ(sockets.size(), 1u);
}

}  // namespace
