// Sending, conversation by conversation: look up doubtful messages, store, pass to the client, wait
// for the echo.

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Store/internal/Outbox.h"
#include "VexIMLib/Store/internal/OutboxErrors.h"
#include "VexIMLib/Store/internal/Times.h"
#include "VexIMLib/VXIMErrors.h"
#include "VexIMLib/VXIMMessageTarget.h"

namespace vexim::store {
namespace {

using namespace std::chrono_literals;

// How many messages of a conversation may wait for their echoes, and how many are stored ahead. So
// not every message costs a round trip.
constexpr std::size_t kMostAwaitingEcho = 64;
constexpr std::size_t kMostWrittenAhead = 16;
constexpr int kMostMissedEchoes = 2;
// How far a history may be behind what was sent.
constexpr std::chrono::seconds kHistoryLag = 3s;
// Do not wait for a clock that was set back by more than this.
constexpr std::int64_t kMostClockStepMillis = 1'000;

bool isWorthSendingAgain(const ErrorPtr& error) {
    // we cancel when the connection is lost
    return errors::isWorthRetrying(error) || error->is(kURLErrorDomain, URLErrorCancelled);
}

}  // namespace

void Outbox::sendAllWaiting() {
    std::vector<VXIMConversationId> all;
    all.reserve(queues_.size());
    for (const auto& [conversation, queue] : queues_) all.push_back(conversation);
    for (const auto& conversation : all) sendWaiting(conversation);
}

void Outbox::sendWaiting(const VXIMConversationId& conversation) {
    Queue& queue = queueOf(conversation);
    if (!isOpen_ || queue.isPaused || queue.isLookingUp) return;
    if (!resolveDoubts(conversation, queue)) return;
    writeAhead(conversation, queue);
    sendReady(conversation, queue);
}

std::int64_t Outbox::oldestDoubt(const Queue& queue) {
    std::int64_t since = INT64_MAX;
    for (const auto& [localId, item] : queue.items) {
        if (item.stage == Stage::Doubtful) since = std::min(since, item.row.sentAtMillis);
    }
    return since;
}

/// A history may be behind. If there are no keys to recognise a second copy, ask once more before
/// sending anything again. Returns false if that was done already.
bool Outbox::looksUpOnceMore(const VXIMConversationId& conversation, Queue& queue) {
    if (keepsKeys_ || oldestDoubt(queue) == INT64_MAX ||
        std::exchange(queue.hasLookedUpTwice, true))
        return false;
    MainQueue::shared().after(kHistoryLag, [weak = weak_from_this(), conversation, link = link_] {
        const auto self = weak.lock();
        if (!self || link != self->link_ || !self->isOpen_) return;
        // Even if all were found meanwhile: the answer lets the other messages continue.
        self->callbacks_.lookUp(conversation, self->oldestDoubt(self->queueOf(conversation)));
    });
    return true;
}

/// False if something must be looked up first.
bool Outbox::resolveDoubts(const VXIMConversationId& conversation, Queue& queue) {
    for (const auto& [localId, item] : queue.items) {
        if (item.stage == Stage::Sending) return true;  // it ends first
    }
    const auto since = oldestDoubt(queue);
    if (since == INT64_MAX) return true;
    if (conversation.kind != VXIMConversationKindRoom) {
        queue.isLookingUp = true;
        callbacks_.lookUp(conversation, since);
        return false;
    }
    // A room has no history. With keys a second copy is recognised; without them the user decides.
    std::vector<std::int64_t> doubtful;
    for (const auto& [localId, item] : queue.items) {
        if (item.stage == Stage::Doubtful) doubtful.push_back(localId);
    }
    for (const auto localId : doubtful) {
        if (!keepsKeys_) {
            fail(conversation, localId, errors::fateUnknown(nullptr));
            continue;
        }
        queue.items.at(localId).stage = Stage::Waiting;
    }
    return true;
}

void Outbox::writeAhead(const VXIMConversationId& conversation, Queue& queue) {
    std::size_t ahead = 0;
    std::vector<std::int64_t> tooOld;
    for (auto& [localId, item] : queue.items) {
        if (item.stage == Stage::Writing || item.stage == Stage::Ready) ++ahead;
        if (ahead >= kMostWrittenAhead) break;
        if (item.stage == Stage::Waiting) {
            if (wallMillis() - item.row.sentAtMillis > limits_.longestWait.count()) {
                tooOld.push_back(localId);
                continue;
            }
            ++ahead;
            item.stage = Stage::Writing;
            write(item, VXIMStoredMessageSending, nullptr, false,
                  [weak = weak_from_this(), conversation, localId = localId](
                      const std::optional<VXIMStoredMessage>& written, const ErrorPtr& error) {
                      const auto self = weak.lock();
                      Item* const ours = self ? self->find(conversation, localId) : nullptr;
                      if (!ours || ours->stage != Stage::Writing) return;
                      // a late echo of an earlier attempt
                      if (written && written->state == VXIMStoredMessageConfirmed) {
                          self->drop(conversation, localId);
                      } else if (error && error->is(VXIMStoreErrorDomain, VXIMStoreErrorNotFound)) {
                          ours->stage = Stage::Waiting;
                          // it was lost with a damaged file, and will be put back
                          if (self->reloading_ > 0) return;
                          self->drop(conversation, localId);  // its conversation was removed
                      } else if (error) {
                          // store every message before sending it
                          ours->stage = Stage::Waiting;
                          self->pause(conversation, self->queueOf(conversation));
                      } else {
                          ours->stage = Stage::Ready;
                      }
                      self->sendWaiting(conversation);
                  });
        }
        if (item.stage != Stage::AwaitingEcho && !item.row.attachmentFiles.empty())
            break;  // messages after an upload are not sent yet
    }
    for (const auto localId : tooOld) fail(conversation, localId, errors::tooOld());
}

void Outbox::sendReady(const VXIMConversationId& conversation, Queue& queue) {
    std::size_t awaiting = 0;
    for (auto& [localId, item] : queue.items) {
        switch (item.stage) {
            case Stage::AwaitingEcho:
                if (++awaiting >= kMostAwaitingEcho) return;
                break;
            case Stage::Ready: return send(conversation, queue, item);
            case Stage::Waiting:
            case Stage::Writing:
            case Stage::Sending:
            case Stage::Doubtful: return;  // one message after the other
        }
    }
}

void Outbox::send(const VXIMConversationId& conversation, Queue& queue, Item& item) {
    // No two messages of a conversation have the same time, so their order is the same for
    // everybody.
    if (const auto ahead = queue.lastMillis - wallMillis();
        ahead >= 0 && ahead < kMostClockStepMillis) {
        return MainQueue::shared().after(1ms, [weak = weak_from_this(), conversation] {
            if (const auto self = weak.lock()) self->sendWaiting(conversation);
        });
    }
    const auto localId = item.row.localId;
    auto message = VXIMMessage::initWithPayloadDictionary(item.row.payload);
    message->sender()->setType(VXIMMessageTargetTypeUnknown);  // the service adds the sender
    if (!item.row.attachmentFiles.empty() && !message->attachmentUrl()) {
        const std::string& path = item.row.attachmentFiles.front();
        std::error_code ignored;
        if (!std::filesystem::exists(path, ignored)) {
            fail(conversation, localId,
                 Error::withDescription(kURLErrorDomain, URLErrorFileDoesNotExist,
                                        "The file is missing: " + path));
            return sendWaiting(conversation);
        }
        message->setAttachmentPath(path);
        item.transfer = VXIMTransfer::transfer();
    }
    item.stage = Stage::Sending;
    const auto sent = std::make_shared<Dictionary>();
    auto done = [weak = weak_from_this(), conversation, localId, link = link_, sent, message](
                    bool, const ErrorPtr& error) {
        // `say` may complete at once
        MainQueue::shared().async([weak, conversation, localId, link, sent, message, error] {
            if (const auto self = weak.lock())
                self->didSend(conversation, localId, link, *sent, message, error);
        });
    };
    try {
        callbacks_.send(message, item.progress, std::move(done), item.transfer);
    } catch (const Exception& cause) {
        fail(conversation, localId,
             Error::withDescription(VXIMErrorDomain, VXIMErrorCannotSend, cause.what()));
        return sendWaiting(conversation);
    }
    *sent = message->payload();  // with its send time; afterwards the client
                                 // writes another
    queue.lastMillis = sent->get("ts").longLongValue();
}

void Outbox::didSend(const VXIMConversationId& conversation, std::int64_t localId,
                     std::uint64_t link, Dictionary sent,
                     const std::shared_ptr<VXIMMessage>& message, const ErrorPtr& error) {
    Item* const item = find(conversation, localId);
    // cancelled, or an echo was faster
    if (!item || item->stage != Stage::Sending) return sendWaiting(conversation);
    Queue& queue = queueOf(conversation);
    item->transfer = nullptr;
    if (const auto url = message->attachmentUrl()) {  // not uploaded again
        sent.set("content", message->payload().get("content"));
        item->row.payload = sent;
    }
    if (message->status() == VXIMMessageStatusSent) {
        queue.failures = 0;
        item->row.payload = std::move(sent);
        item->row.sentAtMillis = queue.lastMillis;
        item->awaitingEchoSince = Clock::shared()->now();
        item->stage = isOpen_ && link == link_ ? Stage::AwaitingEcho : Stage::Doubtful;
        write(*item, VXIMStoredMessageSent, nullptr, true, nullptr);
        awaitEchoes(conversation, queue);
    } else {
        const ErrorPtr cause = error ? error : message->error();
        if (!cause || isWorthSendingAgain(cause)) {
            requeue(conversation, queue, *item, cause);
        } else {
            fail(conversation, localId, cause);
        }
    }
    sendWaiting(conversation);
}

/// Makes the message wait, and with it the later ones of its conversation.
void Outbox::requeue(const VXIMConversationId& conversation, Queue& queue, Item& item,
                     const ErrorPtr& error) {
    item.stage = Stage::Waiting;
    write(item, VXIMStoredMessageQueued, error, true, nullptr);
    pause(conversation, queue);
}

void Outbox::pause(const VXIMConversationId& conversation, Queue& queue) {
    if (!isOpen_) return;  // the next connection ends it
    queue.isPaused = true;
    MainQueue::shared().after(pauseAfter(queue.failures++),
                              [weak = weak_from_this(), conversation, link = link_] {
                                  const auto self = weak.lock();
                                  if (!self || link != self->link_) return;
                                  self->queueOf(conversation).isPaused = false;
                                  self->sendWaiting(conversation);
                              });
}

void Outbox::awaitEchoes(const VXIMConversationId& conversation, Queue& queue) {
    if (std::exchange(queue.isTimerSet, true)) return;
    MainQueue::shared().after(limits_.echoTimeout, [weak = weak_from_this(), conversation] {
        const auto self = weak.lock();
        if (!self) return;
        self->queueOf(conversation).isTimerSet = false;
        self->checkEchoes(conversation);
    });
}

void Outbox::checkEchoes(const VXIMConversationId& conversation) {
    Queue& queue = queueOf(conversation);
    const auto now = Clock::shared()->now();
    std::int64_t since = INT64_MAX;
    bool areAwaited = false;
    for (const auto& [localId, item] : queue.items) {
        if (item.stage != Stage::AwaitingEcho) continue;
        areAwaited = true;
        if (now - item.awaitingEchoSince >= limits_.echoTimeout)
            since = std::min(since, item.row.sentAtMillis);
    }
    if (areAwaited) awaitEchoes(conversation, queue);
    if (since == INT64_MAX || queue.isAskingForEchoes) return;
    if (conversation.kind == VXIMConversationKindRoom) return didMissEchoes(conversation, nullptr);
    queue.isAskingForEchoes = true;
    callbacks_.lookUp(conversation, since);
}

void Outbox::didMissEchoes(const VXIMConversationId& conversation, const ErrorPtr& cause) {
    const auto now = Clock::shared()->now();
    std::vector<std::int64_t> lost;
    for (auto& [localId, item] : queueOf(conversation).items) {
        if (item.stage != Stage::AwaitingEcho || now - item.awaitingEchoSince < limits_.echoTimeout)
            continue;
        item.awaitingEchoSince = now;
        if (++item.missedEchoes >= kMostMissedEchoes || cause) lost.push_back(localId);
    }
    for (const auto localId : lost) fail(conversation, localId, errors::notAccepted(cause));
    if (!lost.empty()) sendWaiting(conversation);
}

}  // namespace vexim::store
