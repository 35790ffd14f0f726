#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "VexIMLib/Store/internal/Messages.h"
#include "VexIMLib/Store/internal/Operations.h"

namespace vexim::store {

// The operations on whole conversations, on the store's thread; see VXIMMessageStore.h and
// Operations.h.
void markRead(Tables& tables, const VXIMConversationId& id,
              const std::optional<VXIMStorePosition>& upTo);
void setDraft(Tables& tables, const VXIMConversationId& id, const std::string& draft);
void removeConversation(Tables& tables, const VXIMConversationId& id);
KnownHistory knownHistory(Tables& tables, const Tables::Conversation& conversation);
void setKnownHistory(Tables& tables, const VXIMConversationId& id, const KnownHistory& history);

void setRetention(Tables& tables, const VXIMRetention& retention);
/// Removes messages beyond the limits, `most` at most, and returns how many.
std::int64_t enforceRetention(Tables& tables, std::int64_t most);

/// Removes attachment files that belong to no message.
void removeOrphans(Tables& tables);

}  // namespace vexim::store
