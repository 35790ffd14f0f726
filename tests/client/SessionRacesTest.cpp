// What happens to a session at an awkward moment: twice, in between, or when the answer to something older comes.

#include <functional>
#include <string_view>
#include <utility>

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
             settle();
             socket().accept();
         }},
        {"the next attempt is being waited for",
         [&] {
             socket().drop();
             socket().attemptReconnect();
             settle();
             client->resume();
             settle();
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
             settle();
             client->resume();
             socket().accept();
         }},
        {"the reconnect is over",
         [&] {
             socket().drop();
             socket().attemptReconnect();
             socket().accept();
             settle();
             client->resume();
         }},
    };
    client->loginWithUserId("u1", {});
    settle();
    socket().accept();
    client->resume();
    settle();
    EXPECT_EQ(state(), "1 offline") << "the login is not answered yet";
    for (const auto& [why, act] : moments) {
        login();
        act();
        settle();
        EXPECT_EQ(client->status(), VXIMClientStatusOpened) << why;
        EXPECT_TRUE(client->currentUser()->online()) << why;
    }
}

TEST_F(SessionRaces, TwoPausesAreToldOnce) {
    login();
    client->pause();
    client->pause();
    settle();
    client->pause();
    settle();
    EXPECT_EQ(journal->take(), Lines{"didDisconnect at 3"});
    client->resume();
    settle();
    client->pause();
    settle();
    EXPECT_EQ(journal->take(), Lines{"didDisconnect at 3"}) << "a resume lies between";
    socket().connect();  // by the application's own hand
    socket().accept();
    settle();
    client->pause();
    settle();
    EXPECT_EQ(journal->take(), Lines{"didDisconnect at 3"});
    for (const char* between : {"a resume", "a login"}) {
        if (std::string_view(between) == "a login") login();
        client->resume();
        settle();
        if (socket().status() != vexim::SocketIOStatusConnected) socket().accept();
        socket().drop();
        client->pause();
        settle();
        EXPECT_EQ(journal->take(), (Lines{"didDisconnect at 3", "didDisconnect at 3"})) << "a drop, a pause after " << between;
    }
}

}  // namespace
