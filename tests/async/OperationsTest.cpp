// The styles over the library's own operations: each completion's shape, and the operations that
// may never answer.

#include <gtest/gtest.h>

#include <atomic>
#include <stop_token>

#include "VexIMLib/Async/Coroutine.h"
#include "VexIMLib/Async/Future.h"
#include "VexIMLib/VexIMLib.h"
#include "client/ClientFixture.h"
#include "support/Certificates.h"
#include "support/LivePeer.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"

using namespace vexim;
using namespace vexim::testing;
using namespace std::chrono_literals;

namespace {

class OperationsTest : public ClientTest {
protected:
    /// Both styles must give the same result: the first directly, the second by what `get` returns
    /// or throws.
    template <class Make>
    std::string both(Make make) {
        const auto await = [](auto call) -> Task<std::string> {
            auto [value, error] = co_await std::move(call);
            co_return error ? vexim::testing::describe(error) : show(value);
        };
        const std::string awaited = vexim::wait(await(make()));
        std::string gotten;
        try {
            gotten = show(vexim::wait(vexim::future(make())));
        } catch (const Failure& failure) {
            gotten = vexim::testing::describe(failure.error());
            EXPECT_EQ(failure.what(), failure.error()->localizedDescription());
        }
        EXPECT_EQ(awaited, gotten);
        return awaited;
    }

    static std::string show(bool value) { return value ? "yes" : "no"; }
    static std::string show(const Value& value) { return value.description(); }
    template <class T>
    static std::string show(const std::shared_ptr<T>& object) {
        return object ? std::string(object->runtimeClass().name()) : "nobody";
    }
    template <class T>
    static std::string show(const std::optional<std::vector<T>>& list) {
        return list ? std::to_string(list->size()) + " found" : "nothing";
    }
};

}  // namespace

TEST_F(OperationsTest, EveryShapeOfCompletion) {
    const auto room = VXIMRoom::roomWithId("r1");
    const auto user = VXIMUser::userWithId("u1");
    const auto query = VXIMQuery::query();
    const auto boolean = [&] {
        return both([&] { return vexim::call(&VXIMRoom::updateName, room, "n"); });
    };
    const auto value = [&] {
        return both([&] { return vexim::call(&VXIMUser::addFriendWithUser, user, "u2"); });
    };
    const auto object = [&] {
        return both([&] { return vexim::call(&VXIMUser::getFriendInfo, user, std::string("u2")); });
    };
    const auto objects = [&] {
        return both([&] { return vexim::call(&VXIMQuery::findUserWithBlock, query); });
    };
    const auto isStatic = [&] {
        return both([&] {
            return vexim::call(&VXIMPassenger::createOrUpdatePassengerWithAttributes,
                               Dictionary{{"name", "n"}});
        });
    };
    const auto inherited = [&] {
        return both([&] { return vexim::call(&VXIMUser::deleteAttributesWithCompletion, user); });
    };
    const auto overloaded = [&] {
        return both([&] {
            return vexim::call(
                [](VXIMRoomCompletion done) { VXIMRoom::createWithName("n", std::move(done)); });
        });
    };
    const struct {
        const char* why;
        std::function<std::string()> run;
        const char* answer;
        const char* outcome;
    } cases[] = {
        {"a flag", boolean, R"({"success":true})", "yes"},
        {"a flag that fails without an error", boolean, "{}", "no"},
        {"a value", value, R"(["ok"])", R"([ok])"},
        {"an object", object, R"({"id":"u2"})", "VXIMFriendInfo"},
        {"no object and no error", object, "[]", "nobody"},
        {"objects, from a const operation", objects, R"([{"id":"a"},{"id":"b"}])", "2 found"},
        {"no list and no error", objects, "{}", "nothing"},
        {"a static operation", isStatic, R"("p1")", "VXIMPassenger"},
        {"an operation of the base class", inherited, R"({"success":true})", "yes"},
        {"an overloaded one", overloaded, R"("r2")", "VXIMRoom"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.why);
        service.answerWith(200, each.answer);
        EXPECT_EQ(each.run(), each.outcome);
        service.answerWith(400, R"({"errorCode":42,"errorMessage":"refused"})");
        EXPECT_NE(each.run().find("VXErrorDomain 42"), std::string::npos) << each.run();
    }
    const auto nobody = VXIMPassenger::initWithDictionary({});
    EXPECT_EQ(both([&] { return vexim::call(&VXIMPassenger::fetchWithCompletion, nobody); }),
              "VXIMErrorDomain 5004")
        << "answered at once, in place";
}

TEST_F(OperationsTest, ALoginThatIsNeverAnsweredEndsWithItsClientOrTheNextLogin) {
    auto first = vexim::future(&VXIMClient::loginWithUserId, client, "u1");
    drainMainQueue();
    auto second = vexim::future(vexim::call(&VXIMClient::loginWithUserId, client, "u2"));
    EXPECT_THROW(vexim::wait(first), Failure) << "another login began";
    drainMainQueue();
    const std::weak_ptr<VXIMClient> released = client;
    client = nullptr;
    try {
        vexim::wait(second);
        ADD_FAILURE() << "nobody answered";
    } catch (const Failure& failure) {
        EXPECT_TRUE(failure.error()->is(kCallErrorDomain, CallErrorAbandoned));
    }
    EXPECT_TRUE(released.expired()) << "a started call holds its object no longer";
}

