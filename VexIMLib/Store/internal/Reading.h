#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/Store/VXIMStoreTypes.h"
#include "VexIMLib/Store/internal/Messages.h"

namespace vexim::store {

// The reading operations, on the store's thread; see VXIMMessageStore.h.
std::vector<VXIMStoredMessage> messagesBefore(Tables& tables, const VXIMConversationId& id,
                                              const std::optional<VXIMStorePosition>& position,
                                              std::int32_t limit);
std::vector<VXIMStoredMessage> messagesAfter(Tables& tables, const VXIMConversationId& id,
                                             const std::optional<VXIMStorePosition>& position,
                                             std::int32_t limit);
std::vector<VXIMStoredMessage> search(Tables& tables, const VXIMMessageSearch& search);
std::vector<VXIMStoredGap> gaps(Tables& tables, const VXIMConversationId& id);

/// Own messages that are not confirmed, by conversation, each in its order.
std::vector<VXIMStoredMessage> waiting(Tables& tables);

}  // namespace vexim::store
