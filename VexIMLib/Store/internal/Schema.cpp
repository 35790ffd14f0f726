#include "VexIMLib/Store/internal/Schema.h"

#include <array>

#include "VexIMLib/Store/VXIMStoreErrors.h"
#include "VexIMLib/Store/internal/Index.h"

// The file, an SQLite database:
//
//   meta          settings of the whole file: "user", "service", the retention limits, "drift"
//   conversation  "kind" as in VXIMConversationKind, "name" is its id; the newest message by time;
//                 how far its history is known
//   message       "id" begins with the hour of the message's time (see Messages.cpp); "state" and
//                 "direction" as in their enumerations; "key" and "service_id" are numbers made
//                 from these texts, which are in the payload
//   gap           parts of conversations whose messages are missing
//   attachment    names of files in the folder next to the database
//   cleared       removed conversations, with the time of their last message
//   words         the full-text index; "place" has one word for the conversation. It stores no
//                 texts itself
namespace vexim::store {
namespace {

constexpr std::int64_t kApplicationId = 0x7665786d;  // "vexm"

// Step n upgrades a file from version n to the next (0: an empty file). Files of every version
// exist, so never change a step.
constexpr std::array kSteps = {
    R"(
    CREATE TABLE meta(name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
    CREATE TABLE conversation(
        id INTEGER PRIMARY KEY, kind INTEGER NOT NULL, name TEXT NOT NULL,
        last_at INTEGER NOT NULL DEFAULT 0, last_id INTEGER NOT NULL DEFAULT 0,
        unread INTEGER NOT NULL DEFAULT 0, draft TEXT NOT NULL DEFAULT '', known_until INTEGER NOT NULL DEFAULT 0,
        UNIQUE(kind, name));
    CREATE TABLE message(
        id INTEGER PRIMARY KEY, conversation INTEGER NOT NULL, sent_at INTEGER NOT NULL, direction INTEGER NOT NULL,
        state INTEGER NOT NULL, payload TEXT NOT NULL, key INTEGER, service_id INTEGER, error TEXT);
    CREATE INDEX message_time ON message(conversation, sent_at);
    CREATE INDEX message_key ON message(key) WHERE key IS NOT NULL;
    CREATE INDEX message_service_id ON message(service_id) WHERE service_id IS NOT NULL;
    CREATE INDEX message_waiting ON message(conversation, sent_at) WHERE direction = 1 AND state <> 3;
    CREATE TABLE gap(
        conversation INTEGER NOT NULL, after INTEGER NOT NULL, before INTEGER NOT NULL,
        PRIMARY KEY(conversation, after)) WITHOUT ROWID;
    CREATE TABLE attachment(
        message INTEGER NOT NULL, number INTEGER NOT NULL, name TEXT NOT NULL, PRIMARY KEY(message, number)) WITHOUT ROWID;
    CREATE VIRTUAL TABLE words USING fts5(
        body, place, content='', columnsize=0, tokenize='unicode61 remove_diacritics 2');
    )",
    R"(
    ALTER TABLE message ADD COLUMN attempts INTEGER NOT NULL DEFAULT 0;
    CREATE TABLE cleared(
        kind INTEGER NOT NULL, name TEXT NOT NULL, until INTEGER NOT NULL, PRIMARY KEY(kind, name)) WITHOUT ROWID;
    )",
    // The beginnings of words have index entries, too; otherwise a search for "a*" would join the
    // entries of ten thousand words. Fewer merges and larger pieces make up for the cost. `migrate`
    // adds the words.
    R"(
    DROP TABLE words;
    CREATE VIRTUAL TABLE words USING fts5(
        body, place, content='', columnsize=0, prefix='1 2 3', tokenize='unicode61 remove_diacritics 2');
    INSERT INTO words(words, rank) VALUES('automerge', 8), ('pgsz', 8000);
    )",
};
static_assert(kSteps.size() == kSchemaVersion);

std::int64_t presentVersion(Database& database) {
    const std::int64_t version = database.integer("PRAGMA user_version");
    const std::int64_t application = database.integer("PRAGMA application_id");
    if (application != kApplicationId &&
        database.integer("SELECT count(*) FROM sqlite_schema") > 0) {
        fail(VXIMStoreErrorCannotOpen, "The file is a database of another program.");
    }
    if (version > kSchemaVersion)
        fail(VXIMStoreErrorNewer, "A newer version of this library wrote the message store.");
    return version;
}

/// Reads every table, so that a missing one is found now.
void requireTables(Database& database) {
    for (const char* const sql :
         {"SELECT name, value FROM meta LIMIT 1",
          "SELECT id, known_until FROM conversation LIMIT 1",
          "SELECT id, attempts FROM message ORDER BY id DESC LIMIT 1",
          "SELECT sent_at FROM message ORDER BY conversation DESC, sent_at DESC LIMIT 1",
          "SELECT after FROM gap LIMIT 1", "SELECT name FROM attachment LIMIT 1",
          "SELECT until FROM cleared LIMIT 1",
          "SELECT rowid FROM words WHERE words MATCH 'place : c1' LIMIT 1"}) {
        database.integer(sql);
    }
}

}  // namespace

void migrate(Database& database) {
    std::int64_t version = presentVersion(database);
    if (version < kSchemaVersion) {
        database.execute("BEGIN IMMEDIATE");
        const bool isIndexNew = version < 3;
        for (; version < kSchemaVersion; ++version)
            database.execute(kSteps.at(static_cast<std::size_t>(version)));
        if (isIndexNew) addAllWords(database);
        database.execute(("PRAGMA application_id = " + std::to_string(kApplicationId)).c_str());
        database.execute(("PRAGMA user_version = " + std::to_string(kSchemaVersion)).c_str());
        database.execute("COMMIT");
    }
    requireTables(database);
}

void requireSchema(Database& database) {
    if (presentVersion(database) < kSchemaVersion) {
        fail(
            VXIMStoreErrorReadOnly,
            "An older version of this library wrote the message store. Open it for writing once to upgrade it.");
    }
    requireTables(database);
}

void requireOwner(Database& database, const std::string& userId, const std::string& origin) {
    const auto differs = [&database](const char* name, const std::string& asked) {
        const std::string recorded = meta(database, name);
        return !asked.empty() && !recorded.empty() && recorded != asked;
    };
    if (differs("user", userId))
        fail(VXIMStoreErrorOtherOwner, "The message store belongs to another user.");
    if (differs("service", origin))
        fail(VXIMStoreErrorOtherOwner, "The message store belongs to another service.");
}

std::string meta(Database& database, std::string_view name) {
    Statement statement = database.prepare("SELECT value FROM meta WHERE name = ?1");
    return statement.bind(1, name).step() ? std::string(statement.text(0)) : std::string();
}

void setMeta(Database& database, std::string_view name, std::string_view value) {
    database.prepare("INSERT OR REPLACE INTO meta(name, value) VALUES(?1, ?2)")
        .bind(1, name)
        .bind(2, value)
        .run();
}

}  // namespace vexim::store