TEST_F(OperationsTest, ALoginOverADeadConnectionFailsAtOnceWithItsError) {
    const auto page = [](int status) {
        return ScriptedServer::answering(
            [status](const WireRequest&) { return ScriptedServer::text(status, "<html>"); });
    };
    const auto refusing = [](ScriptedServer::Connection& connection) {
        LivePeer peer(connection);
        if (peer.open() && peer.readText()) peer.sendText(R"(44/chat,{"message":"not you"})");
    };
    const auto leaving = [](ScriptedServer::Connection& connection) {
        LivePeer(connection).join();
    };
    ScriptedServer plain(page(404));
    ScriptedServer puzzled([](ScriptedServer::Connection& connection) {
        connection.write("HTTP/1.1 400 Bad Request\r\n\r\n");
        connection.waitForClose();
    });
    ScriptedServer strange(page(404), CertificateAuthority::selfSigned());
    ScriptedServer away(page(503));
    ScriptedServer strict(refusing);
    ScriptedServer brief(leaving);
    const struct {
        const char* why;
        std::optional<std::string> url;
        VXIMConnectionErrorKind kind;
    } rows[] = {
        {"no address", std::nullopt, VXIMConnectionErrorBadAddress},
        {"no scheme", "im.example:8080", VXIMConnectionErrorBadAddress},
        {"nobody listens", "http://127.0.0.1:" + std::to_string(deadPort()),
         VXIMConnectionErrorUnreachable},
        {"TLS to a port without", "https://127.0.0.1:" + std::to_string(puzzled.port()),
         VXIMConnectionErrorNotSecure},
        {"a stranger's certificate", strange.url(), VXIMConnectionErrorNotSecure},
        {"a web server", plain.url(), VXIMConnectionErrorNotSocketIO},
        {"a gateway without its server", away.url(), VXIMConnectionErrorUnreachable},
        {"the server says no", strict.url(), VXIMConnectionErrorRefused},
        {"the server leaves before its answer", brief.url(), VXIMConnectionErrorLost},
    };
    for (const bool polls : {false, true}) {
        for (const auto& row : rows) {
            // these servers use WebSocket only
            if (polls && row.kind >= VXIMConnectionErrorRefused) continue;
            SCOPED_TRACE(std::string(row.why) + (polls ? ", polling" : ""));
            auto configuration = VXIMClientConfiguration::defaultConfiguration();
            configuration->setAppId("app");
            configuration->setClientKey("key");
            configuration->setInstallationId("device");
            configuration->setSocketURL(row.url ? URL::parse(*row.url) : std::nullopt);
            configuration->setForceWebsockets(!polls);
            configuration->setForcePolling(polls);
            configuration->setAutoReconnect(false);  // otherwise the client would reconnect
            const auto dead = VXIMClient::clientWithConfiguration(configuration);
            ErrorPtr told;
            NotificationCenter::defaultCenter().addObserver(
                dead, VXIMClientConnectionErrorNotification, dead.get(),
                [&told](const Notification& notification) {
                    told = connectionError(notification);
                });
            const auto began = std::chrono::steady_clock::now();
            const auto failed = both([&] {
                return vexim::call([dead](VXIMBooleanCompletion done) {
                           dead->loginWithUserId(
                               "u1", [done](bool succeeded, const ErrorPtr& error) {
                                   ADD_FAILURE() << "the completion itself never runs";
                                   done(succeeded, error);
                               });
                       })
                    .within(120s);
            });
            EXPECT_EQ(failed, "VXIMConnectionErrorDomain " + std::to_string(row.kind));
            EXPECT_LT(std::chrono::steady_clock::now() - began, 60s);
            EXPECT_EQ(dead->status(), row.kind == VXIMConnectionErrorLost
                                          ? VXIMClientStatusPaused
                                          : VXIMClientStatusOpening);
            // a loss is reported by "disconnect", not by an error
            if (row.kind == VXIMConnectionErrorLost) continue;
            ASSERT_TRUE(told);
            EXPECT_EQ(told->code(), row.kind);
            EXPECT_EQ(isTemporary(told), row.kind == VXIMConnectionErrorUnreachable);
        }
    }
}

TEST_F(OperationsTest, ALoginWaitsWhileTheConnectionTriesAgain) {
    auto login = vexim::future(&VXIMClient::loginWithUserId, client, "u1");
    const auto isOver = [&] { return login.wait_for(0s) == std::future_status::ready; };
    drainMainQueue();
    socket().send("error", {"an attempt failed"});
    drainMainQueue();
    EXPECT_FALSE(isOver());
    socket().accept();
    client->pause();
    drainMainQueue();
    EXPECT_FALSE(isOver()) << "the application closed it for a while";
    client->resume();
    drainMainQueue();
    socket().accept();
    socket().drop();
    drainMainQueue();
    ASSERT_TRUE(isOver());
    try {
        login.get();
        ADD_FAILURE() << "nobody answered";
    } catch (const Failure& failure) {
        EXPECT_TRUE(failure.error()->is(VXIMConnectionErrorDomain, VXIMConnectionErrorLost));
        EXPECT_EQ(failure.error()->localizedDescription(),
                  "The connection was lost: transport close.");
    }
}

