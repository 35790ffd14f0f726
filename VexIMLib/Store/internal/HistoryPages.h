#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/Store/internal/Operations.h"
#include "VexIMLib/VXIMMessage.h"

namespace vexim::store {

/// In the service's order: the newest message first.
using HistoryPage = std::vector<std::shared_ptr<VXIMMessage>>;
using HistoryCompletion =
    std::function<void(const std::optional<HistoryPage>& page, const ErrorPtr& error)>;

/// Asks the service for at most `size` messages of a friend or a group before a time. Main thread.
void requestHistory(const std::string& userId, const VXIMConversationId& conversation,
                    std::int64_t beforeMillis, std::int32_t size, HistoryCompletion done);

/// The messages of a page to store, the oldest first. `isNews`: messages from others count as
/// unread.
std::vector<Arrival> arrivalsOf(const std::string& userId, const VXIMConversationId& conversation,
                                const HistoryPage& page, bool isNews);

/// Whether the service keeps a history: it does for friends and groups.
bool hasHistory(const VXIMConversationId& conversation);

}  // namespace vexim::store
