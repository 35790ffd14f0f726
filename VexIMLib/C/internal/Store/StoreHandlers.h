#pragma once

#include <string_view>

#include "VexIMLib/C/internal/Operations.h"

namespace vexim::c {

extern const std::string_view kConversationId;
extern const std::string_view kStorePosition;

namespace handlers {

Handler openConversations, conversationsStore, sendStored, sendStoredText, retryStored,
    cancelStored, readStoredGap;
Handler openStore, closeStore, storeConversations, storeConversation, storeMessagesBefore,
    storeMessagesAfter, storeMessage, storeSearch, storeGaps, storeMarkRead, storeSetDraft,
    storeRemoveConversation, storeSetRetention, storeExport;
Handler observeConversations, observeMessages, observeDamage, setObservationLimit,
    releaseObservation;

}  // namespace handlers
}  // namespace vexim::c
