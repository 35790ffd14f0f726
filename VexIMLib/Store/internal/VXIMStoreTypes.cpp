#include "VexIMLib/Store/VXIMStoreTypes.h"

#include "VexIMLib/Store/VXIMStoreErrors.h"

const char* const VXIMStoreErrorDomain = "VXIMStoreErrorDomain";

const char* VXIMConversationKindName(VXIMConversationKind kind) {
    switch (kind) {
        case VXIMConversationKindFriend: return "friend";
        case VXIMConversationKindGroup: return "group";
        case VXIMConversationKindRoom: return "room";
        case VXIMConversationKindSystem: return "system";
    }
    return "unknown";
}

const char* VXIMStoredMessageDirectionName(VXIMStoredMessageDirection direction) {
    switch (direction) {
        case VXIMStoredMessageIncoming: return "incoming";
        case VXIMStoredMessageOutgoing: return "outgoing";
    }
    return "unknown";
}

const char* VXIMStoredMessageStateName(VXIMStoredMessageState state) {
    switch (state) {
        case VXIMStoredMessageQueued: return "queued";
        case VXIMStoredMessageSending: return "sending";
        case VXIMStoredMessageSent: return "sent";
        case VXIMStoredMessageConfirmed: return "confirmed";
        case VXIMStoredMessageFailed: return "failed";
    }
    return "unknown";
}

std::string VXIMStoredMessage::text() const {
    if (VXIMMessageMediaTypeIsAttachment(mediaType)) return {};
    return payload.get("content").get("body").asString().value_or("");
}

std::shared_ptr<VXIMMessage> VXIMStoredMessage::message() const {
    return VXIMMessage::initWithPayloadDictionary(payload);
}

vexim::Dictionary VXIMStoredMessage::record() const {
    using vexim::Dictionary;
    Dictionary record{
        {"conversation", Dictionary{{"kind", VXIMConversationKindName(conversation.kind)},
                                    {"id", conversation.id}}},
        {"localId", localId},
        {"sentAt", sentAtMillis},
        {"direction", VXIMStoredMessageDirectionName(direction)},
        {"state", VXIMStoredMessageStateName(state)},
        {"sender", sender},
        {"receiver", receiver},
        {"payload", payload},
    };
    if (error) {
        record.set("error", Dictionary{{"domain", error->domain()},
                                       {"code", error->code()},
                                       {"description", error->localizedDescription()}});
    }
    return record;
}
