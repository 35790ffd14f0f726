#include "endtoend/ScheduleWorld.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <thread>

#include "VexIMLib/Foundation/Exception.h"

namespace vexim::testing {
/// Receives all events, as delegate or as observer, and runs random actions in each call.
class ScheduleWorld::Delegate final : public VXIMClientDelegate {
public:
    explicit Delegate(std::weak_ptr<ScheduleWorld> world) : world_(std::move(world)) {}
    void clientDidLogin(const std::shared_ptr<VXIMClient>&) override { hook(); }
    void clientDidLogout(const std::shared_ptr<VXIMClient>&) override { hook(); }
    void clientAttemptReconnect(const std::shared_ptr<VXIMClient>&) override { hook(); }
    void clientDidDisconnect(const std::shared_ptr<VXIMClient>&) override { hook(); }
    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&,
                                           const std::shared_ptr<VXIMMessage>&,
                                           const std::shared_ptr<VXIMFriendInfo>&) override {
        hook();
    }
    void clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>&,
                                          const std::shared_ptr<VXIMMessage>&,
                                          const std::shared_ptr<VXIMGroup>&) override {
        hook();
    }
    void clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>&,
                                         const std::shared_ptr<VXIMMessage>&,
                                         const std::shared_ptr<VXIMRoom>&) override {
        hook();
    }
    void clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>&,
                                       const std::shared_ptr<VXIMMessage>&) override {
        hook();
    }
    void clientFriendDidOnline(const std::shared_ptr<VXIMClient>&,
                               const std::shared_ptr<VXIMFriendInfo>&) override {
        hook();
    }
    void clientFriendDidOffline(const std::shared_ptr<VXIMClient>&,
                                const std::shared_ptr<VXIMFriendInfo>&) override {
        hook();
    }

    void hook() const {
        EXPECT_TRUE(MainQueue::shared().isMainThread());
        if (const auto world = world_.lock()) world->hook();
    }

private:
    const std::weak_ptr<ScheduleWorld> world_;
};

ScheduleWorld::ScheduleWorld(std::uint32_t seed, ManualClock& clock, const TemporaryFolder& folder,
                             VXIMClient::Impl::SocketFactory makeSocket, ServerAct server)
    : chance_(seed),
      clock_(clock),
      folder_(folder),
      makeSocket_(std::move(makeSocket)),
      server_(std::move(server)) {}

