#include "VexIMLib/Store/VXIMConversations.h"

#include <algorithm>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/NotificationCenter.h"
#include "VexIMLib/Store/internal/Arrivals.h"
#include "VexIMLib/Store/internal/CatchUp.h"
#include "VexIMLib/Store/internal/HistoryPages.h"
#include "VexIMLib/Store/internal/Outbox.h"
#include "VexIMLib/Store/internal/OutboxErrors.h"
#include "VexIMLib/VXIMClient.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/VXIMConstants.h"
#include "VexIMLib/VXIMMessage.h"
#include "VexIMLib/VXIMUser.h"

using vexim::ErrorPtr;
using vexim::MainQueue;
using vexim::store::Arrival;
using vexim::store::arrivalOf;
using vexim::store::CatchUp;
using vexim::store::Merged;
using vexim::store::Outbox;

namespace {

using namespace std::chrono_literals;

// How many live messages may wait for the store. Beyond that, the histories are read later.
constexpr std::size_t kMostKept = 10'000;
constexpr std::chrono::seconds kStorePause = 5s;
// A login after a reconnect that is not answered in time counts as accepted.
constexpr std::chrono::seconds kLoginPatience = 10s;

}  // namespace

struct VXIMConversations::Impl : std::enable_shared_from_this<Impl> {
    std::shared_ptr<VXIMClient> client;
    VXIMConversationsOptions options;
    std::shared_ptr<VXIMMessageStore> store;
    std::shared_ptr<Outbox> outbox;
    std::shared_ptr<CatchUp> catchUp;
    std::vector<VXIMBooleanCompletion> openers;
    bool isOpening = false;
    bool isLoggedIn = false;  // and the connection has been up since
    bool isLinked = false;    // and the store is open and belongs to this user
    std::uint64_t statusCount = 0;
    std::deque<Arrival> unstored;  // in the order in which they came
    bool isStoringPaused = false;
    bool hasLostSome = false;
    std::shared_ptr<VXIMStoreObservation> damage;
    std::function<void(const VXIMCaughtUp&)> caughtUp;
    std::function<void(const ErrorPtr&)> trouble;

    void observe();
    void open();
    void didOpen(std::shared_ptr<VXIMMessageStore> opened, const ErrorPtr& error);
    void answerOpeners(const ErrorPtr& error);
    void didEnter(std::int64_t status);
    void didLogIn();
    void link();
    void unlink();
    void didReceive(const vexim::Notification& notification, bool isSystem);
    void storeArrival(Arrival arrival);
    void storeKept();
    void didMerge(const std::vector<Arrival>& arrivals, const std::vector<Merged>& merged);
    void report(const ErrorPtr& error) const {
        if (const auto handler = trouble) handler(error);
    }
    std::string userId() const {
        const auto user = client->currentUser();
        return user ? user->uid().description() : "";
    }
};

void VXIMConversations::Impl::observe() {
    auto& centre = vexim::NotificationCenter::defaultCenter();
    const auto on = [&](const char* name, auto handle) {
        centre.addObserver(
            shared_from_this(), name, client.get(),
            [weak = weak_from_this(), handle](const vexim::Notification& notification) {
                if (const auto self = weak.lock()) handle(*self, notification);
            });
    };
    on(VXIMUserDidLoginNotification, [](Impl& self, const vexim::Notification&) {
        // After earlier status changes, which are reported through the queue.
        MainQueue::shared().async([weak = self.weak_from_this()] {
            if (const auto alive = weak.lock()) alive->didLogIn();
        });
    });
    on(VXIMClientDidChangeStatusNotification,
       [](Impl& self, const vexim::Notification& notification) {
           self.didEnter(notification.userInfo->get("status").longLongValue());
       });
    on(VXIMClientDidReceiveMessageNotification,
       [](Impl& self, const vexim::Notification& notification) {
           self.didReceive(notification, false);
       });
    on(VXIMClientDidReceiveSystemMessageNotification,
       [](Impl& self, const vexim::Notification& notification) {
           self.didReceive(notification, true);
       });
}

