#pragma once

#include <cstdint>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Store/internal/Database.h"

namespace vexim::store {

// The full-text index: the table "words". Only text messages are in it.
void addWords(Database& database, std::int64_t id, std::int64_t conversation,
              const Dictionary& payload);
/// Needs the payload that was added: the index stores no texts, so it needs the same words again.
void removeWords(Database& database, std::int64_t id, std::int64_t conversation,
                 const Dictionary& payload);
/// Adds the words of all messages to a new index. Takes 10 s for a million.
void addAllWords(Database& database);

}  // namespace vexim::store
