#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "VexIMLib/Foundation/Error.h"

struct sqlite3;
struct sqlite3_stmt;

namespace vexim::store {

/// An error on the store's thread. The engine passes it to the completion.
struct Failure {
    ErrorPtr error;
};
/// One of the codes of `VXIMStoreErrorDomain`.
[[noreturn]] void fail(std::int64_t code, const std::string& sentence, ErrorPtr cause = nullptr);
/// What the system said.
[[noreturn]] void failWithSystem(std::int64_t code, const std::string& sentence, int number);
bool isDamage(const ErrorPtr& error);

/// A prepared statement in use. Parameters count from 1, columns from 0. Destroying this object
/// frees the statement for its next use.
class Statement {
public:
    Statement(sqlite3* database, sqlite3_stmt* statement)
        : database_(database),
          statement_(statement) {}
    ~Statement();
    Statement(Statement&& other) noexcept
        : database_(other.database_),
          statement_(std::exchange(other.statement_, nullptr)) {}
    Statement& operator=(Statement&&) = delete;

    Statement& bind(int place, std::int64_t number);
    /// The text must live until the statement is reset or destroyed.
    Statement& bind(int place, std::string_view text);
    Statement& bind(int place, std::optional<std::int64_t> number);

    /// Whether there is a row.
    bool step();
    /// For statements without rows.
    void run();
    /// Prepares for the next use. Bound values stay.
    void reset();

    std::int64_t integer(int column) const;
    std::string_view text(int column) const;  // valid until the next step
    bool isNull(int column) const;

private:
    sqlite3* const database_;
    sqlite3_stmt* statement_;
};

/// A connection to an SQLite file, for one thread. Errors are thrown as `Failure`.
class Database {
public:
    enum class Access {
        ReadWrite,
        ReadOnly,
        Rescue,  // reads what can be read of a damaged file
    };
    Database(const std::string& path, Access access);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    void execute(const char* sql);
    /// Keeps the prepared statement for its text, and returns the same one the next time. So do not
    /// use it twice at the same time.
    Statement prepare(std::string_view sql);
    std::int64_t integer(std::string_view sql);  // the first column of the first row; 0 without one

    bool isInTransaction() const;
    bool isReadOnly() const;
    std::int64_t changes() const;

private:
    sqlite3* database_ = nullptr;
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const noexcept {
            return std::hash<std::string_view>()(text);
        }
    };
    std::unordered_map<std::string, sqlite3_stmt*, Hash, std::equal_to<>> statements_;
};

}  // namespace vexim::store