void VXIMConversations::Impl::open() {
    if (store)
        return MainQueue::shared().async(
            [self = shared_from_this()] { self->answerOpeners(nullptr); });
    const std::string user = options.userId.empty() && isLoggedIn ? userId() : options.userId;
    if (isOpening || user.empty()) return;
    isOpening = true;
    const auto url = client->config()->socketURL();
    VXIMMessageStore::open(
        {.path = options.path, .userId = user, .service = url ? url->absoluteString() : ""},
        [weak = weak_from_this()](std::shared_ptr<VXIMMessageStore> opened, const ErrorPtr& error) {
            if (const auto self = weak.lock()) self->didOpen(std::move(opened), error);
        });
}

void VXIMConversations::Impl::didOpen(std::shared_ptr<VXIMMessageStore> opened,
                                      const ErrorPtr& error) {
    isOpening = false;
    if (!opened) return answerOpeners(error);
    store = std::move(opened);
    const auto weak = weak_from_this();
    const auto send = [weak](const std::shared_ptr<VXIMMessage>& message, VXIMProgress progress,
                             VXIMBooleanCompletion completion,
                             std::shared_ptr<VXIMTransfer> transfer) {
        if (const auto self = weak.lock()) {
            self->client->sendMessage(message, std::move(progress), std::move(completion),
                                      std::move(transfer));
        }
    };
    const auto lookUp = [weak](const VXIMConversationId& conversation, std::int64_t sinceMillis) {
        if (const auto self = weak.lock()) self->catchUp->read(conversation, sinceMillis);
    };
    const auto reportError = [weak](const ErrorPtr& why) {
        if (const auto self = weak.lock()) self->report(why);
    };
    outbox = std::make_shared<Outbox>(
        store, Outbox::Callbacks{send, lookUp, reportError},
        Outbox::Limits{static_cast<std::size_t>(std::max(options.mostUnsent, 1)),
                       options.longestWait, options.echoTimeout});

    const auto insert = [weak](std::vector<Arrival> arrivals,
                               vexim::store::MergedCompletion completion) {
        const auto self = weak.lock();
        if (!self) return;
        for (auto& arrival : arrivals) arrival.mayBeEcho = self->outbox->mayLoseKeys();
        const auto kept = std::make_shared<const std::vector<Arrival>>(arrivals);
        vexim::store::Operations(self->store)
            .insert(std::move(arrivals),
                    [weak, kept, completion = std::move(completion)](
                        const std::optional<std::vector<Merged>>& merged, const ErrorPtr& why) {
                        if (const auto alive = weak.lock(); alive && merged)
                            alive->didMerge(*kept, *merged);
                        completion(merged, why);
                    });
    };
    const auto didRead = [weak](const VXIMConversationId& conversation, const ErrorPtr& why) {
        if (const auto self = weak.lock()) self->outbox->didLookUp(conversation, why);
    };
    const auto didCatchUp = [weak](const CatchUp::Result& result) {
        const auto self = weak.lock();
        if (!self) return;
        if (const auto handler = self->caughtUp)
            handler({result.missedCount, result.gapCount, result.error});
    };
    catchUp =
        std::make_shared<CatchUp>(store, CatchUp::Callbacks{insert, didRead, didCatchUp},
                                  CatchUp::Limits{options.mostCaughtUp, options.farthestCaughtUp});
    damage = store->observeDamage([weak](const VXIMStoreDamage&) {
        const auto self = weak.lock();
        if (!self) return;
        self->outbox->reload();
        if (self->isLinked) self->catchUp->linkDidOpen();  // read again what could not be saved
    });
    outbox->load([weak](bool, const ErrorPtr& why) {
        const auto self = weak.lock();
        if (!self) return;
        self->storeKept();
        if (self->isLoggedIn) self->link();
        self->answerOpeners(why);
    });
}

