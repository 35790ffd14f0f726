#include "VexIMLib/Store/internal/Housekeeping.h"

#include <algorithm>
#include <limits>
#include <set>
#include <utility>
#include <vector>

#include "VexIMLib/Store/internal/Files.h"
#include "VexIMLib/Store/internal/Reading.h"
#include "VexIMLib/Store/internal/Schema.h"
#include "VexIMLib/Store/internal/Times.h"

namespace vexim::store {
namespace {

constexpr const char* kMaximumAge = "maximumAgeHours";
constexpr const char* kMaximumCount = "maximumCount";

std::optional<std::int64_t> limit(Tables& tables, const char* name) {
    const std::string text = meta(tables.database, name);
    return text.empty() ? std::nullopt : std::optional<std::int64_t>(std::stoll(text));
}

/// Removes the messages that a query returns, `most` at most.
std::int64_t removeRows(Tables& tables, Statement& rows, std::int64_t most) {
    std::vector<Tables::Row> found;
    while (static_cast<std::int64_t>(found.size()) < most && rows.step())
        found.push_back(readRow(rows));
    rows.reset();
    std::set<std::int64_t> conversations;
    for (const Tables::Row& row : found) {
        tables.remove(row);
        conversations.insert(row.conversation);
    }
    for (const std::int64_t each : conversations) tables.repair(tables.ofRow(each));
    return static_cast<std::int64_t>(found.size());
}

std::int64_t removeOld(Tables& tables, std::int64_t hours, std::int64_t most) {
    const std::int64_t before = wallMillis() - hours * kMillisOfHour;
    Statement rows = tables.select(
        "WHERE id < ?1 AND sent_at < ?2 AND NOT (direction = 1 AND state <> 3) ORDER BY id");
    rows.bind(1, (hourOf(before) + tables.drift() + 1) << kHourBits).bind(2, before);
    return removeRows(tables, rows, most);
}

std::int64_t removeMany(Tables& tables, const Tables::Conversation& conversation,
                        std::int64_t count, std::int64_t most) {
    Statement oldest = tables.database.prepare(
        "SELECT sent_at, id FROM message WHERE conversation = ?1 ORDER BY sent_at DESC, id DESC LIMIT 1 OFFSET ?2");
    if (!oldest.bind(1, conversation.row).bind(2, std::max<std::int64_t>(count, 0)).step())
        return 0;
    const VXIMStorePosition last{oldest.integer(0), oldest.integer(1)};
    oldest.reset();
    Statement rows = tables.select(
        "WHERE conversation = ?1 AND (sent_at, id) <= (?2, ?3) AND NOT (direction = 1 AND state <> 3) ORDER BY sent_at, id");
    rows.bind(1, conversation.row).bind(2, last.sentAtMillis).bind(3, last.localId);
    return removeRows(tables, rows, most);
}

}  // namespace

void markRead(Tables& tables, const VXIMConversationId& id,
              const std::optional<VXIMStorePosition>& upTo) {
    Tables::Conversation* const conversation = tables.find(id);
    if (!conversation || conversation->unread == 0) return;
    std::int64_t unread = 0;
    if (upTo) {
        Statement behind = tables.database.prepare(
            "SELECT count(*) FROM (SELECT 1 FROM message WHERE conversation = ?1 AND (sent_at, id) > (?2, ?3) AND direction = 0 "
            "LIMIT ?4)");
        behind.bind(1, conversation->row)
            .bind(2, upTo->sentAtMillis)
            .bind(3, upTo->localId)
            .bind(4, conversation->unread)
            .step();
        unread = behind.integer(0);
    }
    if (unread == conversation->unread) return;
    conversation->unread = unread;
    tables.save(*conversation);
}

void setDraft(Tables& tables, const VXIMConversationId& id, const std::string& draft) {
    if (draft.empty() && !tables.find(id)) return;
    Tables::Conversation& conversation = tables.findOrMake(id);
    if (conversation.draft == draft) return;
    conversation.draft = draft;
    tables.save(conversation);
}

void removeConversation(Tables& tables, const VXIMConversationId& id) {
    const Tables::Conversation* const found = tables.find(id);
    if (!found) return;
    const Tables::Conversation conversation = *found;
    for (std::int64_t removed = 1; removed > 0;) {
        Statement rows = tables.select("WHERE conversation = ?1 ORDER BY sent_at");
        rows.bind(1, conversation.row);
        std::vector<Tables::Row> some;  // not all at once: there may be many
        while (some.size() < 1000 && rows.step()) some.push_back(readRow(rows));
        rows.reset();
        for (const Tables::Row& each : some) tables.remove(each);
        removed = static_cast<std::int64_t>(some.size());
    }
    tables.database.prepare("DELETE FROM gap WHERE conversation = ?1")
        .bind(1, conversation.row)
        .run();
    tables.database.prepare("DELETE FROM conversation WHERE id = ?1")
        .bind(1, conversation.row)
        .run();
    tables.database.prepare("INSERT OR REPLACE INTO cleared(kind, name, until) VALUES(?1, ?2, ?3)")
        .bind(1, std::int64_t{id.kind})
        .bind(2, id.id)
        .bind(3, std::max(conversation.last.sentAtMillis, conversation.knownUntil))
        .run();
    tables.touched.list = true;
    tables.forget();
}

KnownHistory knownHistory(Tables& tables, const Tables::Conversation& conversation) {
    return {.knownUntilMillis = conversation.knownUntil, .gaps = gaps(tables, conversation.id)};
}

void setKnownHistory(Tables& tables, const VXIMConversationId& id, const KnownHistory& history) {
    Tables::Conversation& conversation = tables.findOrMake(id);
    conversation.knownUntil = history.knownUntilMillis;
    tables.save(conversation);
    tables.database.prepare("DELETE FROM gap WHERE conversation = ?1")
        .bind(1, conversation.row)
        .run();
    for (const VXIMStoredGap& gap : history.gaps) {
        tables.database
            .prepare("INSERT OR REPLACE INTO gap(conversation, after, before) VALUES(?1, ?2, ?3)")
            .bind(1, conversation.row)
            .bind(2, gap.afterMillis)
            .bind(3, gap.beforeMillis)
            .run();
    }
}

void setRetention(Tables& tables, const VXIMRetention& retention) {
    const auto text = [](std::optional<std::int64_t> value) {
        return value ? std::to_string(*value) : std::string();
    };
    const auto hours = retention.maximumAge
                           ? std::optional<std::int64_t>(retention.maximumAge->count())
                           : std::nullopt;
    setMeta(tables.database, kMaximumAge, text(hours));
    setMeta(tables.database, kMaximumCount, text(retention.maximumCount));
}

std::int64_t enforceRetention(Tables& tables, std::int64_t most) {
    std::int64_t removed = 0;
    if (const auto hours = limit(tables, kMaximumAge)) removed += removeOld(tables, *hours, most);
    if (const auto count = limit(tables, kMaximumCount)) {
        for (const Tables::Conversation* const each : tables.all()) {
            if (removed >= most) break;
            removed += removeMany(tables, *each, *count, most - removed);
        }
    }
    return removed;
}

void removeOrphans(Tables& tables) {
    std::vector<std::string> names;
    Statement rows = tables.database.prepare("SELECT name FROM attachment");
    while (rows.step()) names.emplace_back(rows.text(0));
    removeOthers(tables.filesFolder, names);
}

}  // namespace vexim::store