bool ScheduleWorld::answer(ScriptedServer::Connection& connection, const WireRequest& request) {
    if (request.target == "/attachment")
        return connection.answer(200, R"(["http://)" + request.header("Host") + R"(/files/1"])");
    const auto digit = request.target.find_last_of("0123456789");
    switch (digit == std::string::npos ? '0' : request.target[digit]) {
        case '5': return connection.answer(400, R"({"errorCode":1,"errorMessage":"no"})");
        case '6': return connection.answer(503, "");
        case '7': return false;
        case '8': return connection.answer(200, R"([null,{"id":[]}])");
        case '9':
            return connection.write("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{}") && false;
        default:
            return connection.answer(
                200, R"({"id":"x1","members":["u1"],"attributes":{"a":1},"success":true})");
    }
}

void ScheduleWorld::hook() {
    if (depth_ >= 3 || actionsLeft_ <= 0 || below(3) != 0) return;
    ++depth_;
    act();
    --depth_;
}

template <class Completion>
Completion ScheduleWorld::mustRun(std::source_location where) {
    return once(
        [weak = weak_from_this()](auto&&...) {
            if (const auto self = weak.lock()) self->hook();
        },
        where);
}

template <class Completion>
Completion ScheduleWorld::mayRun(std::source_location where) {
    return atMostOnce(
        [weak = weak_from_this()](auto&&...) {
            if (const auto self = weak.lock()) self->hook();
        },
        where);
}

VXIMProgress ScheduleWorld::progress() {
    return [weak = weak_from_this()](std::int32_t) {
        EXPECT_TRUE(MainQueue::shared().isMainThread());
        if (const auto self = weak.lock()) self->hook();
    };
}

void ScheduleWorld::live(int steps) {
    makeClient();
    makeDelegate();
    for (actionsLeft_ = steps; actionsLeft_ > 0;) {
        act();
        expectAllowedStates();
    }
    // Release the objects in any order, without waiting for anything.
    while (!clients_.empty() || !delegates_.empty() || !observers_.empty() || !users_.empty() ||
           !groups_.empty() || !rooms_.empty() || !passengers_.empty() || !friends_.empty() ||
           !messages_.empty() || !transfers_.empty()) {
        releaseSomething();
    }
}

std::string ScheduleWorld::leftovers() const {
    std::string text;
    for (const auto& [name, object] : watched_) {
        if (!object.expired()) text += name + " ";
    }
    return text;
}

void ScheduleWorld::expectAllowedStates() const {
    for (const auto& client : clients_) {
        const bool hasSocket = client->socketio() != nullptr;
        EXPECT_GE(client->status(), VXIMClientStatusNone);
        EXPECT_LE(client->status(), VXIMClientStatusClosed);
        EXPECT_TRUE(hasSocket || client->status() != VXIMClientStatusOpened);
        EXPECT_FALSE(hasSocket && client->tryLogout() &&
                     client->status() == VXIMClientStatusClosed);
    }
}

void ScheduleWorld::act() {
    --actionsLeft_;
    const auto client = pick(clients_);
    const auto what = below(100);
    if (what < 12) return server_(chance_);
    if (what < 30) return static_cast<void>(MainQueue::shared().drain());
    if (what < 32)
        return static_cast<void>(clock_.advanceAndDrain(std::chrono::milliseconds(below(3000))));
    if (what < 34) {  // lets the network catch up
        return static_cast<void>(
            MainQueue::shared().runUntil([] { return true; }, std::chrono::milliseconds(1)));
    }
    if (what < 38) return makeClient();
    if (what < 41) return makeDelegate();
    if (what < 43) return makeObserver();
    if (what < 48) return makeResource();
    if (what < 55) return logIn();
    if (what < 59) return logOut();
    if (what < 62) return client ? client->pause() : void();
    if (what < 65) return client ? below(8) == 0 ? client->resetFlags() : client->resume() : void();
    if (what < 72) return sendMessage();
    if (what < 75) return sendSystemMessage();
    if (what < 77) return sendAttachment();
    if (what < 79) return downloadAttachment();
    if (what < 81) return useUser();
    if (what < 84) return useGroup();
    if (what < 86) return useRoom();
    if (what < 88) return usePassenger();
    if (what < 89) return search();
    if (what < 90) return actElsewhere();
    if (what < 92) {
        if (const auto transfer = pick(transfers_)) transfer->cancel();
        return;
    }
    releaseSomething();
}

void ScheduleWorld::makeClient() {
    if (clients_.size() < 3)
        keep(clients_, VXIMClient::Impl::make(vxim_configuration.get(), makeSocket_));
}

void ScheduleWorld::makeDelegate() {
    if (const auto client = pick(clients_))
        client->setDelegate(keep(delegates_, std::make_shared<Delegate>(weak_from_this())));
}

void ScheduleWorld::makeObserver() {
    const auto observer = keep(observers_, std::make_shared<Delegate>(weak_from_this()));
    NotificationCenter::defaultCenter().addObserver(
        observer, "", nullptr, [weak = std::weak_ptr<Delegate>(observer)](const Notification&) {
            if (const auto self = weak.lock()) self->hook();
        });
}

void ScheduleWorld::makeResource() {
    switch (below(5)) {
        case 0: keep(users_, VXIMUser::userWithId(someId("u"))); break;
        case 1: keep(groups_, VXIMGroup::groupWithId(someId("g"))); break;
        case 2: keep(rooms_, VXIMRoom::roomWithId(someId("r"))); break;
        case 3: keep(passengers_, VXIMPassenger::passengerWithId(someId("p"))); break;
        default: keep(friends_, VXIMFriendInfo::infoWithId(someId("u")));
    }
}

void ScheduleWorld::logIn() {
    const auto client = pick(clients_);
    if (!client) return;
    if (below(4) == 0)
        return client->loginWithUsername("name", "password", mayRun<VXIMBooleanCompletion>());
    client->loginWithUserId("u" + std::to_string(below(10)), mayRun<VXIMBooleanCompletion>());
}

void ScheduleWorld::logOut() {
    if (const auto client = pick(clients_))
        client->logoutWithCompletion(mayRun<VXIMBooleanCompletion>());
}

std::shared_ptr<VXIMMessage> ScheduleWorld::someMessage() {
    if (const auto message = below(3) == 0 ? pick(messages_) : nullptr) return message;
    return keep(messages_, VXIMMessage::messageWithText("hello"));
}

void ScheduleWorld::sendMessage() {
    const auto client = pick(clients_);
    if (!client) return;
    switch (below(4)) {
        case 0:
            return client->sendMessageToFriend(someMessage(), someId("u"),
                                               mustRun<VXIMBooleanCompletion>());
        case 1:
            return client->sendMessageToGroup(someMessage(), someId("g"),
                                              mustRun<VXIMBooleanCompletion>());
        case 2:
            return client->sendMessageToRoom(someMessage(), someId("r"),
                                             mustRun<VXIMBooleanCompletion>());
        default:
            return client->sendMessage(VXIMMessage::messageWithText("to nobody"),
                                       mustRun<VXIMBooleanCompletion>());
    }
}

void ScheduleWorld::sendSystemMessage() {
    const auto client = pick(clients_);
    if (!client) return;
    switch (below(4)) {
        case 0:
            return client->sendSystemMessageToAllUsers(someMessage(),
                                                       mustRun<VXIMBooleanCompletion>());
        case 1:
            return client->sendSystemMessageToGroup(someMessage(), someId("g"),
                                                    mustRun<VXIMBooleanCompletion>());
        case 2:
            return client->sendSystemMessageToRoom(someMessage(), someId("r"),
                                                   mustRun<VXIMBooleanCompletion>());
        default:  // silently dropped
            return client->sendSystemMessage(VXIMMessage::messageWithText("x"), nullptr,
                                             mayRun<VXIMBooleanCompletion>());
    }
}

void ScheduleWorld::sendAttachment() {
    const auto client = pick(clients_);
    if (!client) return;
    const auto message =
        keep(messages_, VXIMMessage::messageWithImageFileAtPath(folder_ / kPicture));
    if (below(2) == 0) {
        message->receiver()->setUserId(someId("u"));
        return client->sendMessage(message, progress(), mustRun<VXIMBooleanCompletion>());
    }
    message->receiver()->setGroupId(someId("g"));
    client->sendSystemMessage(message, progress(), mustRun<VXIMBooleanCompletion>());
}

void ScheduleWorld::downloadAttachment() {
    auto message = keep(messages_, VXIMMessage::messageWithImageFileAtPath(std::nullopt));
    message->setAttachmentUrl(vxim_configuration->socketURL()->absoluteString() + "/files/" +
                              std::to_string(below(10)));
    const auto transfer = below(2) == 0 ? keep(transfers_, VXIMTransfer::transfer()) : nullptr;
    if (transfer && below(4) == 0) transfer->cancel();
    message->downloadAttachment(folder_ / "download", progress(), mustRun<VXIMResultCompletion>(),
                                transfer);
}

void ScheduleWorld::useUser() {
    const auto user = pick(users_);
    if (!user) return;
    switch (below(4)) {
        case 0: return user->fetchWithCompletion(mustRun<VXIMBooleanCompletion>());
        case 1:
            return user->fetchFriendsWithDetail(below(2) == 0, mustRun<VXIMBooleanCompletion>());
        case 2: return user->addFriendWithUser(someId("u"), mustRun<VXIMResultCompletion>());
        default:
            return user->getLatestChatsWithFriend(someId("u"), 1, 5,
                                                  mustRun<VXIMMessagesCompletion>());
    }
}

void ScheduleWorld::useGroup() {
    const auto group = pick(groups_);
    if (!group) return;
    try {  // after a bad answer, the group's members may not be a list any more
        switch (below(4)) {
            case 0: return group->fetchWithBlock(mustRun<VXIMBooleanCompletion>());
            case 1: return group->addMembers({"u2"}, mustRun<VXIMBooleanCompletion>());
            case 2:
                return VXIMGroup::createWithOwner("u1", someId("n"),
                                                  mustRun<VXIMGroupCompletion>());
            default: return group->updateAttributes({{"a", 2}}, mustRun<VXIMBooleanCompletion>());
        }
    } catch (const Exception& exception) {
        ADD_FAILURE() << exception.what();
    }
}

void ScheduleWorld::useRoom() {
    const auto room = pick(rooms_);
    if (!room) return;
    if (below(2) == 0) return room->fetchWithBlock(mustRun<VXIMBooleanCompletion>());
    room->updateName("new", mustRun<VXIMBooleanCompletion>());
}

void ScheduleWorld::usePassenger() {
    const auto passenger = pick(passengers_);
    if (!passenger) return;
    if (below(2) == 0) return passenger->fetchWithCompletion(mustRun<VXIMBooleanCompletion>());
    passenger->getHistoryMessagesWithUser(someId("u"), 1, 5, mustRun<VXIMMessagesCompletion>());
}

void ScheduleWorld::search() {
    auto query = VXIMQuery::query();
    query->whereAttribute("name", someId("n"));
    query->findUserWithBlock(mustRun<VXIMUsersCompletion>());
}

void ScheduleWorld::releaseSomething() {
    switch (below(10)) {
        case 0: return release(clients_);
        case 1: return release(delegates_);
        case 2: return release(observers_);
        case 3: return release(users_);
        case 4: return release(groups_);
        case 5: return release(rooms_);
        case 6: return release(passengers_);
        case 7: return release(friends_);
        case 8: return release(messages_);
        default: return release(transfers_);
    }
}

/// Session operations may run on any thread, and so may the release of the last reference.
void ScheduleWorld::actElsewhere() {
    auto client = pick(clients_);
    if (!client) return;
    if (below(2) == 0) std::erase(clients_, client);
    std::thread([client = std::move(client)]() mutable {
        client->pause();
        client->resume();
        client->loginWithUserId("u1", {});
        client->logoutWithCompletion({});
        (void)client->status();
        client = nullptr;
    }).join();
}

}  // namespace vexim::testing
