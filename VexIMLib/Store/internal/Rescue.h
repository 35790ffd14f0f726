#pragma once

#include <cstdint>
#include <string>

#include "VexIMLib/Store/VXIMStoreTypes.h"
#include "VexIMLib/Store/internal/Files.h"

namespace vexim::store {

/// Makes a fresh file of all that can be read from a damaged one, which is renamed; nobody may have
/// it open. Whatever happens in between, one of the two is there, whole, under its name or
/// "-rescue" (see `finishRescue`).
VXIMStoreDamage rescue(const Location& location, const std::string& userId,
                       const std::string& service);

}  // namespace vexim::store
