#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/Store/internal/Messages.h"
#include "VexIMLib/Store/internal/Operations.h"

namespace vexim::store {

// The writing operations of outbox and catch-up, on the store's thread; see Operations.h.
std::vector<Merged> insertArrivals(Tables& tables, const std::vector<Arrival>& arrivals);
VXIMStoredMessage addOutgoing(Tables& tables, const VXIMConversationId& id, Dictionary payload,
                              const std::vector<std::string>& files);
VXIMStoredMessage changeMessage(Tables& tables, std::int64_t localId, const Change& change);
void removeMessage(Tables& tables, std::int64_t localId);

}  // namespace vexim::store
