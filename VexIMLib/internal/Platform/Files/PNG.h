#pragma once

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Image.h"

namespace vexim {

/// Encodes as PNG (ISO/IEC 15948). The same pixels always give the same bytes. Empty if encoding
/// fails.
Data encodePNG(const Image& image);

}  // namespace vexim
