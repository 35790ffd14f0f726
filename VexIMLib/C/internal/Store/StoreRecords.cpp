#include "VexIMLib/C/internal/Store/StoreRecords.h"

#include <string_view>
#include <vector>

namespace vexim::c {

void writeStored(std::string& out, const VXIMConversationId& id) {
    ObjectWriter(out)
        .add("kind", std::string_view(VXIMConversationKindName(id.kind)))
        .add("id", std::string_view(id.id));
}

void writeStored(std::string& out, const VXIMStorePosition& position) {
    ObjectWriter(out).add("sentAtMillis", position.sentAtMillis).add("localId", position.localId);
}

void writeStored(std::string& out, const VXIMStoredMessage& message) {
    ObjectWriter object(out);
    object.add("localId", message.localId).add("conversation", Stored{message.conversation});
    if (VXIMMessageMediaTypeIsAttachment(message.mediaType)) {
        object.add("attachmentUrl", message.message()->attachmentUrl());
    } else {
        object.add("text", std::string_view(message.text()));
    }
    object.add("mediaType", static_cast<std::int32_t>(message.mediaType))
        .add("sentAtMillis", message.sentAtMillis);
    object.add("direction", std::string_view(VXIMStoredMessageDirectionName(message.direction)))
        .add("state", std::string_view(VXIMStoredMessageStateName(message.state)))
        .add("sender", std::string_view(message.sender));
    object.add("receiver", std::string_view(message.receiver))
        .add("key", message.key)
        .add("serviceId", message.serviceId);
    if (message.error) object.add("error", *message.error);
    object.add("attempts", message.attempts);
    if (!message.attachmentFiles.empty()) {
        object.add("attachmentFiles", std::vector<std::string_view>(message.attachmentFiles.begin(),
                                                                    message.attachmentFiles.end()));
    }
    object.add("payload", Value(message.payload));
}

void writeStored(std::string& out, const VXIMConversation& conversation) {
    ObjectWriter object(out);
    object.add("id", Stored{conversation.id});
    if (conversation.lastMessage) object.add("lastMessage", Stored{*conversation.lastMessage});
    object.add("unreadCount", conversation.unreadCount)
        .add("draft", std::string_view(conversation.draft));
}

void writeStored(std::string& out, const VXIMStoredGap& gap) {
    ObjectWriter(out).add("afterMillis", gap.afterMillis).add("beforeMillis", gap.beforeMillis);
}

void writeStored(std::string& out, const VXIMStoreDamage& damage) {
    ObjectWriter(out)
        .add("setAsideAs", std::string_view(damage.setAsideAs))
        .add("messagesSaved", damage.messagesSaved);
}

void writeStore(std::string& out, std::int64_t number, const VXIMMessageStore& store) {
    ObjectWriter object(out);
    object.add("store", number)
        .add("path", std::string_view(store.path()))
        .add("service", std::string_view(store.service()));
    object.add("userId", std::string_view(store.userId()));
    if (const auto damage = store.damage()) object.add("damage", Stored{*damage});
}

}  // namespace vexim::c
