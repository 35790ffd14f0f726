#pragma once

#include <cstdint>
#include <string>

#include "VexIMLib/Store/VXIMStoreTypes.h"
#include "VexIMLib/Store/internal/Files.h"

namespace vexim::store {

/// Makes a new file with all that can be read from a damaged one, which is renamed. Nobody may have
/// it open. Whatever happens meanwhile, one of the two is complete, under its name or as "-rescue"
/// (see `finishRescue`).
VXIMStoreDamage rescue(const Location& location, const std::string& userId,
                       const std::string& service);

}  // namespace vexim::store
