// The outbox's operations and the fate of its messages. OutboxSending.cpp sends them.

#include "VexIMLib/Store/internal/Outbox.h"

#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/Random.h"
#include "VexIMLib/Store/internal/OutboxErrors.h"
#include "VexIMLib/Store/internal/Times.h"
#include "VexIMLib/VXIMMessageTarget.h"

namespace vexim::store {
namespace {

/// 48 bits of time in milliseconds, then 80 random bits, in hexadecimal digits. Keys that grow with
/// time keep the store's index dense (as in RFC 9562, 5.7).
std::string newKey() {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string key;
    const auto millis = static_cast<std::uint64_t>(wallMillis());
    for (int shift = 44; shift >= 0; shift -= 4)
        key += kDigits[(millis >> static_cast<unsigned>(shift)) & 0xFU];
    while (key.size() < 32) {
        std::uint32_t bits = Random::shared()->next32();
        for (int digit = 0; digit < 4; ++digit, bits >>= 4U) key += kDigits[bits & 0xFU];
    }
    return key;
}

void address(VXIMMessage& message, const VXIMConversationId& conversation) {
    auto& receiver = *message.receiver();
    switch (conversation.kind) {
        case VXIMConversationKindFriend:
            receiver.setUserId(conversation.id);
            return receiver.setType(VXIMMessageTargetTypeUser);
        case VXIMConversationKindGroup: return receiver.setGroupId(conversation.id);
        case VXIMConversationKindRoom: return receiver.setRoomId(conversation.id);
        case VXIMConversationKindSystem: return;  // nobody; the client refuses it
    }
}

}  // namespace

Outbox::Outbox(std::shared_ptr<VXIMMessageStore> store, Callbacks callbacks, Limits limits)
    : store_(std::move(store)),
      operations_(store_),
      callbacks_(std::move(callbacks)),
      limits_(limits) {}

void Outbox::load(VXIMBooleanCompletion completion) {
    operations_.waiting(
        [weak = weak_from_this(), completion = std::move(completion)](
            std::optional<std::vector<VXIMStoredMessage>> messages, const ErrorPtr& error) {
            const auto self = weak.lock();
            if (!self) return;
            for (auto& row : messages.value_or(std::vector<VXIMStoredMessage>())) {
                if (row.state == VXIMStoredMessageFailed) continue;
                const auto stage =
                    row.state == VXIMStoredMessageQueued ? Stage::Waiting : Stage::Doubtful;
                self->enqueue(std::move(row), stage, nullptr);
            }
            if (completion) completion(error == nullptr, error);
            self->sendAllWaiting();
        });
}

void Outbox::reload() {
    std::vector<std::int64_t> all;  // of each conversation in its order
    for (const auto& [conversation, queue] : queues_) {
        for (const auto& [localId, item] : queue.items) all.push_back(localId);
    }
    for (const auto localId : all) {
        ++reloading_;
        store_->message(
            localId, [weak = weak_from_this(), localId](const std::optional<VXIMStoredMessage>& row,
                                                        const ErrorPtr& error) {
                const auto self = weak.lock();
                if (!self) return;
                --self->reloading_;
                if (!row && !error) self->restore(localId);
            });
    }
}

void Outbox::restore(std::int64_t localId) {
    const auto place = places_.find(localId);
    if (place == places_.end()) return;
    const VXIMConversationId conversation = place->second;
    const Item lost = *find(conversation, localId);
    if (lost.transfer) lost.transfer->cancel();
    drop(conversation, localId);
    const bool mayBeSent = lost.stage == Stage::Sending || lost.stage == Stage::AwaitingEcho ||
                           lost.stage == Stage::Doubtful;
    std::vector<std::string> files;
    std::error_code ignored;
    for (const auto& file : lost.row.attachmentFiles) {
        if (std::filesystem::exists(file, ignored)) files.push_back(file);
    }
    ++adding_;
    operations_.addOutgoing(
        conversation, lost.row.payload, std::move(files),
        [weak = weak_from_this(), conversation, mayBeSent, progress = lost.progress](
            const std::optional<VXIMStoredMessage>& row, const ErrorPtr& error) {
            const auto self = weak.lock();
            if (!self) return;
            --self->adding_;
            if (error) return self->callbacks_.didFail(error);
            if (row) self->enqueue(*row, mayBeSent ? Stage::Doubtful : Stage::Waiting, progress);
            self->sendWaiting(conversation);
        });
}

void Outbox::add(const VXIMConversationId& conversation, VXIMMessage& message,
                 VXIMProgress progress, VXIMStoredMessageCompletion completion) {
    if (places_.size() + adding_ >= limits_.most) {
        return MainQueue::shared().async([completion = std::move(completion)] {
            if (completion) completion(std::nullopt, errors::outboxFull());
        });
    }
    address(message, conversation);
    Dictionary payload = message.dictionaryRepresentation();
    // fields that a forwarded message still has
    for (const char* const field : {"ts", "from", "speaker", kServiceIdField})
        payload.remove(field);
    payload.set(kKeyField, newKey());
    const bool isFile =
        VXIMMessageMediaTypeIsAttachment(message.mediaType()) && message.attachmentPath();
    std::vector<std::string> files;
    if (isFile) files.push_back(*message.attachmentPath());
    ++adding_;
    operations_.addOutgoing(
        conversation, std::move(payload), std::move(files),
        [weak = weak_from_this(), conversation, progress = std::move(progress),
         completion = std::move(completion)](const std::optional<VXIMStoredMessage>& row,
                                             const ErrorPtr& error) {
            const auto self = weak.lock();
            if (self) --self->adding_;
            if (self && row) self->enqueue(*row, Stage::Waiting, progress);
            if (completion) completion(row, error);
            if (self) self->sendWaiting(conversation);
        });
}

void Outbox::retry(std::int64_t localId, VXIMBooleanCompletion completion) {
    // it waits: try it now
    if (const auto place = places_.find(localId); place != places_.end()) {
        const VXIMConversationId conversation = place->second;
        queueOf(conversation).isPaused = false;
        MainQueue::shared().async([completion = std::move(completion)] {
            if (completion) completion(true, nullptr);
        });
        return sendWaiting(conversation);
    }
    store_->message(
        localId, [weak = weak_from_this(), completion = std::move(completion)](
                     const std::optional<VXIMStoredMessage>& row, const ErrorPtr& error) {
            const auto self = weak.lock();
            const bool isFailed = row && row->state == VXIMStoredMessageFailed;
            if (!self || !isFailed) {
                if (completion) completion(false, error ? error : errors::notFound());
                return;
            }
            Item item;
            item.row = *row;
            self->write(
                item, VXIMStoredMessageQueued, nullptr, false,
                [weak, completion](std::optional<VXIMStoredMessage> written, const ErrorPtr& why) {
                    const auto outbox = weak.lock();
                    const bool isQueued = written && written->state == VXIMStoredMessageQueued;
                    if (outbox && isQueued && !outbox->places_.contains(written->localId)) {
                        outbox->enqueue(*written, Stage::Waiting, nullptr);
                    }
                    if (completion) completion(why == nullptr, why);
                    if (outbox && written) outbox->sendWaiting(written->conversation);
                });
        });
}

void Outbox::cancel(std::int64_t localId, VXIMBooleanCompletion completion) {
    if (const auto place = places_.find(localId); place != places_.end()) {
        const VXIMConversationId conversation = place->second;
        if (Item* item = find(conversation, localId); item && item->transfer)
            item->transfer->cancel();
        drop(conversation, localId);
    }
    operations_.remove(localId, [weak = weak_from_this(), completion = std::move(completion)](
                                    bool removed, const ErrorPtr& error) {
        if (completion) completion(removed, error);
        if (const auto self = weak.lock()) self->sendAllWaiting();
    });
}

void Outbox::linkDidOpen() {
    if (isOpen_) linkDidClose();
    isOpen_ = true;
    ++link_;
    sendAllWaiting();
}

void Outbox::linkDidClose() {
    isOpen_ = false;
    for (auto& [conversation, queue] : queues_) {
        queue.isLookingUp = queue.hasLookedUpTwice = queue.isAskingForEchoes = queue.isPaused =
            false;
        queue.failures = 0;
        for (auto& [localId, item] : queue.items) {
            switch (item.stage) {
                case Stage::AwaitingEcho: item.stage = Stage::Doubtful; break;
                case Stage::Sending:
                    // It must not be sent on the next connection before doubtful messages have been
                    // looked up.
                    if (item.transfer) item.transfer->cancel();
                    break;
                case Stage::Writing:
                case Stage::Ready:
                    item.stage = Stage::Waiting;
                    write(item, VXIMStoredMessageQueued, nullptr, false, nullptr);
                    break;
                case Stage::Waiting:
                case Stage::Doubtful: break;
            }
        }
    }
}

void Outbox::didConfirm(std::int64_t localId, bool withItsKey) {
    keepsKeys_ = keepsKeys_ || withItsKey;
    const auto place = places_.find(localId);
    if (place == places_.end()) return;
    const VXIMConversationId conversation = place->second;
    drop(conversation, localId);
    sendWaiting(conversation);
}

void Outbox::didLookUp(const VXIMConversationId& conversation, const ErrorPtr& error) {
    Queue& queue = queueOf(conversation);
    if (std::exchange(queue.isAskingForEchoes, false)) didMissEchoes(conversation, error);
    if (!queue.isLookingUp || (!error && looksUpOnceMore(conversation, queue))) return;
    queue.isLookingUp = queue.hasLookedUpTwice = false;
    std::vector<std::int64_t> doubtful;
    for (const auto& [localId, item] : queue.items) {
        if (item.stage == Stage::Doubtful) doubtful.push_back(localId);
    }
    for (const auto localId : doubtful) {
        if (error) {
            fail(conversation, localId, errors::fateUnknown(error));
            continue;
        }
        Item& item = queue.items.at(localId);  // the service does not have it
        item.stage = Stage::Waiting;
        write(item, VXIMStoredMessageQueued, nullptr, false, nullptr);
    }
    sendWaiting(conversation);
}

Outbox::Item* Outbox::find(const VXIMConversationId& conversation, std::int64_t localId) {
    Queue& queue = queueOf(conversation);
    const auto found = queue.items.find(localId);
    return found == queue.items.end() ? nullptr : &found->second;
}

void Outbox::enqueue(VXIMStoredMessage row, Stage stage, VXIMProgress progress) {
    const auto localId = row.localId;
    places_.emplace(localId, row.conversation);
    Item& item = queueOf(row.conversation).items[localId];
    item.row = std::move(row);
    item.stage = stage;
    item.progress = std::move(progress);
}

void Outbox::drop(const VXIMConversationId& conversation, std::int64_t localId) {
    queueOf(conversation).items.erase(localId);
    places_.erase(localId);
}

void Outbox::fail(const VXIMConversationId& conversation, std::int64_t localId,
                  const ErrorPtr& error) {
    if (const Item* const item = find(conversation, localId))
        write(*item, VXIMStoredMessageFailed, error, true, nullptr);
    drop(conversation, localId);
}

void Outbox::write(const Item& item, VXIMStoredMessageState state, const ErrorPtr& error,
                   bool withPayload, VXIMStoredMessageCompletion completion) {
    std::optional<Dictionary> payload;
    if (withPayload) payload = item.row.payload;
    operations_.change(
        item.row.localId,
        {.state = state, .error = error, .payload = std::move(payload), .attempts = std::nullopt},
        [didFail = callbacks_.didFail, completion = std::move(completion)](
            const std::optional<VXIMStoredMessage>& row, const ErrorPtr& why) {
            if (why && !why->is(VXIMStoreErrorDomain, VXIMStoreErrorNotFound)) didFail(why);
            if (completion) completion(row, why);
        });
}

}  // namespace vexim::store
