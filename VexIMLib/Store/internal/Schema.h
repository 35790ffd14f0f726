#pragma once

#include <cstdint>
#include <string>

#include "VexIMLib/Store/internal/Database.h"

namespace vexim::store {

/// The version of the file that this library writes ("user_version").
inline constexpr std::int64_t kSchemaVersion = 3;

/// Brings a file to the present version, a new one too, in one transaction. Failures: Newer,
/// CannotOpen for another program's file, Damaged when it says that it is ours but is not whole.
void migrate(Database& database);
/// The same without writing: a file of an earlier version is `ReadOnly`.
void requireSchema(Database& database);

/// OtherOwner when the file says that it is another user's or another service's; an empty one is
/// not compared.
void requireOwner(Database& database, const std::string& userId, const std::string& origin);
std::string meta(Database& database, std::string_view name);  // empty without one
void setMeta(Database& database, std::string_view name, std::string_view value);

}  // namespace vexim::store
