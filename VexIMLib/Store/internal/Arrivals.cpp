#include "VexIMLib/Store/internal/Arrivals.h"

#include <utility>

#include "VexIMLib/VXIMMessageTarget.h"

namespace vexim::store {
namespace {

std::optional<VXIMConversationId> conversationOf(const VXIMMessage& message, bool isOwn) {
    const auto& to = *message.receiver();
    const auto& peer = isOwn ? to : *message.sender();
    const auto named = [](VXIMConversationKind kind,
                          const Value& id) -> std::optional<VXIMConversationId> {
        if (id.isNilOrNull()) return std::nullopt;
        return VXIMConversationId{kind, id.description()};
    };
    switch (to.type()) {
        case VXIMMessageTargetTypeUser: return named(VXIMConversationKindFriend, peer.userId());
        case VXIMMessageTargetTypeGroup: return named(VXIMConversationKindGroup, to.groupId());
        case VXIMMessageTargetTypeRoom: return named(VXIMConversationKindRoom, to.roomId());
        case VXIMMessageTargetTypeAllUsers:
        case VXIMMessageTargetTypeSystem:
        case VXIMMessageTargetTypeUnknown: return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace

std::optional<Arrival> arrivalOf(VXIMMessage& message, std::string_view userId, bool isSystem) {
    const bool isOwn = !isSystem && message.sender()->userId().description() == userId;
    auto conversation = isSystem ? VXIMConversationId{VXIMConversationKindSystem, ""}
                                 : conversationOf(message, isOwn);
    if (!conversation) return std::nullopt;
    Arrival arrival;
    arrival.payload = message.payload();
    arrival.conversation = *std::move(conversation);
    if (isOwn) arrival.direction = VXIMStoredMessageOutgoing;
    return arrival;
}

}  // namespace vexim::store
