#include "VexIMLib/Store/internal/Messages.h"

#include <algorithm>
#include <utility>

#include "VexIMLib/Store/VXIMStoreErrors.h"
#include "VexIMLib/Store/internal/Index.h"
#include "VexIMLib/Store/internal/Schema.h"

// A message's id begins with the hour of its time. The full-text index knows only ids, so its hits
// come almost in order of time. A time that is later moved to another hour, or an hour that is
// full, causes "drift" (in hours, stored in meta).
//
//   id := hour since 1970 << 20 | number within the hour
namespace vexim::store {
namespace {

std::string idText(const Value& id) {
    return id.isNilOrNull() ? std::string() : id.asString().value_or("");
}

}  // namespace

std::int64_t hourOf(std::int64_t millis) {
    return std::clamp<std::int64_t>(millis / kMillisOfHour, 0, (std::int64_t{1} << 40) - 1);
}

Tables::Row readRow(const Statement& statement) {
    return {.id = statement.integer(0),
            .conversation = statement.integer(1),
            .sentAt = statement.integer(2),
            .direction =
                statement.integer(3) == 1 ? VXIMStoredMessageOutgoing : VXIMStoredMessageIncoming,
            .state = static_cast<VXIMStoredMessageState>(statement.integer(4)),
            .payload = std::string(statement.text(5)),
            .error = std::string(statement.text(6)),
            .attempts = statement.integer(7)};
}

Statement Tables::select(std::string_view rest) {
    std::string sql = "SELECT ";
    sql.append(kFirstRowColumns).append(", attempts FROM message ").append(rest);
    return database.prepare(sql);
}

std::optional<Tables::Row> Tables::row(std::int64_t id) {
    Statement found = select("WHERE id = ?1");
    if (!found.bind(1, id).step()) return std::nullopt;
    return readRow(found);
}

VXIMStoredMessage Tables::message(const Row& row) {
    VXIMStoredMessage message;
    message.localId = row.id;
    message.conversation = ofRow(row.conversation).id;
    message.payload = fromJSON(row.payload);
    message.key = textOf(message.payload, kKeyField);
    message.serviceId = textOf(message.payload, kServiceIdField);
    message.sender =
        row.direction == VXIMStoredMessageOutgoing ? userId : idText(writerOf(message.payload));
    message.receiver = idText(message.payload.get("to").get("id"));
    message.mediaType = mediaTypeOf(message.payload);
    message.sentAtMillis = row.sentAt;
    message.direction = row.direction;
    message.state = row.state;
    message.attempts = static_cast<std::int32_t>(row.attempts);
    if (!row.error.empty()) {
        const Dictionary error = fromJSON(row.error);
        message.error = Error::make(error.get("domain").asString().value_or(""),
                                    error.get("code").longLongValue(), error.get("info"));
    }
    if (row.direction == VXIMStoredMessageOutgoing && row.state != VXIMStoredMessageConfirmed) {
        Statement files =
            database.prepare("SELECT name FROM attachment WHERE message = ?1 ORDER BY number");
        files.bind(1, row.id);
        while (files.step())
            message.attachmentFiles.push_back(filesFolder + "/" + std::string(files.text(0)));
    }
    return message;
}

std::optional<VXIMStoredMessage> Tables::message(std::int64_t id) {
    const auto found = row(id);
    if (!found) return std::nullopt;
    return message(*found);
}

std::int64_t Tables::freshId(std::int64_t sentAt) {
    std::int64_t hour = hourOf(sentAt);
    for (;; ++hour) {
        auto [next, isNew] = nextInHour_.try_emplace(hour, 0);
        if (isNew) {
            Statement last =
                database.prepare("SELECT max(id) FROM message WHERE id >= ?1 AND id < ?2");
            last.bind(1, hour << kHourBits).bind(2, (hour + 1) << kHourBits).step();
            next->second =
                last.isNull(0) ? 0 : (last.integer(0) & ((std::int64_t{1} << kHourBits) - 1)) + 1;
        }
        if (next->second >> kHourBits) continue;  // a million in one hour
        noteDrift(hour, sentAt);
        return hour << kHourBits | next->second++;
    }
}

std::int64_t Tables::drift() {
    if (!drift_) {
        const std::string text = meta(database, "drift");
        drift_ = text.empty() ? 0 : std::stoll(text);
    }
    return *drift_;
}

void Tables::noteDrift(std::int64_t idHour, std::int64_t sentAt) {
    const std::int64_t hours = std::abs(hourOf(sentAt) - idHour);
    if (hours <= drift()) return;
    drift_ = hours;
    setMeta(database, "drift", std::to_string(hours));
}

std::int64_t Tables::insert(Conversation& conversation, std::int64_t sentAt,
                            VXIMStoredMessageDirection direction, VXIMStoredMessageState state,
                            const Dictionary& payload, const std::string& json) {
    const std::int64_t id = freshId(sentAt);
    write(id, conversation.row, sentAt, direction, state, payload, json);
    conversation.last = std::max(conversation.last, VXIMStorePosition{sentAt, id});
    touched.conversations.insert(conversation.row);
    return id;
}

void Tables::restore(const Row& row, const Dictionary& payload) {
    write(row.id, row.conversation, row.sentAt, row.direction, row.state, payload, row.payload);
    noteDrift(row.id >> kHourBits, row.sentAt);
    if (!row.error.empty()) update(row, std::nullopt);
}

void Tables::write(std::int64_t id, std::int64_t conversation, std::int64_t sentAt,
                   VXIMStoredMessageDirection direction, VXIMStoredMessageState state,
                   const Dictionary& payload, const std::string& json) {
    const auto number = [&payload](const char* field) -> std::optional<std::int64_t> {
        const auto text = textOf(payload, field);
        return text ? std::optional(keyNumber(*text)) : std::nullopt;
    };
    database
        .prepare(
            "INSERT INTO message(id, conversation, sent_at, direction, state, payload, key, service_id) "
            "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)")
        .bind(1, id)
        .bind(2, conversation)
        .bind(3, sentAt)
        .bind(4, std::int64_t{direction})
        .bind(5, std::int64_t{state})
        .bind(6, json)
        .bind(7, number(kKeyField))
        .bind(8, number(kServiceIdField))
        .run();
    addWords(database, id, conversation, payload);
}

void Tables::update(const Row& row, const std::optional<Dictionary>& payload) {
    Statement update = database.prepare(
        "UPDATE message SET sent_at = ?2, state = ?3, error = ?4, attempts = ?5 WHERE id = ?1");
    update.bind(1, row.id)
        .bind(2, row.sentAt)
        .bind(3, std::int64_t{row.state})
        .bind(5, row.attempts);
    if (!row.error.empty()) update.bind(4, row.error);
    update.run();
    noteDrift(row.id >> kHourBits, row.sentAt);
    touched.messages.insert(row.id);
    touched.conversations.insert(row.conversation);
    Conversation& conversation = ofRow(row.conversation);
    // never too small, see `Finder`
    conversation.last = std::max(conversation.last, VXIMStorePosition{row.sentAt, row.id});
    if (!payload) return;
    const std::string json = toJSON(*payload);
    if (json == row.payload) return;
    const Dictionary former = fromJSON(row.payload);
    if (former.get("content") != payload->get("content")) {
        removeWords(database, row.id, row.conversation, former);
        addWords(database, row.id, row.conversation, *payload);
    }
    const auto key = textOf(*payload, kKeyField);
    const auto serviceId = textOf(*payload, kServiceIdField);
    database.prepare("UPDATE message SET payload = ?2, key = ?3, service_id = ?4 WHERE id = ?1")
        .bind(1, row.id)
        .bind(2, json)
        .bind(3, key ? std::optional(keyNumber(*key)) : std::nullopt)
        .bind(4, serviceId ? std::optional(keyNumber(*serviceId)) : std::nullopt)
        .run();
}

void Tables::remove(const Row& row) {
    removeWords(database, row.id, row.conversation, fromJSON(row.payload));
    if (row.direction == VXIMStoredMessageOutgoing) releaseFiles(row.id);
    database.prepare("DELETE FROM message WHERE id = ?1").bind(1, row.id).run();
    touched.conversations.insert(row.conversation);
}

void Tables::releaseFiles(std::int64_t id) {
    bool any = false;
    {
        Statement files = database.prepare("SELECT name FROM attachment WHERE message = ?1");
        files.bind(1, id);
        for (; files.step(); any = true)
            touched.files.push_back(filesFolder + "/" + std::string(files.text(0)));
    }
    if (any) database.prepare("DELETE FROM attachment WHERE message = ?1").bind(1, id).run();
}

}  // namespace vexim::store
