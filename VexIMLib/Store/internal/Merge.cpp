#include "VexIMLib/Store/internal/Merge.h"

#include <algorithm>
#include <set>
#include <utility>

#include "VexIMLib/Store/VXIMStoreErrors.h"
#include "VexIMLib/Store/internal/Files.h"
#include "VexIMLib/Store/internal/Times.h"

namespace vexim::store {
namespace {

// How far the service's clock may be behind when an echo is recognised by its content.
constexpr std::int64_t kEchoToleranceMillis = 60'000;

/// Finds out whether an arrival is in the store.
class Finder {
public:
    Finder(Tables& tables, const Tables::Conversation& conversation, const Arrival& arrival,
           std::int64_t sentAt)
        : tables_(tables),
          conversation_(conversation),
          arrival_(arrival),
          sentAt_(sentAt),
          key_(textOf(arrival.payload, kKeyField)),
          serviceId_(textOf(arrival.payload, kServiceIdField)) {}

    std::optional<Tables::Row> find() const {
        std::optional<Tables::Row> found;
        if (serviceId_) {
            Statement rows = tables_.select("WHERE service_id = ?1");
            rows.bind(1, keyNumber(*serviceId_));
            found = first(rows, [&](const Dictionary& payload) {
                return textOf(payload, kServiceIdField) == serviceId_;
            });
        }
        if (!found && key_) {
            Statement rows = tables_.select("WHERE key = ?1");
            rows.bind(1, keyNumber(*key_));
            found = first(rows, [&](const Dictionary& payload) {
                return textOf(payload, kKeyField) == key_;
            });
        }
        if (!found && sentAt_ <= conversation_.last.sentAtMillis) {
            Statement rows = tables_.select("WHERE conversation = ?1 AND sent_at = ?2 ORDER BY id");
            rows.bind(1, conversation_.row).bind(2, sentAt_);
            found = first(rows, [&](const Dictionary& payload) { return hasSameContent(payload); });
        }
        if (!found && !key_ && arrival_.mayBeEcho &&
            arrival_.direction == VXIMStoredMessageOutgoing) {
            Statement rows = tables_.select(
                "WHERE conversation = ?1 AND direction = 1 AND state <> 3 AND state IN (1, 2) AND sent_at <= ?2 "
                "ORDER BY sent_at, id");
            rows.bind(1, conversation_.row).bind(2, sentAt_ + kEchoToleranceMillis);
            found = first(rows, [&](const Dictionary& payload) { return hasSameContent(payload); });
        }
        return found;
    }

private:
    template <class Same>
    std::optional<Tables::Row> first(Statement& rows, Same isSame) const {
        while (rows.step()) {
            Tables::Row row = readRow(rows);
            if (row.conversation != conversation_.row || row.direction != arrival_.direction)
                continue;
            const Dictionary payload = fromJSON(row.payload);
            // Compare the sender, too: nobody may replace another user's message by using its key.
            // Own messages have no "from" until the echo.
            const bool isSameWriter = arrival_.direction == VXIMStoredMessageOutgoing ||
                                      writerOf(payload) == writerOf(arrival_.payload);
            if (isSameWriter && isSame(payload)) return row;
        }
        return std::nullopt;
    }

    bool hasSameContent(const Dictionary& payload) const {
        const auto differ = [](const std::optional<std::string>& a,
                               const std::optional<std::string>& b) { return a && b && a != b; };
        return payload.get("content") == arrival_.payload.get("content") &&
               !differ(textOf(payload, kKeyField), key_) &&
               !differ(textOf(payload, kServiceIdField), serviceId_);
    }

