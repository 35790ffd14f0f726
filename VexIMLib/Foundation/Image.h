#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

/// A bitmap in sRGB: rows from the top, four bytes per pixel (red, green, blue, alpha; not
/// premultiplied). Immutable, so copies may be used on any thread. A copy copies the pixels; pass
/// it by reference. The library only writes images, as PNG: to show one that was received, decode
/// its file with your toolkit.
///
///     // one red pixel
///     const auto image = vexim::Image::fromPixels(1, 1, {255, 0, 0, 255});
///     const auto message = VXIMMessage::messageWithImage(*image);
class VEXIM_EXPORT Image {
public:
    /// Makes an image, and takes over the buffer of `pixels`. nullopt unless both sides are 1 to
    /// 65535 and `pixels` has width × height × 4 bytes. A row follows the one above it, without
    /// padding. Call from any thread.
    static std::optional<Image> fromPixels(std::uint32_t width, std::uint32_t height,
                                           std::vector<std::uint8_t> pixels);

    // Width and height in pixels, and the bytes as described above. They never change, so any
    // thread may read them.
    std::uint32_t width() const noexcept { return width_; }
    std::uint32_t height() const noexcept { return height_; }
    const std::vector<std::uint8_t>& pixels() const noexcept { return pixels_; }

private:
    Image() = default;
    // constant after `fromPixels`
    std::uint32_t width_ = 0;
    std::uint32_t height_ = 0;
    std::vector<std::uint8_t> pixels_;
};

}  // namespace vexim
