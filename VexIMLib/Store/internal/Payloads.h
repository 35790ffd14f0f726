#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/VXIMMessage.h"

namespace vexim::store {

/// The time in a payload, in milliseconds; nullopt if there is none.
std::optional<std::int64_t> timeOf(const Dictionary& payload);
/// The sender: the id in "from", or "speaker".
const Value& writerOf(const Dictionary& payload);
/// The kind of body, read as `VXIMMessage` reads it.
VXIMMessageMediaType mediaTypeOf(const Dictionary& payload);
/// The key or service id in it; nullopt when it has none.
std::optional<std::string> textOf(const Dictionary& payload, const char* field);
/// A number for a key in the index. Keys that begin with increasing digits give increasing numbers.
std::int64_t keyNumber(std::string_view key);
/// Writes it as JSON; fails with Unusable.
std::string toJSON(const Dictionary& payload);
Dictionary fromJSON(std::string_view json);
std::string errorToJSON(const ErrorPtr& error);

}  // namespace vexim::store
