#include "VexIMLib/Store/internal/Database.h"

#include <sqlite3.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Store/VXIMStoreErrors.h"
#include "VexIMLib/VXIMErrors.h"

namespace vexim::store {
namespace {

constexpr int kBusyMillis = 2000;
constexpr const char* kSQLiteErrorDomain = "SQLiteErrorDomain";

ErrorPtr makeError(std::int64_t code, const std::string& sentence, ErrorPtr cause) {
    Dictionary info{{kLocalizedDescriptionKey, sentence}};
    if (cause) info.set(kUnderlyingErrorKey, Value(std::move(cause)));
    if (code == VXIMStoreErrorLocked) info.set(kTemporaryKey, true);
    return Error::make(VXIMStoreErrorDomain, code, Value(std::move(info)));
}

bool isFull(int number) { return number == ENOSPC || number == EDQUOT || number == EFBIG; }

[[noreturn]] void failWithSQLite(sqlite3* database, int code) {
    const int extended = database ? sqlite3_extended_errcode(database) : code;
    // SQLite does not keep the errno of a failed write, but errno still has it; see `step`.
    const int number = errno;
    // The text is SQLite's fixed one for the code. It never quotes stored data.
    const ErrorPtr cause =
        Error::withDescription(kSQLiteErrorDomain, extended, sqlite3_errstr(extended));
    switch (code & 0xff) {
        case SQLITE_FULL:
            fail(VXIMStoreErrorDiskFull, "The disk is full: the message store cannot be written.",
                 cause);
        case SQLITE_IOERR:
            if (isFull(number))
                fail(VXIMStoreErrorDiskFull,
                     "The disk is full: the message store cannot be written.", cause);
            break;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            // without a cause, because the cause would decide that the error is not temporary
            fail(VXIMStoreErrorLocked, "Another program is using the message store.");
        case SQLITE_READONLY:
            fail(VXIMStoreErrorReadOnly, "The message store cannot be written.", cause);
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            fail(VXIMStoreErrorDamaged, "The message store's file is damaged.", cause);
        case SQLITE_CANTOPEN:
            fail(VXIMStoreErrorCannotOpen, "The message store's file cannot be opened.", cause);
        default: break;
    }
    fail(VXIMStoreErrorFailed, "The message store failed.", cause);
}

}  // namespace

void fail(std::int64_t code, const std::string& sentence, ErrorPtr cause) {
    throw Failure{makeError(code, sentence, std::move(cause))};
}

void failWithSystem(std::int64_t code, const std::string& sentence, int number) {
    if (isFull(number)) code = VXIMStoreErrorDiskFull;
    fail(code, sentence,
         Error::withDescription(kPOSIXErrorDomain, number,
                                std::error_code(number, std::generic_category()).message()));
}

bool isDamage(const ErrorPtr& error) {
    return error && error->is(VXIMStoreErrorDomain, VXIMStoreErrorDamaged);
}

Statement::~Statement() {
    if (!statement_) return;
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

Statement& Statement::bind(int place, std::int64_t number) {
    sqlite3_bind_int64(statement_, place, number);
    return *this;
}
Statement& Statement::bind(int place, std::string_view text) {
    // An empty view may have no address, which SQLite would treat as NULL.
    sqlite3_bind_text64(statement_, place, text.data() ? text.data() : "", text.size(),
                        SQLITE_STATIC, SQLITE_UTF8);
    return *this;
}
Statement& Statement::bind(int place, std::optional<std::int64_t> number) {
    if (number) return bind(place, *number);
    sqlite3_bind_null(statement_, place);
    return *this;
}

bool Statement::step() {
    errno = 0;
    const int code = sqlite3_step(statement_);
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    failWithSQLite(database_, code);
}
void Statement::run() {
    while (step()) {
    }
    reset();
}
void Statement::reset() { sqlite3_reset(statement_); }

std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}
std::string_view Statement::text(int column) const {
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    if (!text) return {};
    return {text, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
}
bool Statement::isNull(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

Database::Database(const std::string& path, Access access) {
    const int flags = (access == Access::ReadOnly ? SQLITE_OPEN_READONLY
                                                  : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) |
                      SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    errno = 0;
    const int code = sqlite3_open_v2(path.c_str(), &database_, flags, nullptr);
    if (code != SQLITE_OK) {
        sqlite3* const opened = std::exchange(database_, nullptr);
        const std::unique_ptr<sqlite3, int (*)(sqlite3*)> closed(opened, sqlite3_close_v2);
        failWithSQLite(opened, code);
    }
    sqlite3_busy_timeout(database_, kBusyMillis);
    // A file may come from anywhere, so run no code from its schema.
    if (access == Access::Rescue) {
        // reads files that are shorter than announced
        sqlite3_db_config(database_, SQLITE_DBCONFIG_WRITABLE_SCHEMA, 1, nullptr);
    } else {
        sqlite3_db_config(database_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    }
    sqlite3_db_config(database_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
}

Database::~Database() {
    for (const auto& [sql, statement] : statements_) sqlite3_finalize(statement);
    sqlite3_close_v2(database_);
}

void Database::execute(const char* sql) {
    errno = 0;
    const int code = sqlite3_exec(database_, sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) failWithSQLite(database_, code);
}

Statement Database::prepare(std::string_view sql) {
    auto found = statements_.find(sql);
    if (found == statements_.end()) {
        sqlite3_stmt* statement = nullptr;
        const int code = sqlite3_prepare_v3(database_, sql.data(), static_cast<int>(sql.size()),
                                            SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
        // Our statements are right, so the schema must be incomplete.
        if (code == SQLITE_ERROR)
            fail(VXIMStoreErrorDamaged, "The message store's file is incomplete.");
        if (code != SQLITE_OK) failWithSQLite(database_, code);
        found = statements_.emplace(sql, statement).first;
    }
    return {database_, found->second};
}

std::int64_t Database::integer(std::string_view sql) {
    Statement statement = prepare(sql);
    return statement.step() ? statement.integer(0) : 0;
}

bool Database::isInTransaction() const { return sqlite3_get_autocommit(database_) == 0; }
bool Database::isReadOnly() const { return sqlite3_db_readonly(database_, "main") == 1; }
std::int64_t Database::changes() const { return sqlite3_changes64(database_); }

}  // namespace vexim::store