TEST_F(OperationsTest, ALoginIsAwaited) {
    const auto flow = [](std::shared_ptr<VXIMClient> as) -> Task<> {
        auto [loggedIn, error] =
            co_await vexim::call(&VXIMClient::loginWithUserId, as, "u1").within(30s);
        if (loggedIn)
            co_await vexim::call(&VXIMClient::sendMessageToFriend, as,
                                 VXIMMessage::messageWithText("hi"), "u2");
    };
    auto task = flow(client);
    task.start();
    drainMainQueue();
    socket().accept();
    socket().send("login", {Dictionary{{"success", true}, {"id", "u1"}}});
    drainMainQueue();
    EXPECT_TRUE(task.isDone());
    EXPECT_EQ(takeEmitted().size(), 1u);
    const std::shared_ptr<VXIMUser> nobody;
    EXPECT_THROW((void)vexim::call(&VXIMUser::fetchWithCompletion, nobody), Exception);
}

TEST_F(OperationsTest, AFailedUploadFailsTheCallThoughTheCompletionHearsOfASuccess) {
    login();
    service.answerWith(400, R"({"errorCode":7,"errorMessage":"no"})");
    const auto image =
        VXIMMessage::messageWithImage(*vexim::Image::fromPixels(1, 1, {1, 2, 3, 255}));
    EXPECT_EQ(
        both([&] { return vexim::call(&VXIMClient::sendMessageToFriend, client, image, "u2"); }),
        "VXErrorDomain 7");
    EXPECT_EQ(both([&] {
                  return vexim::call([&](VXIMBooleanCompletion done) {
                      client->sendMessageToFriend(
                          image, "u2",
                          [done](bool sent, const ErrorPtr& error) { done(sent, error); });
                  });
              }),
              "VXErrorDomain 7")
        << "also through a callback in between";

    // Other operations called while such a completion runs succeed normally, at once or in a nested
    // run of the queue.
    const auto inPlace = [](const std::function<void(bool, ErrorPtr)>& done) {
        done(true, nullptr);
    };
    const auto queued = [](std::function<void(bool, ErrorPtr)> done) {
        MainQueue::shared().async([done = std::move(done)] { done(true, nullptr); });
    };
    std::string inside;
    client->sendMessageToFriend(image, "u2", [&](bool, const ErrorPtr&) {
        inside = both([&] { return vexim::call(inPlace); }) + ", " +
                 both([&] { return vexim::call(queued); });
    });
    ASSERT_TRUE(eventually([&] { return !inside.empty(); }));
    EXPECT_EQ(inside, "yes, yes");
}

TEST_F(OperationsTest, ATransferIsEndedByTimeCancellationAndDestruction) {
    // Answers the header and a part of the body, then waits until the client disconnects.
    std::atomic<int> begun{0}, left{0};
    ScriptedServer slow([&](ScriptedServer::Connection& connection) {
        if (!connection.readRequest()) return;
        connection.write("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\npart");
        ++begun;
        MainQueue::shared().async([] {});  // wakes the queue, so that the test checks again
        connection.waitForClose();
        ++left;
        MainQueue::shared().async([] {});
    });
    const auto message = VXIMMessage::initWithPayloadDictionary(
        {{"content", Dictionary{{"media", 1}, {"body", slow.url("/a.png")}}}});
    const TemporaryFolder folder;
    const std::string path = folder / "photo.png";
    const auto download = [&] {
        return vexim::call(&VXIMMessage::downloadAttachment, message, path, nullptr);
    };

    std::stop_source stop;
    std::string heard;
    auto cancelled = vexim::future(
        download().cancelledBy(stop.get_token()).reporting([&](VXIMTransferProgress progress) {
            heard = std::to_string(progress.bytes) + " of " +
                    std::to_string(progress.total.value_or(-1));
        }));
    ASSERT_TRUE(eventually([&] { return heard == "4 of 1000"; }));
    stop.request_stop();
    EXPECT_THROW(vexim::wait(cancelled), Failure);
    EXPECT_TRUE(eventually([&] { return left == 1; })) << "the connection was given up";

    auto timedOut = vexim::future(download().within(50ms));
    EXPECT_THROW(vexim::wait(timedOut), Failure);
    EXPECT_TRUE(eventually([&] { return left == begun; }));

    const int before = begun;
    const auto body = [](Call<Value> call) -> Task<> { co_await std::move(call); };
    {
        auto task = body(download());
        task.start();
        ASSERT_TRUE(eventually([&] { return begun == before + 1; }));
    }
    EXPECT_TRUE(eventually([&] { return left == begun; })) << "as when its task is destroyed";
    EXPECT_TRUE(eventuallyElsewhere([&] { return folder.count() == 0; }))
        << "and what had come is gone";
}
