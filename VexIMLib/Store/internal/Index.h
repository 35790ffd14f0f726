#pragma once

#include <cstdint>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Store/internal/Database.h"

namespace vexim::store {

// The full-text index: the table "words". A message whose payload is not a text has none.
void addWords(Database& database, std::int64_t id, std::int64_t conversation,
              const Dictionary& payload);
/// With the payload as it was added: the index holds no texts, so it must be told the same words
/// again.
void removeWords(Database& database, std::int64_t id, std::int64_t conversation,
                 const Dictionary& payload);
/// Adds those of all messages to an index that is new. 10 s for a million.
void addAllWords(Database& database);

}  // namespace vexim::store
