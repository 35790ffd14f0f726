#include "VexIMLib/Store/internal/Operations.h"

#include <utility>

#include "VexIMLib/Store/internal/Engine.h"
#include "VexIMLib/Store/internal/Housekeeping.h"
#include "VexIMLib/Store/internal/Merge.h"
#include "VexIMLib/Store/internal/Reading.h"
#include "VexIMLib/Store/internal/Schema.h"

namespace vexim::store {

bool isWrittenBy(const Dictionary& payload, const std::string& userId) {
    return writerOf(payload) == Value(userId);
}

std::optional<VXIMConversationId> conversationOf(const Dictionary& payload,
                                                 const std::string& userId) {
    const auto idOf = [](const Value& end) { return end.get("id").asString(); };
    const Value& to = payload.get("to");
    switch (to.get("type").longLongValue()) {
        case VXIMMessageTargetTypeGroup:
            if (auto id = idOf(to))
                return VXIMConversationId{VXIMConversationKindGroup, std::move(*id)};
            return std::nullopt;
        case VXIMMessageTargetTypeRoom:
            if (auto id = idOf(to))
                return VXIMConversationId{VXIMConversationKindRoom, std::move(*id)};
            return std::nullopt;
        default: break;
    }
    const bool isOwn = isWrittenBy(payload, userId);
    auto other = idOf(isOwn ? to : payload.get("from"));
    if (!other && !isOwn) other = payload.get("speaker").asString();
    if (!other) return std::nullopt;
    return VXIMConversationId{VXIMConversationKindFriend, std::move(*other)};
}

void Operations::insert(std::vector<Arrival> arrivals, MergedCompletion completion) {
    store_->engine_->run(Mode::Write, std::move(completion),
                         [arrivals = std::move(arrivals)](Tables& tables) {
                             return insertArrivals(tables, arrivals);
                         });
}

void Operations::addOutgoing(VXIMConversationId conversation, Dictionary payload,
                             std::vector<std::string> files,
                             VXIMStoredMessageCompletion completion) {
    store_->engine_->run(Mode::DurableWrite, std::move(completion),
                         [conversation = std::move(conversation), payload = std::move(payload),
                          files = std::move(files)](Tables& tables) {
                             return store::addOutgoing(tables, conversation, payload, files);
                         });
}

void Operations::change(std::int64_t localId, Change change,
                        VXIMStoredMessageCompletion completion) {
    store_->engine_->run(Mode::Write, std::move(completion),
                         [localId, change = std::move(change)](Tables& tables) {
                             return changeMessage(tables, localId, change);
                         });
}

void Operations::remove(std::int64_t localId, VXIMBooleanCompletion completion) {
    store_->engine_->run(Mode::Write, std::move(completion), [localId](Tables& tables) {
        removeMessage(tables, localId);
        return true;
    });
}

void Operations::waiting(VXIMStoredMessagesCompletion completion) {
    store_->engine_->run(Mode::Read, std::move(completion),
                         [](Tables& tables) { return store::waiting(tables); });
}

void Operations::knownHistory(VXIMConversationId conversation, KnownHistoryCompletion completion) {
    store_->engine_->run(Mode::Read, std::move(completion),
                         [conversation = std::move(conversation)](Tables& tables) {
                             const Tables::Conversation* const found = tables.find(conversation);
                             return found ? store::knownHistory(tables, *found) : KnownHistory();
                         });
}

void Operations::setKnownHistory(VXIMConversationId conversation, KnownHistory history,
                                 VXIMBooleanCompletion completion) {
    store_->engine_->run(
        Mode::Write, std::move(completion),
        [conversation = std::move(conversation), history = std::move(history)](Tables& tables) {
            store::setKnownHistory(tables, conversation, history);
            return true;
        });
}

}  // namespace vexim::store
