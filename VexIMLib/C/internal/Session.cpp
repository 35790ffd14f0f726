#include "VexIMLib/C/internal/Session.h"

#include <algorithm>
#include <chrono>
#include <unordered_map>
#include <utility>

#include "VexIMLib/C/internal/Configuration.h"
#include "VexIMLib/C/internal/Operations.h"
#include "VexIMLib/C/internal/Records.h"
#include "VexIMLib/C/internal/Request.h"
#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/VXIMConstants.h"

namespace vexim::c {

namespace {

/// Finds the session of the client that posted a notification. All sessions share one observer: if
/// each had its own, each would be called for every message.
class Senders {
public:
    static Senders& shared() {
        static Senders& senders = *new Senders;
        return senders;
    }
    void add(const VXIMClient* client, std::weak_ptr<Session> session) {
        const MutexLock lock(mutex_);
        sessions_[client] = std::move(session);
    }
    void remove(const VXIMClient* client) {
        const MutexLock lock(mutex_);
        sessions_.erase(client);
    }
    std::shared_ptr<Session> find(const Object* client) const {
        const MutexLock lock(mutex_);
        const auto found = sessions_.find(client);
        return found == sessions_.end() ? nullptr : found->second.lock();
    }

private:
    mutable Mutex mutex_;
    std::unordered_map<const Object*, std::weak_ptr<Session>> sessions_ VEXIM_GUARDED_BY(mutex_);
};

std::string goneBody() { return errorBody(InterfaceError::ClientGone, "The client was freed."); }

constexpr double kLongestTimeout = 1e8;  // three years, in seconds

}  // namespace

std::shared_ptr<Session> Session::make(std::string_view text) {
    Configuration configuration = readConfiguration(text);
    std::shared_ptr<Session> session(new Session(configuration.queueBytes));
    session->givesNotifications_ = configuration.notifications;
    if (configuration.problem) {
        session->problem_ = errorBody(*configuration.problem);
        if (const auto id = session->mailbox_->open("null", 0))
            session->mailbox_->answer(*id, Outcome::Error, session->problem_);
        return session;
    }
    auto client = VXIMClient::clientWithConfiguration(std::move(configuration.client));
    Senders::shared().add(client.get(), session);
    {
        const MutexLock lock(session->mutex_);
        session->client_ = client;
    }
    MainQueue::shared().async([client = std::move(client), weak = std::weak_ptr(session)] {
        client->setDelegate(weak.lock());
    });
    return session;
}

Session::~Session() = default;

std::shared_ptr<VXIMClient> Session::client() const {
    const MutexLock lock(mutex_);
    return client_;
}

void Session::send(std::string_view text) {
    auto read = parseJSON(text);
    const auto* arguments = read.value.asDictionary();
    std::string extra;
    const Value& given = read.value.get("@extra");
    if (given.isNil() || appendJSON(extra, given, JSONFragments::Allow)) extra = "null";
    const auto id = mailbox_->open(std::move(extra), text.size());
    if (!id) return;
    const auto refuse = [&](InterfaceError code, std::string description) {
        mailbox_->answer(*id, Outcome::Error, errorBody(code, std::move(description)));
    };
    if (!problem_.empty()) return mailbox_->answer(*id, Outcome::Error, problem_);
    if (!arguments) {
        return refuse(InterfaceError::NotAnObject,
                      "The request is not a JSON object" +
                          (read.error ? ": " + read.error->localizedDescription() : "."));
    }
    const auto name = arguments->get("@op").asStringView();
    const auto operation = name ? findOperation(*name) : Found<Operation>();
    if (!operation.row) {
        const auto problem =
            name && findImmediateOperation(*name).row
                ? Problem{InterfaceError::UnknownOperation, "Use vexim_execute for this operation."}
                : unknownOperation(name);
        return refuse(problem.code, problem.description);
    }
    if (const auto problem = findProblem(*operation.parameters, *arguments))
        return refuse(problem->code, problem->description);

    if (const Value& timeout = arguments->get("@timeout"); !timeout.isNilOrNull()) {
        const double seconds = timeout.doubleValue();
        if (!hasType(timeout, "number") || !(seconds >= 0)) {
            return refuse(InterfaceError::WrongArgument,
                          "\"@timeout\" must be a number of seconds.");
        }
        const auto wait = std::chrono::duration<double>(std::min(seconds, kLongestTimeout));
        const auto deadline =
            Clock::shared()->now() + std::chrono::duration_cast<Clock::TimePoint::duration>(wait);
        if (mailbox_->setDeadline(*id, deadline)) armTimer();
    }
    auto request = std::make_shared<Request>(mailbox_, *id, *arguments);
    MainQueue::shared().async(
        [self = shared_from_this(), request = std::move(request), run = operation.row->run] {
            auto client = self->client();
            if (!client) return;  // it was freed, and the request was answered then
            // REST requests take the application and the origin from here.
            vxim_configuration = client->config();
            request->start(run, std::move(client), self->stores_);
        });
}

void Session::armTimer() {
    const auto next = mailbox_->nextDeadline();
    if (!next) return;
    const auto wait = std::max(*next - Clock::shared()->now(), Clock::TimePoint::duration::zero());
    MainQueue::shared().after(wait, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->expire();
    });
}

void Session::expire() {
    const auto error =
        Error::withDescription(kURLErrorDomain, URLErrorTimedOut, "The request timed out.");
    for (const auto& transfer : mailbox_->expire(Clock::shared()->now(), errorBody(*error)))
        transfer->cancel();
    armTimer();
}