void VXIMConversations::Impl::answerOpeners(const ErrorPtr& error) {
    for (const auto& completion : std::exchange(openers, {})) {
        if (completion) completion(error == nullptr, error);
    }
}

void VXIMConversations::Impl::didEnter(std::int64_t status) {
    const auto count = ++statusCount;
    // Do not use the client's current status: even a loss that is already over has left messages in
    // doubt.
    if (status != VXIMClientStatusOpened) return unlink();
    MainQueue::shared().after(kLoginPatience, [weak = weak_from_this(), count] {
        const auto self = weak.lock();
        if (self && count == self->statusCount && !self->isLoggedIn) self->didLogIn();
    });
}

void VXIMConversations::Impl::didLogIn() {
    isLoggedIn = true;
    if (store) return link();
    if (!openers.empty()) open();
}

void VXIMConversations::Impl::link() {
    if (userId() != store->userId()) {
        unstored.clear();
        return report(vexim::store::errors::otherUser());
    }
    isLinked = true;
    catchUp->linkDidOpen();
    outbox->linkDidOpen();
}

void VXIMConversations::Impl::unlink() {
    isLoggedIn = false;
    if (!std::exchange(isLinked, false)) return;
    outbox->linkDidClose();
    catchUp->linkDidClose();
}

void VXIMConversations::Impl::didReceive(const vexim::Notification& notification, bool isSystem) {
    const auto message =
        notification.userInfo ? notification.userInfo->get("msg").as<VXIMMessage>() : nullptr;
    if (!message || (store && userId() != store->userId())) return;
    if (auto arrival = arrivalOf(*message, userId(), isSystem)) storeArrival(std::move(*arrival));
}

void VXIMConversations::Impl::storeArrival(Arrival arrival) {
    if (!store || isStoringPaused) {  // after the waiting ones
        if (unstored.size() >= kMostKept) {
            hasLostSome = true;
            unstored.pop_front();
        }
        return unstored.push_back(std::move(arrival));
    }
    arrival.mayBeEcho = outbox->mayLoseKeys();
    const auto kept = std::make_shared<const Arrival>(arrival);
    vexim::store::Operations(store).insert(
        {std::move(arrival)},
        [weak = weak_from_this(), kept](const std::optional<std::vector<Merged>>& merged,
                                        const ErrorPtr& error) {
            const auto self = weak.lock();
            if (!self) return;
            if (merged) {
                if (self->isLinked)
                    self->catchUp->didStoreLive(kept->conversation,
                                                kept->payload.get("ts").longLongValue());
                return self->didMerge({*kept}, *merged);
            }
            self->report(error);
            if (error &&
                (error->code() == VXIMStoreErrorUnusable || error->code() == VXIMStoreErrorClosed))
                return;
            self->unstored.push_back(*kept);  // operations started together complete in order
            if (std::exchange(self->isStoringPaused, true)) return;
            MainQueue::shared().after(kStorePause, [weak] {
                if (const auto later = weak.lock()) later->storeKept();
            });
        });
}

void VXIMConversations::Impl::storeKept() {
    isStoringPaused = false;
    for (auto& arrival : std::exchange(unstored, {})) storeArrival(std::move(arrival));
    if (std::exchange(hasLostSome, false) && isLinked) catchUp->linkDidOpen();
}

void VXIMConversations::Impl::didMerge(const std::vector<Arrival>& arrivals,
                                       const std::vector<Merged>& merged) {
    for (std::size_t i = 0; i < merged.size(); ++i) {
        if (merged[i].outcome != vexim::store::Outcome::Confirmed) continue;
        outbox->didConfirm(merged[i].localId,
                           !arrivals[i].payload.get(vexim::store::kKeyField).isNilOrNull());
    }
}

