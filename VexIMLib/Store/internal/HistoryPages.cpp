#include "VexIMLib/Store/internal/HistoryPages.h"

#include <algorithm>
#include <utility>

#include "VexIMLib/Store/internal/Payloads.h"
#include "VexIMLib/VXIMGroup.h"
#include "VexIMLib/VXIMUser.h"

namespace vexim::store {

void requestHistory(const std::string& userId, const VXIMConversationId& conversation,
                    std::int64_t beforeMillis, std::int32_t size, HistoryCompletion done) {
    // The service truncates it to milliseconds again.
    const double before = (static_cast<double>(beforeMillis) + 0.5) / 1000.0;
    if (conversation.kind == VXIMConversationKindGroup) {
        return VXIMGroup::groupWithId(conversation.id)
            ->getLatestMessagesBefore(before, size, std::move(done));
    }
    VXIMUser::userWithId(userId)->getLatestChatsWithFriend(conversation.id, before, size,
                                                           std::move(done));
}

std::vector<Arrival> arrivalsOf(const std::string& userId, const VXIMConversationId& conversation,
                                const HistoryPage& page, bool isNews) {
    std::vector<Arrival> arrivals;
    for (auto message = page.rbegin(); message != page.rend(); ++message) {  // the oldest first
        Arrival arrival;
        arrival.conversation = conversation;
        arrival.payload = (*message)->payload();
        if (isWrittenBy(arrival.payload, userId)) arrival.direction = VXIMStoredMessageOutgoing;
        arrival.countsAsUnread = isNews;
        arrival.isHistory = true;
        arrivals.push_back(std::move(arrival));
    }
    std::ranges::stable_sort(
        arrivals, {}, [](const Arrival& arrival) { return timeOf(arrival.payload).value_or(0); });
    return arrivals;
}

bool hasHistory(const VXIMConversationId& conversation) {
    return conversation.kind == VXIMConversationKindFriend ||
           conversation.kind == VXIMConversationKindGroup;
}

}  // namespace vexim::store
