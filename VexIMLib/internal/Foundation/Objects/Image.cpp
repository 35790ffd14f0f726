#include "VexIMLib/Foundation/Image.h"

#include <utility>

namespace vexim {

std::optional<Image> Image::fromPixels(std::uint32_t width, std::uint32_t height,
                                       std::vector<std::uint8_t> pixels) {
    constexpr std::uint32_t kMaxSide = 65535;
    if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide) return std::nullopt;
    if (pixels.size() != std::size_t{width} * height * 4) return std::nullopt;
    Image image;
    image.width_ = width;
    image.height_ = height;
    image.pixels_ = std::move(pixels);
    return image;
}

}  // namespace vexim
