#include "VexIMLib/Store/internal/Operations.h"

#include <utility>

#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim::store {
namespace {

template <class Completion>
void refuse(Completion completion) {
    if (!completion) return;
    MainQueue::shared().async([completion = std::move(completion)] {
        completion({}, Error::withDescription(VXIMStoreErrorDomain, VXIMStoreErrorFailed, "The store is not built yet."));
    });
}

}  // namespace

bool isWrittenBy(const Dictionary& payload, const std::string& userId) {
    const Value from = payload.get("from").get("id");
    return (from.isNilOrNull() ? payload.get("speaker") : from) == Value(userId);
}

std::optional<VXIMConversationId> conversationOf(const Dictionary& payload, const std::string& userId) {
    const Value end = payload.get(isWrittenBy(payload, userId) ? "to" : "from");
    const Value to = payload.get("to");
    const std::int64_t type = to.get("type").longLongValue();
    if (type == VXIMMessageTargetTypeGroup || type == VXIMMessageTargetTypeRoom) {
        const auto id = to.get("id").asString();
        if (!id) return std::nullopt;
        return VXIMConversationId{type == VXIMMessageTargetTypeGroup ? VXIMConversationKindGroup : VXIMConversationKindRoom, *id};
    }
    const auto id = end.get("id").asString();
    if (!id) return std::nullopt;
    return VXIMConversationId{VXIMConversationKindFriend, *id};
}

void Operations::insert(std::vector<Arrival>, MergedCompletion completion) { refuse(std::move(completion)); }
void Operations::addOutgoing(VXIMConversationId, Dictionary, std::vector<std::string>, VXIMStoredMessageCompletion completion) {
    refuse(std::move(completion));
}
void Operations::setState(std::int64_t, VXIMStoredMessageState, ErrorPtr, std::optional<Dictionary>,
                          VXIMStoredMessageCompletion completion) {
    refuse(std::move(completion));
}
void Operations::remove(std::int64_t, VXIMBooleanCompletion completion) { refuse(std::move(completion)); }
void Operations::waiting(VXIMStoredMessagesCompletion completion) { refuse(std::move(completion)); }
void Operations::findByKey(std::string, VXIMStoredMessageCompletion completion) { refuse(std::move(completion)); }
void Operations::findEchoCandidate(VXIMConversationId, Dictionary, VXIMStoredMessageCompletion completion) {
    refuse(std::move(completion));
}
void Operations::ground(VXIMConversationId, GroundCompletion completion) { refuse(std::move(completion)); }
void Operations::setGround(VXIMConversationId, Ground, VXIMBooleanCompletion completion) { refuse(std::move(completion)); }

}  // namespace vexim::store
