#pragma once

#include <optional>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Image.h"

namespace vexim {

/// The PNG form (ISO/IEC 15948): the same pixels always give the same bytes. Empty when encoding
/// fails.
Data encodePNG(const Image& image);
/// nullopt for anything but a whole PNG, or for one of more than 64 million pixels.
std::optional<Image> decodePNG(const Data& png);

}  // namespace vexim