std::shared_ptr<VXIMConversations> VXIMConversations::conversationsWithClient(
    std::shared_ptr<VXIMClient> client, VXIMConversationsOptions options) {
    if (!client)
        throw vexim::Exception(vexim::kInvalidArgumentException,
                               "VXIMConversations needs a client.");
    auto impl = std::make_shared<Impl>();
    impl->isLoggedIn = client->status() == VXIMClientStatusOpened;
    impl->client = std::move(client);
    impl->options = std::move(options);
    impl->observe();
    return std::shared_ptr<VXIMConversations>(new VXIMConversations(std::move(impl)));
}

VXIMConversations::~VXIMConversations() {
    vexim::NotificationCenter::defaultCenter().removeObserver(impl_.get());
    if (impl_->isLinked) impl_->catchUp->linkDidClose();  // marks how far all is known
}

void VXIMConversations::open(VXIMBooleanCompletion completion) {
    impl_->openers.push_back(std::move(completion));
    impl_->open();
}

std::shared_ptr<VXIMMessageStore> VXIMConversations::store() const { return impl_->store; }

const std::shared_ptr<VXIMClient>& VXIMConversations::client() const { return impl_->client; }

void VXIMConversations::send(std::shared_ptr<VXIMMessage> message, VXIMConversationId conversation,
                             VXIMProgress progress, VXIMStoredMessageCompletion completion) {
    if (!message)
        throw vexim::Exception(vexim::kInvalidArgumentException, "There is no message to send.");
    if (conversation.kind == VXIMConversationKindSystem || conversation.id.empty()) {
        throw vexim::Exception(vexim::kInvalidArgumentException,
                               "A message needs a friend, a group or a room.");
    }
    if (!impl_->outbox) {
        return MainQueue::shared().async([completion = std::move(completion)] {
            if (completion) completion(std::nullopt, vexim::store::errors::notOpen());
        });
    }
    impl_->outbox->add(conversation, *message, std::move(progress), std::move(completion));
}

void VXIMConversations::sendText(std::string text, VXIMConversationId conversation,
                                 VXIMStoredMessageCompletion completion) {
    send(VXIMMessage::messageWithText(text), std::move(conversation), nullptr,
         std::move(completion));
}

namespace {

void refuse(VXIMBooleanCompletion completion) {
    MainQueue::shared().async([completion = std::move(completion)] {
        if (completion) completion(false, vexim::store::errors::notOpen());
    });
}

}  // namespace

void VXIMConversations::retry(std::int64_t localId, VXIMBooleanCompletion completion) {
    if (!impl_->outbox) return refuse(std::move(completion));
    impl_->outbox->retry(localId, std::move(completion));
}

void VXIMConversations::cancel(std::int64_t localId, VXIMBooleanCompletion completion) {
    if (!impl_->outbox) return refuse(std::move(completion));
    impl_->outbox->cancel(localId, std::move(completion));
}

void VXIMConversations::readGap(VXIMConversationId conversation, VXIMStoredGap gap,
                                VXIMCountCompletion completion) {
    auto told = [completion = std::move(completion)](std::optional<std::int64_t> count,
                                                     const ErrorPtr& error) {
        if (completion) completion(count, error);
    };
    if (impl_->catchUp && vexim::store::hasHistory(conversation))
        return impl_->catchUp->fillGap(conversation, gap, std::move(told));
    MainQueue::shared().async([isOpen = impl_->catchUp != nullptr, told = std::move(told)] {
        isOpen ? told(0, nullptr) : told(std::nullopt, vexim::store::errors::notOpen());
    });
}

void VXIMConversations::setCaughtUpHandler(std::function<void(const VXIMCaughtUp&)> handler) {
    impl_->caughtUp = std::move(handler);
}

void VXIMConversations::setTroubleHandler(std::function<void(const ErrorPtr&)> handler) {
    impl_->trouble = std::move(handler);
}