void Session::end() {
    std::shared_ptr<VXIMClient> client;
    {
        const MutexLock lock(mutex_);
        client_.swap(client);
    }
    for (const auto& transfer : mailbox_->close(goneBody())) transfer->cancel();
    if (!client) return;
    Senders::shared().remove(client.get());
    // Destroy it on the main thread, where its objects are used.
    MainQueue::shared().async([self = shared_from_this(), client = std::move(client)]() mutable {
        client->setDelegate(nullptr);
        self->stores_ = nullptr;
        client = nullptr;
    });
}

void Session::clientDidLogin(const std::shared_ptr<VXIMClient>&) {
    mailbox_->event(begunEvent("clientDidLogin") + "}");
}
void Session::clientDidFailToLoginAgain(const std::shared_ptr<VXIMClient>&, const ErrorPtr& error) {
    std::string text = begunEvent("clientDidFailToLoginAgain");
    append(text, "error", *error);
    mailbox_->event(std::move(text += '}'));
}
void Session::clientDidLogout(const std::shared_ptr<VXIMClient>&) {
    mailbox_->event(begunEvent("clientDidLogout") + "}");
}
void Session::clientAttemptReconnect(const std::shared_ptr<VXIMClient>&) {
    mailbox_->event(begunEvent("clientAttemptReconnect") + "}");
}
void Session::clientDidDisconnect(const std::shared_ptr<VXIMClient>&) {
    mailbox_->event(begunEvent("clientDidDisconnect") + "}");
}

template <class From>
void Session::didReceiveMessage(std::string_view name, const std::shared_ptr<VXIMMessage>& message,
                                const From& from) {
    std::string text = begunEvent(name, mailbox_->blank());
    write(text += R"(,"message":)", message);
    write(text += R"(,"from":)", from);
    mailbox_->event(std::move(text += '}'));
    announced_ = message.get();
}

void Session::clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&,
                                                const std::shared_ptr<VXIMMessage>& message,
                                                const std::shared_ptr<VXIMFriendInfo>& from) {
    didReceiveMessage("clientDidReceiveMessageFromFriend", message, from);
}
void Session::clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>&,
                                               const std::shared_ptr<VXIMMessage>& message,
                                               const std::shared_ptr<VXIMGroup>& from) {
    didReceiveMessage("clientDidReceiveMessageFromGroup", message, from);
}
void Session::clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>&,
                                              const std::shared_ptr<VXIMMessage>& message,
                                              const std::shared_ptr<VXIMRoom>& from) {
    didReceiveMessage("clientDidReceiveMessageFromRoom", message, from);
}
void Session::clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>&,
                                            const std::shared_ptr<VXIMMessage>& message) {
    std::string text = begunEvent("clientDidReceiveSystemMessage");
    append(text, "message", message);
    mailbox_->event(std::move(text += '}'));
}
void Session::clientFriendDidOnline(const std::shared_ptr<VXIMClient>&,
                                    const std::shared_ptr<VXIMFriendInfo>& info) {
    std::string text = begunEvent("clientFriendDidOnline");
    append(text, "info", info);
    mailbox_->event(std::move(text += '}'));
}
void Session::clientFriendDidOffline(const std::shared_ptr<VXIMClient>&,
                                     const std::shared_ptr<VXIMFriendInfo>& info) {
    std::string text = begunEvent("clientFriendDidOffline");
    append(text, "info", info);
    mailbox_->event(std::move(text += '}'));
}

void Session::didPost(const Notification& notification) {
    if (!givesNotifications_) {
        // A delegate call reports the same, except for connection errors and for a message to an
        // unknown receiver.
        const bool isMessage = notification.name == VXIMClientDidReceiveMessageNotification;
        const auto message = isMessage && notification.userInfo
                                 ? notification.userInfo->get("msg").asObject()
                                 : nullptr;
        if (isMessage && message.get() == std::exchange(announced_, nullptr)) return;
        if (!isMessage && notification.name != VXIMClientConnectionErrorNotification) return;
    }
    auto info = notification.userInfo.value_or(Dictionary());
    std::string text = begunEvent(notification.name);
    if (notification.name == VXIMClientConnectionErrorNotification) {
        // The last item of "data" is the error, which the event has as "error" instead.
        Array arguments = info.get("data").isArray() ? *info.get("data").asArray() : Array();
        if (!arguments.empty() && arguments.get(arguments.size() - 1).as<Error>())
            arguments.remove(arguments.size() - 1);
        info.set("data", std::move(arguments));
        append(text, "error", *connectionError(notification));
    }
    for (const auto [name, value] : info) append(text, name, value);
    mailbox_->event(std::move(text += '}'));
}

void observeNotifications() {
    static const auto& observer = *new auto(std::make_shared<int>());
    for (const char* name :
         {VXIMUserDidLoginNotification, VXIMClientDidReceiveMessageNotification,
          VXIMClientDidReceiveSystemMessageNotification, VXIMFriendOnlineNotification,
          VXIMFriendOfflineNotification, VXIMClientConnectionErrorNotification}) {
        NotificationCenter::defaultCenter().addObserver(
            observer, name, nullptr, [](const Notification& notification) {
                if (const auto session = Senders::shared().find(notification.object.get()))
                    session->didPost(notification);
            });
    }
}

}  // namespace vexim::c
