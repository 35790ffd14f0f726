#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Error.h"

namespace vexim::store {

/// The time in a payload, in milliseconds; nullopt when it has none.
std::optional<std::int64_t> timeOf(const Dictionary& payload);
/// Who wrote it: the id in "from", or "speaker".
const Value& writerOf(const Dictionary& payload);
/// The key or service id in it; nullopt when it has none.
std::optional<std::string> textOf(const Dictionary& payload, const char* field);
/// A number that stands for a key in the index: keys that begin with rising digits give rising
/// numbers.
std::int64_t keyNumber(std::string_view key);
/// As JSON; fails with Unusable.
std::string toJSON(const Dictionary& payload);
Dictionary fromJSON(std::string_view json);
std::string errorToJSON(const ErrorPtr& error);

}  // namespace vexim::store
