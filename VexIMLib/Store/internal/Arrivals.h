#pragma once

#include <optional>
#include <string_view>

#include "VexIMLib/Store/internal/Operations.h"
#include "VexIMLib/VXIMMessage.h"

namespace vexim::store {

/// What the store keeps of a message that the client of user `userId` has received; nullopt if no
/// conversation takes it.
std::optional<Arrival> arrivalOf(VXIMMessage& message, std::string_view userId, bool isSystem);

}  // namespace vexim::store
