#pragma once

#include <optional>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Image.h"

namespace vexim {

/// Encodes as PNG (ISO/IEC 15948). The same pixels always give the same bytes. Empty if encoding
/// fails.
Data encodePNG(const Image& image);
/// nullopt for anything but an intact PNG of at most 64 million pixels.
std::optional<Image> decodePNG(const Data& png);

}  // namespace vexim