    Tables& tables_;
    const Tables::Conversation& conversation_;
    const Arrival& arrival_;
    const std::int64_t sentAt_;
    const std::optional<std::string> key_;
    const std::optional<std::string> serviceId_;
};

/// `payload` with what only `other` has.
Dictionary joined(Dictionary payload, const Dictionary& other) {
    for (const auto& [key, value] : other) {
        if (!payload.contains(key)) payload.set(key, value);
    }
    return payload;
}

/// Adds what is new in a second copy of a confirmed message. Keeps the smaller of the two times,
/// whichever came first, so that all stores agree.
void complete(Tables& tables, Tables::Row row, const Arrival& arrival, std::int64_t sentAt) {
    const Dictionary stored = fromJSON(row.payload);
    Dictionary payload = joined(stored, arrival.payload);
    const bool isEarlier = sentAt < row.sentAt && timeOf(arrival.payload);
    if (isEarlier) {
        row.sentAt = sentAt;
        payload.set("ts", sentAt);
    }
    if (payload != stored) tables.update(row, payload);
}

void confirm(Tables& tables, Tables::Row row, const Arrival& arrival) {
    row.sentAt = timeOf(arrival.payload).value_or(row.sentAt);
    row.state = VXIMStoredMessageConfirmed;
    row.error.clear();
    tables.update(row, joined(arrival.payload, fromJSON(row.payload)));
    tables.releaseFiles(row.id);
}

bool wasCleared(Tables& tables, const Arrival& arrival, std::int64_t sentAt) {
    Statement cleared =
        tables.database.prepare("SELECT until FROM cleared WHERE kind = ?1 AND name = ?2");
    cleared.bind(1, std::int64_t{arrival.conversation.kind}).bind(2, arrival.conversation.id);
    return cleared.step() && sentAt <= cleared.integer(0);
}

}  // namespace

std::vector<Merged> insertArrivals(Tables& tables, const std::vector<Arrival>& arrivals) {
    std::vector<Merged> answer;
    answer.reserve(arrivals.size());
    std::set<Tables::Conversation*> grown;
    std::set<Tables::Conversation*> moved;
    for (const Arrival& arrival : arrivals) {
        const std::int64_t sentAt = timeOf(arrival.payload).value_or(wallMillis());
        if (arrival.isHistory && wasCleared(tables, arrival, sentAt)) {
            answer.push_back({Outcome::Known, 0});
            continue;
        }
        Tables::Conversation& conversation = tables.findOrMake(arrival.conversation);
        if (auto found = Finder(tables, conversation, arrival, sentAt).find()) {
            const bool isWaiting = found->state != VXIMStoredMessageConfirmed;
            answer.push_back({isWaiting ? Outcome::Confirmed : Outcome::Known, found->id});
            if (isWaiting) {
                confirm(tables, std::move(*found), arrival);
            } else {
                complete(tables, std::move(*found), arrival, sentAt);
            }
            moved.insert(&conversation);
            continue;
        }
        const std::int64_t id =
            tables.insert(conversation, sentAt, arrival.direction, VXIMStoredMessageConfirmed,
                          arrival.payload, toJSON(arrival.payload));
        if (arrival.countsAsUnread && arrival.direction == VXIMStoredMessageIncoming)
            ++conversation.unread;
        grown.insert(&conversation);
        answer.push_back({Outcome::Inserted, id});
    }
    for (Tables::Conversation* const each : moved) {
        if (tables.touched.conversations.contains(each->row)) tables.repair(*each);
        grown.erase(each);
    }
    for (Tables::Conversation* const each : grown) tables.save(*each);
    return answer;
}

VXIMStoredMessage addOutgoing(Tables& tables, const VXIMConversationId& id, Dictionary payload,
                              const std::vector<std::string>& files) {
    Tables::Conversation& conversation = tables.findOrMake(id);
    std::int64_t sentAt = timeOf(payload).value_or(wallMillis());
    {
        Statement later = tables.database.prepare(
            "SELECT max(sent_at) FROM message WHERE conversation = ?1 AND sent_at >= ?2 AND direction = 1");
        later.bind(1, conversation.row).bind(2, sentAt).step();
        if (!later.isNull(0)) sentAt = later.integer(0) + 1;
    }
    payload.set("ts", sentAt);
    const std::int64_t localId = tables.insert(conversation, sentAt, VXIMStoredMessageOutgoing,
                                               VXIMStoredMessageQueued, payload, toJSON(payload));
    tables.save(conversation);
    std::vector<std::string> copies;
    try {
        for (const std::string& file : files) {
            const auto number = static_cast<std::int64_t>(copies.size());
            copies.push_back(keepCopy(tables.filesFolder, file,
                                      std::to_string(localId) + "-" + std::to_string(number)));
            tables.database
                .prepare("INSERT INTO attachment(message, number, name) VALUES(?1, ?2, ?3)")
                .bind(1, localId)
                .bind(2, number)
                .bind(3, copies.back())
                .run();
        }
    } catch (const Failure&) {
        for (const std::string& copy : copies) removeFile(tables.filesFolder + "/" + copy);
        throw;
    }
    return *tables.message(localId);
}

VXIMStoredMessage changeMessage(Tables& tables, std::int64_t localId, const Change& change) {
    auto row = tables.row(localId);
    if (!row) fail(VXIMStoreErrorNotFound, "There is no such message.");
    if (row->direction == VXIMStoredMessageIncoming || row->state == VXIMStoredMessageConfirmed)
        return tables.message(*row);
    const std::int64_t former = row->sentAt;
    if (change.state) row->state = *change.state;
    if (change.attempts) row->attempts = *change.attempts;
    row->error = errorToJSON(change.error);
    if (change.payload) row->sentAt = timeOf(*change.payload).value_or(row->sentAt);
    tables.update(*row, change.payload);
    if (row->state == VXIMStoredMessageConfirmed) tables.releaseFiles(localId);
    if (row->sentAt != former) tables.repair(tables.ofRow(row->conversation));
    return *tables.message(localId);
}

void removeMessage(Tables& tables, std::int64_t localId) {
    const auto row = tables.row(localId);
    if (!row) fail(VXIMStoreErrorNotFound, "There is no such message.");
    tables.remove(*row);
    tables.repair(tables.ofRow(row->conversation));
}

}  // namespace vexim::store
