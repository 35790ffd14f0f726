#include "VexIMLib/Store/internal/Rescue.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Store/VXIMStoreErrors.h"
#include "VexIMLib/Store/internal/Housekeeping.h"
#include "VexIMLib/Store/internal/Messages.h"
#include "VexIMLib/Store/internal/Schema.h"

namespace vexim::store {
namespace {

/// Reads every readable row: forward from the first, and if damage stops that, backward from the
/// last.
void eachRow(Database& from, const std::string& sql, const std::string& order,
             const std::function<void(const Statement&)>& take) {
    for (const char* const direction : {"", " DESC"}) {
        std::optional<Statement> rows;
        const auto next = [&]() -> std::optional<bool> {
            try {
                if (!rows) rows.emplace(from.prepare(sql + " ORDER BY " + order + direction));
                return rows->step();
            } catch (const Failure&) {
                return std::nullopt;  // a missing table or column also means damage
            }
        };
        std::optional<bool> hasRow;
        while ((hasRow = next()).value_or(false)) take(*rows);
        if (hasRow) return;
    }
}

class Copier {
public:
    Copier(Database& from, Tables& to) : from_(from), to_(to) {}

    std::int64_t copyAll() {
        eachRow(from_, "SELECT name, value FROM meta", "name",
                [this](const Statement& row) { setMeta(to_.database, row.text(0), row.text(1)); });
        eachRow(
            from_, "SELECT id, kind, name, unread, draft FROM conversation", "id",
            [this](const Statement& row) {
                to_.database
                    .prepare(
                        "INSERT OR IGNORE INTO conversation(id, kind, name, unread, draft) VALUES(?1, ?2, ?3, ?4, ?5)")
                    .bind(1, row.integer(0))
                    .bind(2, row.integer(1))
                    .bind(3, row.text(2))
                    .bind(4, row.integer(3))
                    .bind(5, row.text(4))
                    .run();
            });
        eachRow(
            from_, "SELECT kind, name, until FROM cleared", "kind, name",
            [this](const Statement& row) {
                to_.database
                    .prepare("INSERT OR IGNORE INTO cleared(kind, name, until) VALUES(?1, ?2, ?3)")
                    .bind(1, row.integer(0))
                    .bind(2, row.text(1))
                    .bind(3, row.integer(2))
                    .run();
            });
        // A file of the first version has no attempts.
        eachRow(from_, "SELECT " + std::string(kFirstRowColumns) + ", 0 FROM message", "id",
                [this](const Statement& row) { copyMessage(row); });
        eachRow(from_, "SELECT message, number, name FROM attachment", "message, number",
                [this](const Statement& row) {
                    addAttachment(row.integer(0), row.integer(1), row.text(2));
                });
        adoptFiles();
        to_.forget();
        for (Tables::Conversation* const each : to_.all()) to_.repair(*each);
        return copied_;
    }

private:
    void addAttachment(std::int64_t message, std::int64_t number, std::string_view name) {
        to_.database
            .prepare("INSERT OR IGNORE INTO attachment(message, number, name) VALUES(?1, ?2, ?3)")
            .bind(1, message)
            .bind(2, number)
            .bind(3, name)
            .run();
    }

    /// Attachment files without entries: their names begin with the message's id and a number, see
    /// `addOutgoing`.
    void adoptFiles() {
        std::error_code ignored;
        for (const auto& each : std::filesystem::directory_iterator(to_.filesFolder, ignored)) {
            const std::string name = each.path().filename().string();
            const char* const end = name.data() + name.size();
            std::int64_t id = 0;
            std::int64_t number = 0;
            const auto first = std::from_chars(name.data(), end, id);
            if (first.ec != std::errc() || first.ptr == end || *first.ptr != '-') continue;
            if (std::from_chars(first.ptr + 1, end, number).ec != std::errc()) continue;
            const auto row = to_.row(id);
            if (!row || row->direction != VXIMStoredMessageOutgoing ||
                row->state == VXIMStoredMessageConfirmed)
                continue;
            addAttachment(id, number, name);
        }
    }

    void copyMessage(const Statement& statement) {
        Tables::Row row = readRow(statement);
        std::optional<Dictionary> payload;
        try {
            payload = fromJSON(row.payload);
            if (to_.row(row.id)) return;  // already read from the other side
            adopt(row, *payload);
        } catch (const Failure& failure) {
            if (!isDamage(failure.error)) throw;
            return;
        }
        to_.restore(row, *payload);
        ++copied_;
    }

    /// Makes sure that its conversation exists. If that was lost, the message says which it is.
    void adopt(Tables::Row& row, const Dictionary& payload) {
        Statement known = to_.database.prepare("SELECT 1 FROM conversation WHERE id = ?1");
        if (known.bind(1, row.conversation).step()) return;
        if (const auto id = conversationOf(payload, to_.userId))
            row.conversation = to_.findOrMake(*id).row;
        else
            fail(VXIMStoreErrorDamaged, "A message has no conversation.");
    }

    Database& from_;
    Tables& to_;
    std::int64_t copied_ = 0;
};

void move(const std::string& from, const std::string& to) {
    if (::rename(from.c_str(), to.c_str()) != 0 && errno != ENOENT) {
        failWithSystem(VXIMStoreErrorFailed, "The damaged file could not be set aside.", errno);
    }
}

std::string freeName(const std::string& path) {
    const auto seconds = static_cast<std::int64_t>(Clock::shared()->wallTime());
    for (int number = 0;; ++number) {
        std::string name = path + "-damaged-" + std::to_string(seconds) +
                           (number ? "-" + std::to_string(number) : "");
        if (!isThere(name)) return name;
    }
}

}  // namespace

VXIMStoreDamage rescue(const Location& location, const std::string& userId,
                       const std::string& service) {
    const Location fresh{location.rescue()};
    for (const char* const suffix : {"", "-journal"}) removeFile(fresh.path + suffix);
    prepareFile(fresh);
    VXIMStoreDamage damage{.setAsideAs = freeName(location.path)};
    try {
        // Not in WAL mode: it must be one complete file before it replaces the old one.
        Database to(fresh.path, Database::Access::ReadWrite);
        migrate(to);
        Tables tables(to, userId, location.attachments());
        to.execute("BEGIN IMMEDIATE");
        setMeta(to, "user", userId);
        setMeta(to, "service", service);
        try {
            Database from(location.path, Database::Access::Rescue);
            damage.messagesSaved = Copier(from, tables).copyAll();
        } catch (const Failure& failure) {
            if (!isDamage(failure.error) &&
                !failure.error->is(VXIMStoreErrorDomain, VXIMStoreErrorCannotOpen))
                throw;
        }
        requireOwner(to, userId,
                     service);  // before anything is moved: the file may belong to another user
        to.execute("COMMIT");
    } catch (const Failure&) {
        removeFile(fresh.path);
        throw;
    }
    // Move "-wal" first: it must never be next to a file that it does not belong to.
    move(location.path + "-wal", damage.setAsideAs + "-wal");
    removeFile(location.path + "-shm");
    move(location.path, damage.setAsideAs);
    move(fresh.path, location.path);
    return damage;
}

}  // namespace vexim::store
