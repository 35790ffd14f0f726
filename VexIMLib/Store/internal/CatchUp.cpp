#include "VexIMLib/Store/internal/CatchUp.h"

#include <algorithm>
#include <utility>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Store/internal/HistoryPages.h"
#include "VexIMLib/Store/internal/OutboxErrors.h"
#include "VexIMLib/Store/internal/Payloads.h"
#include "VexIMLib/Store/internal/Times.h"
#include "VexIMLib/VXIMGroup.h"
#include "VexIMLib/VXIMUser.h"

namespace vexim::store {
namespace {

constexpr std::size_t kMostAtOnce = 4;
constexpr std::int32_t kFirstPage = 50;
constexpr std::int32_t kLongestPage = 500;
constexpr std::int32_t kPageOfGap = 100;
constexpr std::int32_t kMostOfOneMillisecond = 1'000;
// How many known messages in a row mean that the rest is known, too. One is not enough: senders'
// clocks differ, so a message may be placed before others that came earlier.
constexpr int kEnoughKnown = 50;
constexpr int kMostIdlePages = 4;
constexpr std::int64_t kDoubtMillis = 60'000;
// Start after all messages, because a sender's clock may be ahead. (2100-01-01)
constexpr std::int64_t kEndOfTime = 4'102'444'800'000;

}  // namespace

CatchUp::CatchUp(std::shared_ptr<VXIMMessageStore> store, Callbacks callbacks, Limits limits)
    : store_(std::move(store)),
      operations_(store_),
      callbacks_(std::move(callbacks)),
      limits_(limits) {}

void CatchUp::linkDidOpen() {
    linkDidClose();
    isOpen_ = true;
    isReported_ = false;
    result_ = {};
    isListing_ = true;
    const auto link = link_;
    store_->conversations(
        [weak = weak_from_this(), link](std::optional<std::vector<VXIMConversation>> known,
                                        const ErrorPtr& error) {
            const auto self = weak.lock();
            if (!self || self->isStale(link)) return;
            if (error) self->result_.error = error;
            self->begin(std::move(known).value_or(std::vector<VXIMConversation>()));
        });
}

void CatchUp::linkDidClose() {
    // While the connection was up nothing was missed, so the next login need not read farther back
    // than its end.
    for (const auto& [conversation, millis] : std::exchange(live_, {})) {
        if (!complete_.contains(conversation)) continue;
        // Without `weak`, because this object may be destroyed meanwhile.
        operations_.knownHistory(
            conversation, [operations = operations_, conversation = conversation,
                           until = std::min(millis, wallMillis())](
                              std::optional<KnownHistory> history, const ErrorPtr&) mutable {
                if (!history || history->knownUntilMillis >= until) return;
                history->knownUntilMillis = until;
                operations.setKnownHistory(conversation, *std::move(history), nullptr);
            });
    }
    complete_.clear();
    readings_.clear();
    queue_.clear();
    runningCount_ = 0;
    isOpen_ = false;
    ++link_;
}

void CatchUp::read(const VXIMConversationId& conversation, std::int64_t sinceMillis) {
    Reading& reading = readings_[conversation];
    reading.sinceMillis = std::min(reading.sinceMillis, sinceMillis);
    enqueue(conversation);
    startQueued();
}

void CatchUp::didStoreLive(const VXIMConversationId& conversation, std::int64_t sentAtMillis) {
    auto& newest = live_[conversation];
    newest = std::max(newest, sentAtMillis);
}

void CatchUp::begin(std::vector<VXIMConversation> known) {
    isFresh_ = known.empty();
    for (const auto& conversation : known) {
        if (hasHistory(conversation.id)) enqueueOnce(conversation.id);
        if (conversation.id.kind != VXIMConversationKindRoom) continue;
        markRoom(conversation.id,
                 conversation.lastMessage ? conversation.lastMessage->sentAtMillis : 0);
    }
    list(0);
    startQueued();
}

/// Asks the service for the user's conversations.
void CatchUp::list(int failures) {
    // use our own object and do not change the application's lists
    const auto user = VXIMUser::userWithId(store_->userId());
    user->fetchWithCompletion(
        [weak = weak_from_this(), user, link = link_, failures](bool, const ErrorPtr& error) {
            const auto self = weak.lock();
            if (!self || self->isStale(link)) return;
            if (errors::isWorthRetrying(error)) {
                return MainQueue::shared().after(pauseAfter(failures), [weak, link, failures] {
                    const auto later = weak.lock();
                    if (later && !later->isStale(link)) later->list(failures + 1);
                });
            }
            if (error) self->result_.error = error;
            for (const auto& info :
                 user->friends().value_or(std::vector<std::shared_ptr<VXIMFriendInfo>>())) {
                self->enqueueOnce({VXIMConversationKindFriend, info->uid().description()});
            }
            for (const auto& group :
                 user->groups().value_or(std::vector<std::shared_ptr<VXIMGroup>>())) {
                self->enqueueOnce({VXIMConversationKindGroup, group->groupId().description()});
            }
            self->isListing_ = false;
            self->startQueued();
            self->reportWhenDone();
        });
}

/// Queues a reading from the end of the history. If the history is being read now, it is read once
/// more afterwards, since newer messages may have come.
void CatchUp::enqueue(const VXIMConversationId& conversation) {
    Reading& reading = readings_[conversation];
    if (std::exchange(reading.isWanted, true)) return;
    if (!reading.isRunning) queue_.push_back(conversation);
}

/// At most once for each login.
void CatchUp::enqueueOnce(const VXIMConversationId& conversation) {
    if (!readings_.contains(conversation) && !complete_.contains(conversation))
        enqueue(conversation);
}

void CatchUp::startQueued() {
    while (isOpen_ && runningCount_ < kMostAtOnce && !queue_.empty()) {
        const VXIMConversationId conversation = queue_.front();
        queue_.pop_front();
        ++runningCount_;
        start(conversation);
    }
}

void CatchUp::start(const VXIMConversationId& conversation) {
    Reading& reading = readings_[conversation];
    Reading fresh;
    fresh.isRunning = true;
    fresh.untilMillis =
        std::min(reading.sinceMillis, reading.isRunning ? reading.untilMillis : INT64_MAX);
    fresh.failures = reading.failures;
    reading = std::move(fresh);
    reading.beforeMillis = kEndOfTime;
    reading.pageSize = kFirstPage;
    operations_.knownHistory(conversation,
                             [weak = weak_from_this(), conversation, link = link_](
                                 std::optional<KnownHistory> history, const ErrorPtr& error) {
                                 const auto self = weak.lock();
                                 if (!self || self->isStale(link)) return;
                                 if (error || !history)
                                     return self->tryAgainLater(conversation, error);
                                 self->readings_[conversation].history = *std::move(history);
                                 self->requestPage(conversation);
                             });
}

void CatchUp::requestPage(const VXIMConversationId& conversation) {
    const Reading& reading = readings_[conversation];
    auto done = [weak = weak_from_this(), conversation, link = link_](
                    const std::optional<HistoryPage>& page, const ErrorPtr& error) {
        const auto self = weak.lock();
        if (!self || self->isStale(link)) return;
        if (errors::isWorthRetrying(error)) return self->tryAgainLater(conversation, error);
        if (error) return self->end(conversation, error);
        self->didGetPage(conversation, page.value_or(HistoryPage()));
    };
    requestHistory(store_->userId(), conversation, reading.beforeMillis, reading.pageSize,
                   std::move(done));
}

void CatchUp::didGetPage(const VXIMConversationId& conversation, const HistoryPage& page) {
    Reading& reading = readings_[conversation];
    auto arrivals = arrivalsOf(store_->userId(), conversation, page,
                               reading.history.knownUntilMillis != 0 || !isFresh_);
    const bool bringsOlder = std::ranges::any_of(arrivals, [&](const Arrival& arrival) {
        const auto millis = timeOf(arrival.payload).value_or(0);
        return millis > 0 && millis < reading.oldestMillis;
    });
    if (arrivals.empty()) return finish(conversation, false);

    auto shared = std::make_shared<const std::vector<Arrival>>(arrivals);
    callbacks_.insert(std::move(arrivals),
                      [weak = weak_from_this(), conversation, link = link_, shared, bringsOlder](
                          const std::optional<std::vector<Merged>>& merged, const ErrorPtr& error) {
                          const auto self = weak.lock();
                          if (!self || self->isStale(link)) return;
                          // for example a full disk: nothing is marked as known, so this is read
                          // again
                          if (error || !merged) {
                              return self->tryAgainLater(conversation, error);
                          }
                          self->didStorePage(conversation, *shared, *merged, bringsOlder);
                      });
}

void CatchUp::didStorePage(const VXIMConversationId& conversation, const std::vector<Arrival>& page,
                           const std::vector<Merged>& merged, bool bringsOlder) {
    Reading& reading = readings_[conversation];
    const std::int64_t known = reading.history.knownUntilMillis;
    for (std::size_t i = page.size(); i-- > 0;) {  // the newest first
        const bool isInserted = merged[i].outcome == Outcome::Inserted;
        const bool isOfKnownTime = timeOf(page[i].payload).value_or(0) <= known;
        reading.knownRun =
            isOfKnownTime && merged[i].outcome == Outcome::Known ? reading.knownRun + 1 : 0;
        if (isInserted && page[i].countsAsUnread && page[i].direction == VXIMStoredMessageIncoming)
            ++result_.missedCount;
        if (isInserted) ++reading.count;
    }
    const auto dated = std::ranges::find_if(
        page, [](const Arrival& arrival) { return timeOf(arrival.payload).value_or(0) > 0; });
    if (dated == page.end()) return finish(conversation, false);
    const std::int64_t oldest = timeOf(dated->payload).value_or(0);
    reading.oldestMillis = std::min(reading.oldestMillis, oldest);
    reading.newestMillis = std::max(reading.newestMillis, timeOf(page.back().payload).value_or(0));

    const bool isFull = static_cast<std::int32_t>(page.size()) >= reading.pageSize;
    reading.idlePages = bringsOlder ? 0 : reading.idlePages + 1;
    // The beginning of the history, or a service that repeats itself.
    if (!bringsOlder && (!isFull || reading.idlePages > kMostIdlePages))
        return finish(conversation, false);
    const bool isFarEnough =
        reading.untilMillis == INT64_MAX || oldest < reading.untilMillis - kDoubtMillis;
    if (isFarEnough && known != 0 && oldest <= known && reading.knownRun >= kEnoughKnown)
        return finish(conversation, false);
    const bool isTooFar = oldest < wallMillis() - limits_.farthest.count();
    if (isFarEnough && (reading.count >= limits_.mostMessages || isTooFar))
        return finish(conversation, oldest > known);

    // Messages of the oldest millisecond may be on both sides of the page's end.
    if (!bringsOlder && reading.pageSize < kMostOfOneMillisecond) {
        reading.pageSize = kMostOfOneMillisecond;
    } else {
        reading.beforeMillis = bringsOlder ? oldest + 1 : oldest;
        reading.pageSize = std::min(kLongestPage, reading.pageSize * 2);
    }
    requestPage(conversation);
}

/// Starts again after a pause. The messages that were stored are known by then.
void CatchUp::tryAgainLater(const VXIMConversationId& conversation, const ErrorPtr& error) {
    result_.error = error;
    const auto wait = pauseAfter(readings_[conversation].failures++);
    MainQueue::shared().after(wait, [weak = weak_from_this(), conversation, link = link_] {
        const auto self = weak.lock();
        if (self && !self->isStale(link)) self->start(conversation);
    });
}

void CatchUp::finish(const VXIMConversationId& conversation, bool isCutOff) {
    Reading& reading = readings_[conversation];
    KnownHistory history = reading.history;
    if (isCutOff) {
        history.gaps.push_back({history.knownUntilMillis, reading.oldestMillis});
        ++result_.gapCount;
    }
    // Never later than now, whatever a sender's clock says: the next message may have an earlier
    // time.
    const std::int64_t reached = std::min(reading.newestMillis, wallMillis());
    history.knownUntilMillis = std::max({history.knownUntilMillis, reached, std::int64_t{1}});
    if (history.knownUntilMillis == reading.history.knownUntilMillis && !isCutOff)
        return end(conversation, nullptr);
    operations_.setKnownHistory(
        conversation, std::move(history),
        [weak = weak_from_this(), conversation, link = link_](bool, const ErrorPtr& error) {
            const auto self = weak.lock();
            if (!self || self->isStale(link)) return;
            // all is stored, but will be read again next time
            if (error) self->result_.error = error;
            self->end(conversation, nullptr);
        });
}

void CatchUp::end(const VXIMConversationId& conversation, const ErrorPtr& error) {
    if (error) {
        result_.error = error;
    } else {
        complete_.insert(conversation);
    }
    --runningCount_;
    Reading& reading = readings_[conversation];
    reading.isRunning = false;
    if (reading.isWanted) {  // again
        queue_.push_back(conversation);
    } else {
        readings_.erase(conversation);
        callbacks_.didRead(conversation, error);
    }
    startQueued();
    reportWhenDone();
}

void CatchUp::fillGap(const VXIMConversationId& conversation, VXIMStoredGap gap,
                      VXIMCountCompletion completion) {
    // Messages of the same millisecond as the first one after the gap may be missing, too.
    requestHistory(
        store_->userId(), conversation, gap.beforeMillis + 1, kPageOfGap,
        [weak = weak_from_this(), conversation, gap, completion = std::move(completion)](
            const std::optional<HistoryPage>& page, const ErrorPtr& error) {
            const auto self = weak.lock();
            if (error || !self) return completion(std::nullopt, error ? error : errors::notOpen());
            auto arrivals = arrivalsOf(self->store_->userId(), conversation,
                                       page.value_or(HistoryPage()), false);
            const bool isFull = arrivals.size() >= static_cast<std::size_t>(kPageOfGap);
            const std::int64_t oldest =
                arrivals.empty() ? 0 : timeOf(arrivals.front().payload).value_or(0);
            // A whole page of one millisecond: further messages of this millisecond cannot be read.
            const std::int64_t reached =
                !isFull ? gap.afterMillis : std::min(oldest, gap.beforeMillis - 1);
            self->callbacks_.insert(
                std::move(arrivals),
                [weak, conversation, gap, reached, completion](
                    const std::optional<std::vector<Merged>>& merged, const ErrorPtr& why) {
                    const auto alive = weak.lock();
                    if (why || !merged) return completion(std::nullopt, why);
                    if (!alive) return completion(std::nullopt, errors::notOpen());
                    const auto count =
                        std::ranges::count(*merged, Outcome::Inserted, &Merged::outcome);
                    alive->narrowGap(conversation, gap, reached, count, completion);
                });
        });
}

void CatchUp::narrowGap(const VXIMConversationId& conversation, VXIMStoredGap gap,
                        std::int64_t reachedMillis, std::int64_t count,
                        VXIMCountCompletion completion) {
    operations_.knownHistory(
        conversation, [operations = operations_, conversation, gap, reachedMillis, count,
                       completion = std::move(completion)](std::optional<KnownHistory> history,
                                                           const ErrorPtr& error) mutable {
            if (error || !history) return completion(std::nullopt, error);
            const auto found = std::ranges::find(history->gaps, gap);
            if (found == history->gaps.end()) return completion(count, nullptr);
            if (reachedMillis <= gap.afterMillis) {
                history->gaps.erase(found);
            } else {
                found->beforeMillis = reachedMillis;
            }
            operations.setKnownHistory(
                conversation, *std::move(history), [count, completion](bool, const ErrorPtr& why) {
                    completion(why ? std::nullopt : std::optional(count), why);
                });
        });
}

/// A room has no history, so messages sent since then cannot be read.
void CatchUp::markRoom(const VXIMConversationId& conversation, std::int64_t lastMillis) {
    operations_.knownHistory(
        conversation, [weak = weak_from_this(), conversation, lastMillis, link = link_](
                          std::optional<KnownHistory> history, const ErrorPtr& error) {
            const auto self = weak.lock();
            if (!self || self->isStale(link) || error || !history) return;
            const std::int64_t now = wallMillis();
            const std::int64_t after = std::max(history->knownUntilMillis, lastMillis);
            if (!history->gaps.empty() && history->gaps.back().beforeMillis >= after) {
                history->gaps.back().beforeMillis = now;  // nothing was received in between
            } else if (after != 0) {
                history->gaps.push_back({after, now});
                ++self->result_.gapCount;
            }
            history->knownUntilMillis = now;
            self->operations_.setKnownHistory(conversation, *std::move(history), nullptr);
            self->complete_.insert(conversation);
        });
}

void CatchUp::reportWhenDone() {
    if (isReported_ || isListing_ || runningCount_ > 0 || !queue_.empty()) return;
    isReported_ = true;
    callbacks_.didCatchUp(result_);
}

}  // namespace vexim::store
