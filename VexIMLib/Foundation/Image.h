#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// A bitmap: rows from the top, four bytes a pixel (red, green, blue, alpha; not premultiplied), sRGB.
class VEXIM_EXPORT Image {
public:
    /// nullopt unless both sides are 1 to 65535 and `pixels` holds width × height × 4 bytes.
    static std::optional<Image> fromPixels(std::uint32_t width, std::uint32_t height, std::vector<std::uint8_t> pixels);
    /// Decodes a PNG; nullopt for anything else.
    static std::optional<Image> fromPNG(const Data& png);

    std::uint32_t width() const noexcept { return width_; }
    std::uint32_t height() const noexcept { return height_; }
    const std::vector<std::uint8_t>& pixels() const noexcept { return pixels_; }
    /// The PNG form (ISO/IEC 15948): the same pixels always give the same bytes. Empty when encoding fails.
    Data pngRepresentation() const;

private:
    Image() = default;
    std::uint32_t width_ = 0;
    std::uint32_t height_ = 0;
    std::vector<std::uint8_t> pixels_;
};

}  // namespace vexim
