#pragma once

#include <cstdint>
#include <string>

#include "VexIMLib/Store/internal/Database.h"

namespace vexim::store {

/// The version of the file that this library writes ("user_version").
inline constexpr std::int64_t kSchemaVersion = 3;

/// Upgrades a file (or an empty one) to the current version, in one transaction. Failures: Newer,
/// CannotOpen for another program's file, Damaged if it is ours but incomplete.
void migrate(Database& database);
/// The same without writing: a file of an older version gives `ReadOnly`.
void requireSchema(Database& database);

/// OtherOwner if the file belongs to another user or another service. An empty value is not
/// compared.
void requireOwner(Database& database, const std::string& userId, const std::string& origin);
std::string meta(Database& database, std::string_view name);  // empty without one
void setMeta(Database& database, std::string_view name, std::string_view value);

}  // namespace vexim::store
