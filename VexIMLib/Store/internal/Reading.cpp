#include "VexIMLib/Store/internal/Reading.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <queue>
#include <utility>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Store/internal/Words.h"

namespace vexim::store {
namespace {

constexpr VXIMStorePosition kBeforeAll{std::numeric_limits<std::int64_t>::min(), 0};
constexpr VXIMStorePosition kBehindAll{std::numeric_limits<std::int64_t>::max(),
                                       std::numeric_limits<std::int64_t>::max()};

std::vector<VXIMStoredMessage> page(Tables& tables, const char* which, const VXIMConversationId& id,
                                    const VXIMStorePosition& position, std::int32_t limit) {
    const Tables::Conversation* const conversation = tables.find(id);
    if (!conversation || limit <= 0) return {};
    Statement rows = tables.select(which);
    rows.bind(1, conversation->row)
        .bind(2, position.sentAtMillis)
        .bind(3, position.localId)
        .bind(4, std::int64_t{limit});
    std::vector<VXIMStoredMessage> messages;
    while (rows.step()) messages.push_back(tables.message(readRow(rows)));
    return messages;
}

}  // namespace

std::vector<VXIMStoredMessage> messagesBefore(Tables& tables, const VXIMConversationId& id,
                                              const std::optional<VXIMStorePosition>& position,
                                              std::int32_t limit) {
    auto messages = page(
        tables,
        "WHERE conversation = ?1 AND (sent_at, id) < (?2, ?3) ORDER BY sent_at DESC, id DESC LIMIT ?4",
        id, position.value_or(kBehindAll), limit);
    std::ranges::reverse(messages);
    return messages;
}

std::vector<VXIMStoredMessage> messagesAfter(Tables& tables, const VXIMConversationId& id,
                                             const std::optional<VXIMStorePosition>& position,
                                             std::int32_t limit) {
    return page(
        tables,
        "WHERE conversation = ?1 AND (sent_at, id) > (?2, ?3) ORDER BY sent_at, id LIMIT ?4", id,
        position.value_or(kBeforeAll), limit);
}

std::vector<VXIMStoredMessage> search(Tables& tables, const VXIMMessageSearch& search) {
    const std::string words = matchExpression(search.text);
    if (words.empty() || search.limit <= 0) return {};
    std::string match = "{body} : (" + words + ")";
    if (search.conversation) {
        const Tables::Conversation* const conversation = tables.find(*search.conversation);
        if (!conversation) return {};
        match += " AND {place} : " + placeWord(conversation->row);
    }
    const std::int64_t since = search.sinceMillis.value_or(kBeforeAll.sentAtMillis);
    VXIMStorePosition before = search.before.value_or(kBehindAll);
    if (search.untilMillis) before = std::min(before, VXIMStorePosition{*search.untilMillis, 0});

    // Ids are in order of time to the hour, so the newest hits come first and the rest need not be
    // read.
    const std::int64_t drift = tables.drift();
    const std::int64_t first = std::max<std::int64_t>(0, hourOf(since) - drift) << kHourBits;
    const std::int64_t last = (hourOf(before.sentAtMillis) + drift + 1) << kHourBits;
    std::priority_queue<VXIMStorePosition, std::vector<VXIMStorePosition>, std::greater<>> newest;
    {
        Statement hits = tables.database.prepare(
            "SELECT rowid FROM words WHERE words MATCH ?1 AND rowid >= ?2 AND rowid < ?3 ORDER BY rowid DESC");
        Statement time = tables.database.prepare("SELECT sent_at FROM message WHERE id = ?1");
        hits.bind(1, match).bind(2, first).bind(3, last);
        while (hits.step()) {
            const std::int64_t id = hits.integer(0);
            const bool isFull = newest.size() == static_cast<std::size_t>(search.limit);
            if (isFull && (id >> kHourBits) + drift < hourOf(newest.top().sentAtMillis)) break;
            if (!time.bind(1, id).step())
                fail(VXIMStoreErrorDamaged,
                     "The search index names a message that does not exist.");
            const VXIMStorePosition position{time.integer(0), id};
            time.reset();
            if (position.sentAtMillis < since || position >= before) continue;
            newest.push(position);
            if (isFull) newest.pop();
        }
    }
    std::vector<VXIMStoredMessage> found;
    for (; !newest.empty(); newest.pop()) {
        if (auto message = tables.message(newest.top().localId))
            found.push_back(std::move(*message));
    }
    std::ranges::reverse(found);
    return found;
}

std::vector<VXIMStoredGap> gaps(Tables& tables, const VXIMConversationId& id) {
    const Tables::Conversation* const conversation = tables.find(id);
    if (!conversation) return {};
    Statement rows = tables.database.prepare(
        "SELECT after, before FROM gap WHERE conversation = ?1 ORDER BY after");
    rows.bind(1, conversation->row);
    std::vector<VXIMStoredGap> answer;
    while (rows.step()) answer.push_back({rows.integer(0), rows.integer(1)});
    return answer;
}

std::vector<VXIMStoredMessage> waiting(Tables& tables) {
    Statement rows =
        tables.select("WHERE direction = 1 AND state <> 3 ORDER BY conversation, sent_at, id");
    std::vector<VXIMStoredMessage> answer;
    while (rows.step()) answer.push_back(tables.message(readRow(rows)));
    return answer;
}

}  // namespace vexim::store
